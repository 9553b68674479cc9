// "nimbra-crypt --decrypt" run as a real process, without any display and
// without a terminal unless a test gives it one, on folders of real
// envelopes: what it writes and deletes, what it prints, its exit codes, the
// prompt on a terminal, and a stop by SIGINT in the middle of a file.
#include <envelope_writer/EnvelopeWriter.h>

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

namespace {

const QByteArray kPassphrase = "correct horse";

// The program in a session of its own, so its only terminal is the one named,
// which is its standard error too.
struct Program : QProcess {
    QByteArray terminal;
    void setupChildProcess() override
    {
        ::setsid();
        if (!terminal.isEmpty())
            ::dup2(::open(terminal.constData(), O_RDWR), STDERR_FILENO); // becomes the controlling terminal
    }
};

bool writeFile(const QString &path, const QByteArray &content, const QByteArray &passphrase = QByteArray())
{
    QDir().mkpath(QFileInfo(path).path());
    if (!passphrase.isEmpty())
        return envelope_writer::writeEnvelope(path.toStdString(), content.toStdString(), passphrase.toStdString());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
}

// Every file below folder, hidden ones too, relative and sorted.
QStringList filesBelow(const QString &folder)
{
    QStringList files;
    for (QDirIterator it(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();)
        files << QDir(folder).relativeFilePath(it.next());
    files.sort();
    return files;
}

QByteArray binary(int size, int seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char((i * 7 + seed) ^ (i >> 8));
    return bytes;
}

QStringList sortedLines(const QString &text)
{
    QStringList lines = text.split('\n', Qt::SkipEmptyParts);
    lines.sort();
    return lines;
}

} // namespace

class DecryptCommandTest : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir;
    QByteArray m_binary = binary(70000, 3);
    int m_runs = 0;

    // Starts the program with args ("{pw}" the passphrase file) and input on
    // standard input; environment holds NAME=VALUE pairs to add.
    void start(Program *program, QStringList args, const QByteArray &input = {}, const QString &environment = {})
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
            env.remove(name);
        env.insert("XDG_CONFIG_HOME", m_dir.filePath("config")); // where a settings store would appear
        for (const QString &pair : environment.split(' ', Qt::SkipEmptyParts))
            env.insert(pair.section('=', 0, 0), pair.section('=', 1));
        program->setProcessEnvironment(env);
        program->start(QCoreApplication::applicationDirPath() + "/nimbra-crypt",
                       args.replaceInStrings("{pw}", m_dir.filePath("pw.txt")));
        program->write(input);
        program->closeWriteChannel();
    }

    // A fresh folder: two envelopes, a hidden one and a plain file that no
    // load may take, and one for another passphrase when wrong.
    QString makeBatch(bool wrong)
    {
        const QString folder = m_dir.filePath(QString::number(++m_runs));
        writeFile(folder + "/a.txt.nimbra-env", "alpha", kPassphrase);
        writeFile(folder + "/sub/b.bin.nimbra-env", m_binary, kPassphrase);
        writeFile(folder + "/.hidden/c.nimbra-env", "hidden", kPassphrase);
        writeFile(folder + "/plain.txt", "plain");
        if (wrong)
            writeFile(folder + "/wrong.dat.nimbra-env", "not for us", "another passphrase");
        return folder;
    }

private slots:
    void initTestCase() { QVERIFY(writeFile(m_dir.filePath("pw.txt"), kPassphrase + "\nsecond line\n")); }

    void decrypt_data()
    {
        QTest::addColumn<QString>("args"); // after "--decrypt"; "{d}" is a fresh folder of envelopes
        QTest::addColumn<QByteArray>("input");
        QTest::addColumn<QString>("environment");
        QTest::addColumn<int>("exitCode"); // -2 reads 254
        QTest::addColumn<QString>("output"); // lines in any order
        QTest::addColumn<QString>("errors");
        const QString a = "{d}/a.txt.nimbra-env: Finished -> {d}/a.txt\n", b = "{d}/sub/b.bin.nimbra-env: Finished -> {d}/sub/b.bin\n";
        const QString wrong = "{d}/wrong.dat.nimbra-env: Error (Passphrase doesn't match Code: 1)\n", p = "nimbra-crypt: ";
        QTest::newRow("passphrase file, 8 threads, stale DISPLAY") << "--threads 8 --passphrase-file {pw} {d}/" << QByteArray()
            << "DISPLAY=:99" << 0 << a + b + "2 finished, 0 failed, 0 pending, 2 total" << "2 files loaded.";
        QTest::newRow("standard input, 1 thread, wrong") << "{d} --threads 1 --passphrase-file -" << kPassphrase + "\r\n" << ""
            << 254 << a + b + wrong + "2 finished, 1 failed, 0 pending, 3 total" << "3 files loaded.";
        QTest::newRow("quiet, delete encrypted, wrong") << "--quiet --passphrase-file {pw} --delete-encrypted {d}" << QByteArray()
            << "" << 254 << wrong + "2 finished, 1 failed, 0 pending, 3 total" << "";
        QTest::newRow("German, quiet, wrong") << "--passphrase-file {pw} --quiet {d}" << QByteArray() << "LC_ALL=de_DE.UTF-8" << 254
            << "{d}/wrong.dat.nimbra-env: Fehler (Die Passphrase ist falsch Code: 1)\n"
               "2 abgeschlossen, 1 fehlgeschlagen, 0 ausstehend, 3 insgesamt" << "";
        const QList<QPair<QString, QString>> usage{
            {"--quiet", "No file or folder to decrypt was given."},
            {"{d} {d}/none", "{d}/none: no such file or folder."},
            {"--fast {d}", "Unknown option --fast"},
            {"{d} -- --quiet", "--quiet: no such file or folder."},
            {"--threads 0 {d}", "The option --threads takes a number from 1 to 8, not 0."},
            {"{d} --threads 9", "The option --threads takes a number from 1 to 8, not 9."},
            {"{d} --passphrase-file", "The option --passphrase-file needs a value."},
            {"{d}", "No terminal to ask for the passphrase on; give it with --passphrase-file."},
            {"--passphrase-file {d}/none {d}", "Could not open file {d}/none, for reading. No such file or directory"},
            {"--passphrase-file {d} {d}", "Could not read {d}. Is a directory"},
            {"--passphrase-file - {d}", "The passphrase is empty."}};
        for (const auto &row : usage)
            QTest::newRow(qPrintable("usage: " + row.second)) << row.first << QByteArray("\n") << "" << 255 << "" << p + row.second;
    }

    // Byte-exact outputs beside the envelopes, nothing else written, a failed
    // envelope kept without an output, only successful envelopes deleted, no
    // progress line where standard error is no terminal; after a usage error
    // (exit code -1) nothing written at all.
    void decrypt()
    {
        QFETCH(QString, args);
        QFETCH(QByteArray, input);
        QFETCH(QString, environment);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        QFETCH(QString, errors);
        const bool wrong = output.contains("wrong.dat"), wrote = exitCode != 255;
        const QString folder = makeBatch(wrong);
        Program program;
        start(&program, QStringList{"--decrypt"} + args.replace("{d}", folder).split(' '), input, environment);
        QVERIFY(program.waitForFinished(120000));
        QCOMPARE(program.exitCode(), exitCode);
        QCOMPARE(sortedLines(program.readAllStandardOutput()), sortedLines(output.replace("{d}", folder)));
        QCOMPARE(QString::fromUtf8(program.readAllStandardError()).trimmed(), errors.replace("{d}", folder));
        QStringList expected{".hidden/c.nimbra-env", "plain.txt"};
        if (wrote)
            expected << "a.txt" << "sub/b.bin";
        if (!wrote || !args.contains("--delete-encrypted"))
            expected << "a.txt.nimbra-env" << "sub/b.bin.nimbra-env";
        if (wrong)
            expected << "wrong.dat.nimbra-env";
        expected.sort();
        QCOMPARE(filesBelow(folder), expected);
        QVERIFY(!wrote || (contentOf(folder + "/a.txt") == "alpha" && contentOf(folder + "/sub/b.bin") == m_binary));
        QVERIFY(!QFileInfo::exists(m_dir.filePath("config"))); // the window's settings store stays untouched
    }

    // Without a passphrase file it asks on its terminal: the prompt shows, the
    // passphrase typed after it is not echoed (only its line end), standard
    // error (the terminal) shows a progress line that is erased before the
    // lines of standard output, and the terminal echoes again afterwards.
    void terminalPrompt()
    {
        const int master = ::posix_openpt(O_RDWR | O_NOCTTY);
        QVERIFY(master >= 0 && ::grantpt(master) == 0 && ::unlockpt(master) == 0);
        const int terminal = ::open(::ptsname(master), O_RDWR | O_NOCTTY); // keeps its settings readable
        Program program;
        program.terminal = ::ptsname(master);
        start(&program, {"--decrypt", makeBatch(false)});
        QByteArray shown;
        char bytes[256];
        pollfd readable{master, POLLIN, 0};
        for (const QByteArray end : {"Passphrase: ", " left\r\x1b[K"}) {
            while (!shown.endsWith(end) && ::poll(&readable, 1, 20000) == 1)
                shown += QByteArray(bytes, int(qMax<ssize_t>(0, ::read(master, bytes, sizeof bytes))));
            if (end == "Passphrase: ")
                QCOMPARE(::write(master, (kPassphrase + "\n").constData(), size_t(kPassphrase.size() + 1)), ssize_t(kPassphrase.size() + 1));
        }
        QVERIFY(program.waitForFinished(120000));
        QVERIFY2(shown.startsWith("Passphrase: \r\n2 files loaded.\r\n\r\x1b[K0% 0 of 2 files, 0.0 MB/s, -:-- left\r\x1b[K"),
                 shown.constData());
        QCOMPARE(program.exitCode(), 0);
        termios settings;
        QVERIFY(::tcgetattr(terminal, &settings) == 0 && (settings.c_lflag & ECHO));
        ::close(terminal);
        ::close(master);
    }

    void interrupt_data()
    {
        QTest::addColumn<bool>("wrong");
        QTest::addColumn<int>("exitCode");
        QTest::newRow("pending") << false << 253;
        QTest::newRow("pending and failed") << true << 252;
    }

    // SIGINT while the first of three large files is being written, one
    // thread (after a wrong envelope named first has failed): the batch stops
    // as the Stop button stops it. Whatever output name exists holds a whole
    // plaintext, the envelopes are untouched, the exit code says what is pending.
    void interrupt()
    {
        QFETCH(bool, wrong);
        QFETCH(int, exitCode);
        const QString folder = m_dir.filePath(QTest::currentDataTag()), failing = folder + "-wrong.nimbra-env";
        QList<QByteArray> plain, sealed;
        for (int i = 0; i < 3; ++i) {
            plain << binary(24 << 20, i);
            QVERIFY(writeFile(folder + QString("/big%1.nimbra-env").arg(i), plain.last(), kPassphrase));
            sealed << contentOf(folder + QString("/big%1.nimbra-env").arg(i));
        }
        QVERIFY(writeFile(failing, "x", "another passphrase"));
        Program program;
        start(&program, QStringList{"--decrypt", "--threads", "1", "--passphrase-file", "{pw}"}
                            + (wrong ? QStringList{failing, folder} : QStringList{folder}));
        // The first output (or its temporary name) appears once a file is
        // being written; looked for often, so the signal comes while it is.
        QElapsedTimer clock;
        clock.start();
        while (filesBelow(folder).size() == 3 && !program.waitForFinished(0) && clock.elapsed() < 120000)
            QThread::usleep(200);
        QCOMPARE(::kill(pid_t(program.processId()), SIGINT), 0);
        QVERIFY(program.waitForFinished(120000));
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.exitCode(), exitCode);
        for (int i = 0; i < 3; ++i) {
            const QString envelope = folder + QString("/big%1.nimbra-env").arg(i), output = envelope.chopped(11);
            QVERIFY(contentOf(envelope) == sealed.at(i));
            QVERIFY2(!QFile::exists(output) || contentOf(output) == plain.at(i), qPrintable(output));
        }
        QVERIFY(filesBelow(folder).filter(QRegularExpression("(^|/)\\.")).isEmpty()); // no hidden leftovers
        const QString summary = sortedLines(program.readAllStandardOutput()).filter(" total").value(0);
        const QString counts = wrong ? "1 failed, [1-3] pending, 4 total" : "0 failed, [1-3] pending, 3 total";
        QVERIFY2(QRegularExpression("^[0-2] finished, " + counts + "$").match(summary).hasMatch(), qPrintable(summary));
    }

    void help()
    {
        Program program;
        start(&program, {"--help"});
        QVERIFY(program.waitForFinished(120000) && program.exitCode() == 0);
        const QString help = QString::fromUtf8(program.readAllStandardOutput());
        for (const char *word : {" PATH...", " '*'", " -file-list ", " -test ", " -test-list ", " -v, --version", " --help",
                                 " --decrypt ", "--passphrase-file FILE", "--threads N", "--delete-encrypted", "--quiet"})
            QVERIFY2(help.contains(word), word);
    }
};

QTEST_GUILESS_MAIN(DecryptCommandTest)
#include "DecryptCommandTest.moc"
