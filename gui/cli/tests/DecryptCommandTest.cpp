// "nimbra-crypt --decrypt" run as a real process, without any display and
// without a controlling terminal, on folders of real envelopes: what it
// writes and deletes, what it prints, its exit codes, and a stop by SIGINT
// in the middle of a file.
#include <envelope_writer/EnvelopeWriter.h>

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <signal.h>
#include <unistd.h>

namespace {

const QByteArray kPassphrase = "correct horse";

// The program in a session of its own, so it has no terminal to ask on.
class DetachedProcess : public QProcess
{
protected:
    void setupChildProcess() override { ::setsid(); }
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
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(folder).relativeFilePath(it.next());
    files.sort();
    return files;
}

// Bytes that are not text, some kilobytes of them.
QByteArray binary(int size, int seed)
{
    QByteArray bytes(size, '\0');
    for (int i = 0; i < size; ++i)
        bytes[i] = char((i * 7 + seed) ^ (i >> 8));
    return bytes;
}

} // namespace

class DecryptCommandTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void decrypt_data();
    void decrypt();
    void usageErrors_data();
    void usageErrors();
    void interruptMidBatch();
    void helpListsEveryMode();

private:
    void prepare(DetachedProcess *process, const QStringList &environment = {});
    // Fills a fresh folder: two envelopes, one for another passphrase when
    // wrong, a hidden envelope and a plain file that no load may take.
    QString makeBatch(const QString &name, bool wrong);

    QTemporaryDir m_dir;
    QTemporaryDir m_config;
    QString m_passphraseFile;
    QByteArray m_binary = binary(70000, 3);
};

void DecryptCommandTest::initTestCase()
{
    QVERIFY(m_dir.isValid() && m_config.isValid());
    m_passphraseFile = m_dir.filePath("pw.txt");
    QVERIFY(writeFile(m_passphraseFile, kPassphrase + "\nsecond line\n"));
}

void DecryptCommandTest::prepare(DetachedProcess *process, const QStringList &environment)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(name);
    env.insert("XDG_CONFIG_HOME", m_config.path()); // where a settings store would appear
    for (const QString &pair : environment)
        env.insert(pair.section('=', 0, 0), pair.section('=', 1));
    process->setProcessEnvironment(env);
    process->setProgram(QCoreApplication::applicationDirPath() + "/nimbra-crypt");
}

QString DecryptCommandTest::makeBatch(const QString &name, bool wrong)
{
    const QString folder = m_dir.filePath(name);
    writeFile(folder + "/a.txt.nimbra-env", "alpha", kPassphrase);
    writeFile(folder + "/sub/b.bin.nimbra-env", m_binary, kPassphrase);
    writeFile(folder + "/.hidden/c.nimbra-env", "hidden", kPassphrase);
    writeFile(folder + "/plain.txt", "plain");
    if (wrong)
        writeFile(folder + "/wrong.dat.nimbra-env", "not for us", "another passphrase");
    return folder;
}

void DecryptCommandTest::decrypt_data()
{
    QTest::addColumn<QStringList>("options"); // "{pw}" is the passphrase file
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QStringList>("environment");
    QTest::addColumn<bool>("wrong");
    QTest::addColumn<int>("exitCode"); // -2 reads 254
    QTest::addColumn<QStringList>("lines"); // in any order; "{d}" is the folder

    const QString a = "{d}/a.txt.nimbra-env: Finished -> {d}/a.txt", b = "{d}/sub/b.bin.nimbra-env: Finished -> {d}/sub/b.bin";
    const QString wrong = "{d}/wrong.dat.nimbra-env: Error (Passphrase doesn't match Code: 1)";
    QTest::newRow("passphrase file, stale DISPLAY")
        << QStringList{"--passphrase-file", "{pw}"} << QByteArray() << QStringList{"DISPLAY=:99"} << false << 0
        << QStringList{"2 finished, 0 failed, 0 pending, 2 total", a, b};
    QTest::newRow("standard input, one wrong")
        << QStringList{"--threads", "1", "--passphrase-file", "-"} << kPassphrase + "\r\n" << QStringList() << true
        << 254 << QStringList{"2 finished, 1 failed, 0 pending, 3 total", a, b, wrong};
    QTest::newRow("delete encrypted") << QStringList{"--delete-encrypted", "--passphrase-file", "{pw}"} << QByteArray()
                                      << QStringList() << true << 254
                                      << QStringList{"2 finished, 1 failed, 0 pending, 3 total", a, b, wrong};
    QTest::newRow("quiet") << QStringList{"--passphrase-file", "{pw}", "--quiet"} << QByteArray() << QStringList()
                           << true << 254 << QStringList{"2 finished, 1 failed, 0 pending, 3 total", wrong};
    QTest::newRow("German") << QStringList{"--passphrase-file", "{pw}"} << QByteArray()
                            << QStringList{"LC_ALL=de_DE.UTF-8"} << true << 254
                            << QStringList{"2 abgeschlossen, 1 fehlgeschlagen, 0 ausstehend, 3 insgesamt",
                                           "{d}/a.txt.nimbra-env: Abgeschlossen -> {d}/a.txt",
                                           "{d}/sub/b.bin.nimbra-env: Abgeschlossen -> {d}/sub/b.bin",
                                           "{d}/wrong.dat.nimbra-env: Fehler (Die Passphrase ist falsch Code: 1)"};
}

// Byte-exact outputs beside the envelopes, nothing else written, the failed
// envelope kept without an output, and only successful envelopes deleted.
void DecryptCommandTest::decrypt()
{
    QFETCH(QStringList, options);
    QFETCH(QByteArray, input);
    QFETCH(QStringList, environment);
    QFETCH(bool, wrong);
    QFETCH(int, exitCode);
    QFETCH(QStringList, lines);
    const QString folder = makeBatch(QTest::currentDataTag(), wrong);
    DetachedProcess process;
    prepare(&process, environment);
    process.setArguments(QStringList{"--decrypt"} + options.replaceInStrings("{pw}", m_passphraseFile) + QStringList{folder + '/'});
    process.start();
    process.write(input);
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(120000));
    const QString errors = QString::fromUtf8(process.readAllStandardError());
    QCOMPARE(process.exitCode(), exitCode);
    QStringList printed = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    printed.sort();
    lines.replaceInStrings("{d}", folder).sort();
    QCOMPARE(printed, lines);
    QVERIFY2(!errors.contains(QRegularExpression("[\r\x1b]")), qPrintable(errors)); // no progress line

    const bool deleted = options.contains("--delete-encrypted");
    QStringList expected{".hidden/c.nimbra-env", "a.txt", "plain.txt", "sub/b.bin"};
    if (!deleted)
        expected << "a.txt.nimbra-env" << "sub/b.bin.nimbra-env";
    if (wrong)
        expected << "wrong.dat.nimbra-env";
    expected.sort();
    QCOMPARE(filesBelow(folder), expected);
    QCOMPARE(contentOf(folder + "/a.txt"), QByteArray("alpha"));
    QCOMPARE(contentOf(folder + "/sub/b.bin"), m_binary);
    QVERIFY(QDir(m_config.path()).isEmpty()); // the window's settings store stays untouched
}

void DecryptCommandTest::usageErrors_data()
{
    QTest::addColumn<QStringList>("args"); // "{d}" is a folder of envelopes
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QString>("error");
    const QString p = QStringLiteral("nimbra-crypt: ");
    QTest::newRow("no path") << QStringList{"--decrypt", "--quiet"} << QByteArray()
                             << p + "No file or folder to decrypt was given.";
    QTest::newRow("unknown option") << QStringList{"--decrypt", "--fast", "{d}"} << QByteArray()
                                    << p + "Unknown option --fast";
    QTest::newRow("threads 9") << QStringList{"--decrypt", "--threads", "9", "{d}"} << QByteArray()
                               << p + "The option --threads takes a number from 1 to 8, not 9.";
    QTest::newRow("threads x") << QStringList{"--decrypt", "{d}", "--threads", "x"} << QByteArray()
                               << p + "The option --threads takes a number from 1 to 8, not x.";
    QTest::newRow("no value") << QStringList{"--decrypt", "{d}", "--passphrase-file"} << QByteArray()
                              << p + "The option --passphrase-file needs a value.";
    QTest::newRow("no terminal") << QStringList{"--decrypt", "{d}"} << QByteArray()
                                 << p + "No terminal to ask for the passphrase on; give it with --passphrase-file.";
    QTest::newRow("missing passphrase file")
        << QStringList{"--decrypt", "--passphrase-file", "{d}/none", "{d}"} << QByteArray()
        << p + "Could not open file {d}/none, for reading. No such file or directory";
    QTest::newRow("empty passphrase") << QStringList{"--decrypt", "--passphrase-file", "-", "{d}"} << QByteArray("\n")
                                      << p + "The passphrase is empty.";
}

// A one-line error naming what is wrong, exit code -1, nothing written.
void DecryptCommandTest::usageErrors()
{
    QFETCH(QStringList, args);
    QFETCH(QByteArray, input);
    QFETCH(QString, error);
    const QString folder = makeBatch("usage", false);
    const QStringList before = filesBelow(folder);
    DetachedProcess process;
    prepare(&process);
    process.setArguments(args.replaceInStrings("{d}", folder));
    process.start();
    process.write(input);
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(120000));
    QCOMPARE(process.exitCode(), 255);
    QCOMPARE(QString::fromUtf8(process.readAllStandardError()), error.replace("{d}", folder) + '\n');
    QCOMPARE(process.readAllStandardOutput(), QByteArray());
    QCOMPARE(filesBelow(folder), before);
}

// SIGINT while the first of three large files is being written, one thread:
// the batch stops as the Stop button stops it. Whatever output name exists
// holds a whole plaintext, the envelopes are untouched, and the exit code
// says that files are pending.
void DecryptCommandTest::interruptMidBatch()
{
    const QString folder = m_dir.filePath("interrupt");
    QList<QByteArray> plain, sealed;
    for (int i = 0; i < 3; ++i) {
        plain << binary(24 << 20, i);
        QVERIFY(writeFile(folder + QString("/big%1.nimbra-env").arg(i), plain.last(), kPassphrase));
        sealed << contentOf(folder + QString("/big%1.nimbra-env").arg(i));
    }
    DetachedProcess process;
    prepare(&process);
    process.setArguments({"--decrypt", "--threads", "1", "--passphrase-file", m_passphraseFile, folder});
    process.start();
    QVERIFY(process.waitForStarted());
    // The first output (or its temporary name) appears once a file is being
    // written; looked for often, so the signal comes while it is.
    QElapsedTimer clock;
    clock.start();
    while (filesBelow(folder).size() == 3 && !process.waitForFinished(0) && clock.elapsed() < 120000)
        QThread::usleep(200);
    QCOMPARE(::kill(pid_t(process.processId()), SIGINT), 0);
    QVERIFY(process.waitForFinished(120000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 253);
    for (int i = 0; i < 3; ++i) {
        const QString envelope = folder + QString("/big%1.nimbra-env").arg(i);
        QVERIFY(contentOf(envelope) == sealed.at(i));
        const QString output = envelope.chopped(11);
        QVERIFY2(!QFile::exists(output) || contentOf(output) == plain.at(i), qPrintable(output));
    }
    QVERIFY(filesBelow(folder).filter(QRegularExpression("(^|/)\\.")).isEmpty()); // no hidden leftovers
    const QStringList lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    const QString summary = lines.value(lines.size() - 1);
    QVERIFY2(QRegularExpression("^[0-2] finished, 0 failed, [1-3] pending, 3 total$").match(summary).hasMatch(),
             qPrintable(summary));
}

void DecryptCommandTest::helpListsEveryMode()
{
    DetachedProcess process;
    prepare(&process);
    process.setArguments({"--help"});
    process.start();
    QVERIFY(process.waitForFinished(120000));
    QCOMPARE(process.exitCode(), 0);
    const QString help = QString::fromUtf8(process.readAllStandardOutput());
    for (const char *word : {" PATH...", " '*'", " -file-list ", " -test ", " -test-list ", " -v, --version", " --help",
                             " --decrypt ", "--passphrase-file FILE", "--threads N", "--delete-encrypted", "--quiet"})
        QVERIFY2(help.contains(word), word);
}

QTEST_GUILESS_MAIN(DecryptCommandTest)
#include "DecryptCommandTest.moc"
