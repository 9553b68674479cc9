// The program's command line, run as a real process on real files: the
// windowless modes with their exit codes, and what the window-starting forms
// load and how they title the window (NM_REPORT_AND_QUIT makes the program
// print that once its loading has ended, then quit).
#include "GuiTestSupport.h"

#include <QProcess>
#include <QTemporaryDir>

class CommandLineTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void windowlessModes_data();
    void windowlessModes();
    void windowModes_data();
    void windowModes();

private:
    QStringList expand(const QStringList &args) const;
    QProcess *run(const QStringList &args, bool report);

    QTemporaryDir dir;
    QTemporaryDir config;
};

void CommandLineTest::initTestCase()
{
    QVERIFY(dir.isValid() && config.isValid());
    const QString d = dir.path();
    QVERIFY(writeEnvelope(d + "/with/a.txt.nimbra-env", "alpha", "pw"));
    QVERIFY(writePlainFile(d + "/with/notes.txt", "plain"));
    QVERIFY(writePlainFile(d + "/without/notes.txt", "plain"));
    QVERIFY(writeEnvelope(d + "/deep/er/b.nimbra-env", "beta", "pw"));
    QVERIFY(writePlainFile(d + "/list-with.txt", (d + "/without/notes.txt\n\n" + d + "/with/a.txt.nimbra-env\n").toUtf8()));
    QVERIFY(writePlainFile(d + "/list-without.txt", (d + "/without/notes.txt\n").toUtf8()));
}

// "{x}" stands for <temporary folder>/x.
QStringList CommandLineTest::expand(const QStringList &args) const
{
    QStringList out;
    for (QString arg : args)
        out << arg.replace(QLatin1Char('{'), dir.path() + QLatin1Char('/')).remove(QLatin1Char('}'));
    return out;
}

QProcess *CommandLineTest::run(const QStringList &args, bool report)
{
    auto *process = new QProcess(this);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    if (report)
        env.insert(QStringLiteral("NM_REPORT_AND_QUIT"), QStringLiteral("1"));
    process->setProcessEnvironment(env);
    process->setWorkingDirectory(dir.path() + QStringLiteral("/with"));
    process->start(QCoreApplication::applicationDirPath() + QStringLiteral("/nimbra-crypt"), args);
    process->waitForFinished(120000);
    return process;
}

void CommandLineTest::windowlessModes_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode"); // -1 reads 255
    QTest::addColumn<QByteArray>("output");
    const QByteArray version = "Orn Nimbra Crypt 4.1.2.91\n";

    QTest::newRow("-v") << QStringList{"-v"} << 0 << version;
    QTest::newRow("--version with more") << QStringList{"--version", "x", "y"} << 0 << version;
    QTest::newRow("-test alone") << QStringList{"-test"} << 255 << QByteArray();
    QTest::newRow("-test no envelope") << QStringList{"-test", "{without}"} << 255 << QByteArray();
    QTest::newRow("-test second path") << QStringList{"-test", "{without}", "{deep}"} << 0 << QByteArray();
    QTest::newRow("-test file") << QStringList{"-test", "{with/a.txt.nimbra-env}"} << 0 << QByteArray();
    QTest::newRow("-test missing") << QStringList{"-test", "{nothing}"} << 255 << QByteArray();
    QTest::newRow("-test-list hit") << QStringList{"-test-list", "{list-with.txt}"} << 0 << QByteArray();
    QTest::newRow("-test-list miss") << QStringList{"-test-list", "{list-without.txt}"} << 255 << QByteArray();
    QTest::newRow("-test-list alone") << QStringList{"-test-list"} << 255 << QByteArray();
    QTest::newRow("-test-list two") << QStringList{"-test-list", "{list-with.txt}", "x"} << 255 << QByteArray();
    QTest::newRow("-test-list unreadable") << QStringList{"-test-list", "{nothing}"} << 255 << QByteArray();
    QTest::newRow("-file-list alone") << QStringList{"-file-list"} << 255 << QByteArray();
    QTest::newRow("-file-list two") << QStringList{"-file-list", "{list-with.txt}", "x"} << 255 << QByteArray();
    QTest::newRow("-file-list unreadable") << QStringList{"-file-list", "{nothing}"} << 255 << QByteArray();
}

void CommandLineTest::windowlessModes()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QByteArray, output);
    QProcess *process = run(expand(args), false);
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), exitCode);
    QCOMPARE(process->readAllStandardOutput(), output);
}

void CommandLineTest::windowModes_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QStringList>("pending");
    const QString plain = QStringLiteral("Orn Nimbra Crypt");

    QTest::newRow("no arguments") << QStringList() << plain << QStringList();
    QTest::newRow("one folder: envelopes only, title suffix")
        << QStringList{"{with}"} << plain + " - {with}" << QStringList{"{with/a.txt.nimbra-env}"};
    QTest::newRow("several paths: no suffix")
        << QStringList{"{with}", "{deep}"} << plain
        << QStringList{"{with/a.txt.nimbra-env}", "{deep/er/b.nimbra-env}"};
    QTest::newRow("* loads every file of the current folder")
        << QStringList{"*"} << plain << QStringList{"{with/a.txt.nimbra-env}", "{with/notes.txt}"};
    QTest::newRow("-file-list") << QStringList{"-file-list", "{list-with.txt}"} << plain
                                << QStringList{"{with/a.txt.nimbra-env}"};
    QTest::newRow("unknown option is a path") << QStringList{"-V"} << plain + " - -V" << QStringList();
}

void CommandLineTest::windowModes()
{
    QFETCH(QStringList, args);
    QFETCH(QString, title);
    QFETCH(QStringList, pending);
    QProcess *process = run(expand(args), true);
    QCOMPARE(process->exitCode(), 0);

    const QStringList lines = QString::fromUtf8(process->readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    QStringList paths;
    for (const QString &line : lines) {
        if (line.startsWith(QLatin1String("path=")))
            paths << line.mid(5);
    }
    paths.sort();
    QStringList expected = expand(pending);
    expected.sort();
    QVERIFY2(lines.contains("title=" + expand({title}).first()), qPrintable(lines.join(" | ")));
    QCOMPARE(paths, expected);
}

QTEST_MAIN(CommandLineTest)
#include "CommandLineTest.moc"
