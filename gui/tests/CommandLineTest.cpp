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
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8()); // the runs inherit it, and the offscreen platform
    const QString d = dir.path();
    QVERIFY(writeFile(d + "/with/a.txt.nimbra-env", "alpha", "pw"));
    QVERIFY(writeFile(d + "/with/notes.txt", "plain"));
    QVERIFY(writeFile(d + "/without/notes.txt", "plain"));
    QVERIFY(writeFile(d + "/deep/er/b.nimbra-env", "beta", "pw"));
    QVERIFY(writeFile(d + "/list-with.txt", (d + "/without/notes.txt\n\n" + d + "/with/a.txt.nimbra-env\n").toUtf8()));
    QVERIFY(writeFile(d + "/list-without.txt", (d + "/without/notes.txt\n").toUtf8()));
}

void CommandLineTest::modes_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode"); // -1 reads 255
    QTest::addColumn<QStringList>("output"); // lines, in any order; a title comes from the twin
    const QStringList version{"Orn Nimbra Crypt 4.1.2.91"};
    const QString title = QStringLiteral("title=Orn Nimbra Crypt");
    const QString a = QStringLiteral("path={with/a.txt.nimbra-env}");

    QTest::newRow("-v") << QStringList{"-v"} << 0 << version;
    QTest::newRow("--version, more") << QStringList{"--version", "x", "y"} << 0 << version;
    QTest::newRow("-test alone") << QStringList{"-test"} << 255 << QStringList();
    QTest::newRow("-test, no envelope") << QStringList{"-test", "{without}"} << 255 << QStringList();
    QTest::newRow("-test, two paths") << QStringList{"-test", "{without}", "{deep}"} << 0 << QStringList();
    QTest::newRow("-test-list hit") << QStringList{"-test-list", "{list-with.txt}"} << 0 << QStringList();
    QTest::newRow("-test-list miss") << QStringList{"-test-list", "{list-without.txt}"} << 255 << QStringList();
    QTest::newRow("-test-list, two") << QStringList{"-test-list", "{list-with.txt}", "x"} << 255 << QStringList();
    QTest::newRow("-file-list alone") << QStringList{"-file-list"} << 255 << QStringList();
    QTest::newRow("-file-list, two") << QStringList{"-file-list", "{list-with.txt}", "x"} << 255 << QStringList();
    QTest::newRow("-file-list unreadable") << QStringList{"-file-list", "{nothing}"} << 255 << QStringList();

    QTest::newRow("no arguments") << QStringList() << 0 << QStringList{title};
    QTest::newRow("one folder: envelopes, title suffix") << QStringList{"{with}"} << 0 << QStringList{title + " - {with}", a};
    QTest::newRow("two paths: no suffix") << QStringList{"{with}", "{deep}"} << 0 << QStringList{title, a, "path={deep/er/b.nimbra-env}"};
    QTest::newRow("* loads every file of the current folder") << QStringList{"*"} << 0 << QStringList{title, a, "path={with/notes.txt}"};
    QTest::newRow("-file-list") << QStringList{"-file-list", "{list-with.txt}"} << 0 << QStringList{title, a};
    QTest::newRow("unknown option is a path") << QStringList{"-V"} << 0 << QStringList{title + " - -V"};
}

void CommandLineTest::modes()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QStringList, output);
    QProcess process;
    process.setWorkingDirectory(dir.path() + QStringLiteral("/with"));
    const bool window = !output.filter(QStringLiteral("title=")).isEmpty();
    process.start(QCoreApplication::applicationDirPath() + (window ? "/nimbra-crypt-report" : "/nimbra-crypt"), expand(args));
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
