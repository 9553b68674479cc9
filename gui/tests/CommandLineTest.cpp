// The program's command line, run as a real process on real files: the
// windowless modes of nimbra-crypt with their exit codes and output, and what
// the window-starting forms load and how they title the window (its twin
// nimbra-crypt-report prints that once the loading has ended, then quits).
#include "GuiTestSupport.h"

#include <QProcess>
#include <QTemporaryDir>

class CommandLineTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void modes_data();
    void modes();

private:
    // "{x}" stands for <temporary folder>/x.
    QStringList expand(QStringList texts) const { return texts.replaceInStrings("{", dir.path() + '/').replaceInStrings("}", ""); }

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

void CommandLineTest::modes_data()
{
    QTest::addColumn<bool>("window");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode"); // -1 reads 255
    QTest::addColumn<QStringList>("output"); // lines, in any order
    const QStringList version{"Orn Nimbra Crypt 4.1.2.91"};
    const QString title = QStringLiteral("title=Orn Nimbra Crypt");
    const QString a = QStringLiteral("path={with/a.txt.nimbra-env}");

    QTest::newRow("-v") << false << QStringList{"-v"} << 0 << version;
    QTest::newRow("--version, more") << false << QStringList{"--version", "x", "y"} << 0 << version;
    QTest::newRow("-test alone") << false << QStringList{"-test"} << 255 << QStringList();
    QTest::newRow("-test, no envelope") << false << QStringList{"-test", "{without}"} << 255 << QStringList();
    QTest::newRow("-test, two paths") << false << QStringList{"-test", "{without}", "{deep}"} << 0 << QStringList();
    QTest::newRow("-test-list hit") << false << QStringList{"-test-list", "{list-with.txt}"} << 0 << QStringList();
    QTest::newRow("-test-list miss") << false << QStringList{"-test-list", "{list-without.txt}"} << 255 << QStringList();
    QTest::newRow("-test-list, two") << false << QStringList{"-test-list", "{list-with.txt}", "x"} << 255 << QStringList();
    QTest::newRow("-file-list alone") << false << QStringList{"-file-list"} << 255 << QStringList();
    QTest::newRow("-file-list, two") << false << QStringList{"-file-list", "{list-with.txt}", "x"} << 255 << QStringList();
    QTest::newRow("-file-list unreadable") << false << QStringList{"-file-list", "{nothing}"} << 255 << QStringList();

    QTest::newRow("no arguments") << true << QStringList() << 0 << QStringList{title};
    QTest::newRow("one folder: envelopes, title suffix")
        << true << QStringList{"{with}"} << 0 << QStringList{title + " - {with}", a};
    QTest::newRow("two paths: no suffix")
        << true << QStringList{"{with}", "{deep}"} << 0 << QStringList{title, a, "path={deep/er/b.nimbra-env}"};
    QTest::newRow("* loads every file of the current folder")
        << true << QStringList{"*"} << 0 << QStringList{title, a, "path={with/notes.txt}"};
    QTest::newRow("-file-list") << true << QStringList{"-file-list", "{list-with.txt}"} << 0 << QStringList{title, a};
    QTest::newRow("unknown option is a path") << true << QStringList{"-V"} << 0 << QStringList{title + " - -V"};
}

void CommandLineTest::modes()
{
    QFETCH(bool, window);
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QStringList, output);
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), config.path());
    process.setProcessEnvironment(env);
    process.setWorkingDirectory(dir.path() + QStringLiteral("/with"));
    const QString program = window ? QStringLiteral("/nimbra-crypt-report") : QStringLiteral("/nimbra-crypt");
    process.start(QCoreApplication::applicationDirPath() + program, expand(args));
    QVERIFY(process.waitForFinished(120000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), exitCode);
    QStringList lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    lines.sort();
    output = expand(output);
    output.sort();
    QCOMPARE(lines, output);
}

QTEST_MAIN(CommandLineTest)
#include "CommandLineTest.moc"
