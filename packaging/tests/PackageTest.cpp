// The Debian package as a user gets it: built by CPack from this build (once),
// unpacked into a temporary root, its desktop files checked with the
// freedesktop and Debian tools, its program run from there. Nothing is
// installed on the machine: every cache is built inside the temporary root.
#include <QImage>
#include <QMimeDatabase>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

namespace {
const QString kAppId = QStringLiteral("example.nimbra.crypt");
const QString kMimeType = QStringLiteral("application/x-nimbra-envelope");

// Runs program with args in this process's environment changed by NAME=VALUE
// pairs (NAME= removes; a first "-" starts from PATH alone). Returns standard
// output and error, after "exit <code>" when it failed.
QString run(const QString &program, const QStringList &args, QStringList environment = {})
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (environment.value(0) == "-")
        env = QProcessEnvironment(), environment[0] = "PATH=" + qEnvironmentVariable("PATH");
    for (const QString &pair : environment)
        pair.endsWith('=') ? env.remove(pair.chopped(1)) : env.insert(pair.section('=', 0, 0), pair.section('=', 1));
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, args);
    const bool ok = process.waitForFinished(180000) && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    const QString output = QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
    return ok ? output : QStringLiteral("exit %1 (%2)\n").arg(process.exitCode()).arg(process.errorString()) + output;
}
} // namespace

class PackageTest : public QObject
{
    Q_OBJECT
    QTemporaryDir work;
    QString root, deb, share;

private slots:
    void initTestCase()
    {
        QVERIFY(work.isValid());
        const QString built = run(NM_CPACK, {"-G", "DEB", "--config", NM_CPACK_CONFIG, "-B", work.path()});
        deb = work.path() + "/nimbra-crypt_" NM_PACKAGE_VERSION "_" + run("dpkg", {"--print-architecture"}).trimmed() + ".deb";
        QVERIFY2(QFileInfo::exists(deb), qPrintable(built));
        root = work.path() + "/root";
        share = root + "/usr/share/";
        QCOMPARE(run("dpkg-deb", {"-x", deb, root}), QString());
        // The file-type database of the unpacked root alone, as file managers
        // read it once the package's trigger ran. The tool reports what it
        // rejects but exits 0 all the same, so it must say nothing.
        qputenv("XDG_DATA_DIRS", QFile::encodeName(share));
        qputenv("XDG_DATA_HOME", QFile::encodeName(work.path() + "/data-home"));
        QCOMPARE(run("update-mime-database", {share + "mime"}, {"LC_ALL=C.UTF-8"}), QString());
    }

    // Only the program is shipped (no tests, tools or benchmarks), and the
    // command is a link that works wherever the tree is unpacked.
    void programs()
    {
        QStringList executables;
        for (const QString &line : run("dpkg-deb", {"-c", deb}).split('\n')) {
            if (line.startsWith('l') || (line.startsWith('-') && line.left(10).contains('x')))
                executables << line.section(' ', 5, -1, QString::SectionSkipEmpty);
        }
        executables.sort();
        QCOMPARE(executables, QStringList({"./usr/bin/nimbra-crypt -> ../lib/nimbra-crypt/bin/nimbra-crypt",
                                           "./usr/lib/nimbra-crypt/bin/nimbra-crypt"}));
    }

    void validators_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QStringList>("args");
        QTest::newRow("desktop entry") << "desktop-file-validate" << QStringList{share + "applications/" + kAppId + ".desktop"};
        QTest::newRow("AppStream") << "appstreamcli" << QStringList{"validate", "--no-net", share + "metainfo/" + kAppId + ".metainfo.xml"};
        QTest::newRow("file type XML") << "xmllint" << QStringList{"--noout", share + "mime/packages/nimbra-crypt.xml"};
        QTest::newRow("manual page") << "sh" << QStringList{"-c", "man --warnings -E UTF-8 -l -Tutf8 -Z \"$0\" >/dev/null",
                                                           share + "man/man1/nimbra-crypt.1.gz"};
        QTest::newRow("lintian") << "lintian" << QStringList{"--fail-on", "error,warning", deb};
    }

    // Each tool passes the file and says nothing of an error or a warning.
    void validators()
    {
        QFETCH(QString, program);
        QFETCH(QStringList, args);
        const QString report = run(program, args, {"LC_ALL=C.UTF-8", "MANWIDTH=80", "MANROFFSEQ="});
        static const QRegularExpression complaint("^(E|W|exit \\d+): |\\b(error|warning)\\b",
                                                  QRegularExpression::MultilineOption | QRegularExpression::CaseInsensitiveOption);
        QVERIFY2(!report.contains(complaint), qPrintable(report));
    }

    // Files named *.nimbra-env get the envelope type, with its comment and
    // icon; the desktop database names the program for it, as a file manager
    // asks it.
    void envelopeType()
    {
        const QMimeType type = QMimeDatabase().mimeTypeForFile("letter.pdf.nimbra-env", QMimeDatabase::MatchExtension);
        QCOMPARE(type.name(), kMimeType);
        QCOMPARE(type.comment(), QStringLiteral("Nimbra encrypted envelope"));
        QCOMPARE(type.iconName(), QStringLiteral("application-x-nimbra-envelope"));
        QCOMPARE(run("update-desktop-database", {share + "applications"}), QString());
        const QString none = work.path() + "/none";
        QCOMPARE(run("xdg-mime", {"query", "default", kMimeType}, {"-", "HOME=" + work.path(), "XDG_DATA_DIRS=" + share,
                                  "XDG_DATA_HOME=" + none, "XDG_CONFIG_HOME=" + none, "XDG_CONFIG_DIRS=" + none}).trimmed(),
                 kAppId + ".desktop");
    }

    // The icon names that the desktop entry and the file type give have a
    // picture of the right size in every size of the theme.
    void icons()
    {
        QFile desktop(share + "applications/" + kAppId + ".desktop");
        QVERIFY(desktop.open(QIODevice::ReadOnly));
        const QString appIcon = QString::fromUtf8(desktop.readAll()).section("\nIcon=", 1).section('\n', 0, 0);
        const QString typeIcon = QMimeDatabase().mimeTypeForName(kMimeType).iconName();
        for (int size : {16, 22, 24, 32, 48, 64, 128, 256}) {
            const QString folder = QStringLiteral("%1icons/hicolor/%2x%2/").arg(share).arg(size);
            for (const QString &path : {folder + "apps/" + appIcon + ".png", folder + "mimetypes/" + typeIcon + ".png"})
                QVERIFY2(QImage(path).size() == QSize(size, size), qPrintable(path));
        }
    }

    void installedProgram_data()
    {
        QTest::addColumn<QStringList>("args");
        QTest::addColumn<QString>("locale");
        QTest::addColumn<QString>("output");
        QTest::newRow("version") << QStringList{"-v"} << "C.UTF-8" << "Orn Nimbra Crypt " NM_PACKAGE_VERSION "\n";
        QTest::newRow("German help") << QStringList{"--help"} << "de_DE.UTF-8" << "Aufruf:\n";
    }

    // Started through the command's link, without any display, the program
    // runs and finds its strings files beside its own folder.
    void installedProgram()
    {
        QFETCH(QStringList, args);
        QFETCH(QString, locale);
        QFETCH(QString, output);
        const QString printed = run(root + "/usr/bin/nimbra-crypt", args, {"LC_ALL=" + locale, "DISPLAY=", "WAYLAND_DISPLAY=",
                                    "QT_QPA_PLATFORM=", "XDG_CONFIG_HOME=" + work.path() + "/config"});
        QVERIFY2(printed.startsWith(output), qPrintable(printed));
    }
};

QTEST_GUILESS_MAIN(PackageTest)
#include "PackageTest.moc"
