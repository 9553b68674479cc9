// The program's command line, run as a real process on real files: the
// windowless modes of nimbra-crypt with their exit codes and output, and what
// the window-starting forms and the operating system's request to open a file
// load and how they title the window (its twin nimbra-crypt-report prints
// that once the loading has ended, then quits), or how the window fails
// without a display.
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
    void testNameNotUtf8();

private:
    // "{x}" stands for <temporary folder>/x.
    QStringList expand(QStringList texts) const { return texts.replaceInStrings("{", dir.path() + '/').replaceInStrings("}", ""); }

    QTemporaryDir dir;
    QTemporaryDir config;
};

void CommandLineTest::initTestCase()
{
    QVERIFY(dir.isValid() && config.isValid());
    // The runs inherit them: a private settings store and runtime folder.
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    qputenv("XDG_RUNTIME_DIR", config.path().toUtf8());
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
    QTest::addColumn<QString>("input"); // standard input
    QTest::addColumn<QString>("display"); // "" the offscreen platform, "none", a DISPLAY, or a path to open
    QTest::addColumn<int>("exitCode"); // -1 reads 255
    QTest::addColumn<QStringList>("output"); // lines, in any order; a title comes from the twin
    QTest::addColumn<QString>("error"); // a part of standard error; none at all for a windowless mode
    const QStringList version{"Orn Nimbra Crypt 4.1.2.91"};
    const QString title = QStringLiteral("title=Orn Nimbra Crypt");
    const QString a = QStringLiteral("path={with/a.txt.nimbra-env}");
    const QString noDisplay = QStringLiteral("nimbra-crypt: no display to open the window on (");

    QTest::newRow("-v") << QStringList{"-v"} << "" << "none" << 0 << version << "";
    QTest::newRow("-v, stale DISPLAY") << QStringList{"-v"} << "" << ":99" << 0 << version << "";
    QTest::newRow("--version, more") << QStringList{"--version", "x", "y"} << "" << "none" << 0 << version << "";
    QTest::newRow("-test alone") << QStringList{"-test"} << "" << "none" << 255 << QStringList() << "";
    QTest::newRow("-test, no envelope") << QStringList{"-test", "{without}"} << "" << "none" << 255 << QStringList() << "";
    QTest::newRow("-test, two paths, stale DISPLAY") << QStringList{"-test", "{without}", "{deep}"} << "" << ":99" << 0 << QStringList() << "";
    QTest::newRow("-test-list hit") << QStringList{"-test-list", "{list-with.txt}"} << "" << "none" << 0 << QStringList() << "";
    QTest::newRow("-test-list miss") << QStringList{"-test-list", "{list-without.txt}"} << "" << "none" << 255 << QStringList() << "";
    QTest::newRow("-test-list, two") << QStringList{"-test-list", "{list-with.txt}", "x"} << "" << "none" << 255 << QStringList() << "";
    QTest::newRow("-test-list from a pipe") << QStringList{"-test-list", "/dev/stdin"}
                                            << "{without/notes.txt}\n{deep}\n" << "none" << 0 << QStringList() << "";
    QTest::newRow("-test-list from a device") << QStringList{"-test-list", "/dev/null"} << "" << "none" << 255 << QStringList()
                                              << "Could not open file /dev/null, for reading. Not a regular file or a pipe.";
    QTest::newRow("-file-list alone") << QStringList{"-file-list"} << "" << "" << 255 << QStringList() << "";
    QTest::newRow("-file-list, two") << QStringList{"-file-list", "{list-with.txt}", "x"} << "" << "" << 255 << QStringList() << "";
    QTest::newRow("-file-list unreadable") << QStringList{"-file-list", "{nothing}"} << "" << "" << 255 << QStringList()
                                           << "Could not open file {nothing}, for reading.";

    QTest::newRow("no arguments") << QStringList() << "" << "" << 0 << QStringList{title} << "";
    QTest::newRow("one folder: envelopes, title suffix") << QStringList{"{with}"} << "" << "" << 0 << QStringList{title + " - {with}", a} << "";
    QTest::newRow("two paths: no suffix") << QStringList{"{with}", "{deep}"} << "" << "" << 0 << QStringList{title, a, "path={deep/er/b.nimbra-env}"} << "";
    QTest::newRow("* loads every file of the current folder") << QStringList{"*"} << "" << "" << 0 << QStringList{title, a, "path={with/notes.txt}"} << "";
    QTest::newRow("-file-list") << QStringList{"-file-list", "{list-with.txt}"} << "" << "" << 0 << QStringList{title, a} << "";
    QTest::newRow("-file-list from a pipe") << QStringList{"-file-list", "/dev/stdin"} << "{deep}\n" << "" << 0
                                            << QStringList{title, "path={deep/er/b.nimbra-env}"} << "";
    QTest::newRow("open request: envelopes") << QStringList() << "" << "{with}" << 0 << QStringList{title, a} << "File Open Event";
    QTest::newRow("unknown option is a path") << QStringList{"-V"} << "" << "" << 0 << QStringList{title + " - -V"} << "";
    QTest::newRow("window, stale DISPLAY") << QStringList() << "" << ":99" << 255 << QStringList()
                                           << noDisplay + "the display :99 cannot be opened).";
    QTest::newRow("window, no DISPLAY") << QStringList{"{with}"} << "" << "none" << 255 << QStringList()
                                        << noDisplay + "DISPLAY is not set).";
}

// Without a display, the windowless modes answer and the window explains.
void CommandLineTest::modes()
{
    QFETCH(QStringList, args);
    QFETCH(QString, input);
    QFETCH(QString, display);
    QFETCH(int, exitCode);
    QFETCH(QStringList, output);
    QFETCH(QString, error);
    QProcess process;
    process.setWorkingDirectory(dir.path() + QStringLiteral("/with"));
    const bool window = !output.filter(QStringLiteral("title=")).isEmpty();
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("DISPLAY"));
    environment.remove(QStringLiteral("WAYLAND_DISPLAY"));
    if (display.startsWith(':') || display == "none")
        environment.remove(QStringLiteral("QT_QPA_PLATFORM"));
    if (display.startsWith(':'))
        environment.insert(QStringLiteral("DISPLAY"), display);
    if (display.startsWith('{'))
        environment.insert(QStringLiteral("NM_FILE_OPEN"), expand({display}).first());
    process.setProcessEnvironment(environment);
    process.start(QCoreApplication::applicationDirPath() + (window ? "/nimbra-crypt-report" : "/nimbra-crypt"), expand(args));
    process.write(expand({input}).first().toUtf8());
    process.closeWriteChannel();
    QVERIFY(process.waitForFinished(120000));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), exitCode);
    QStringList lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    lines.sort();
    output = expand(output);
    output.sort();
    QCOMPARE(lines, output);
    const QString errors = QString::fromUtf8(process.readAllStandardError());
    // A window run keys its settings store by the program's identity.
    QVERIFY(!window || exitCode != 0 || QFile::exists(config.path() + "/Nimbra/Orn Nimbra Crypt.conf"));
    QVERIFY2(error.isEmpty() && !window ? errors.isEmpty() : errors.contains(expand({error}).first()), qPrintable(errors));
}

// "-test" answers for the bytes it was given: a folder whose name is not
// UTF-8 is looked into, not lost on the way to text.
void CommandLineTest::testNameNotUtf8()
{
    QVERIFY(writeFile(dir.path() + "/odd/b.nimbra-env", "beta", "pw"));
    const QString script = "cd \"$1\" && o=$(printf 'x\\377') && mkdir $o && mv odd/b.nimbra-env $o/"
                           " && \"$0\" -test \"$1/$o\"; r=$?; rm -rf $o; exit $r";
    QProcess process;
    process.start("sh", {"-c", script, QCoreApplication::applicationDirPath() + "/nimbra-crypt", dir.path()});
    QVERIFY(process.waitForFinished(120000));
    QCOMPARE(process.exitCode(), 0);
}

QTEST_MAIN(CommandLineTest)
#include "CommandLineTest.moc"
