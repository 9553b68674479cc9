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

struct Run {
    int code = -1;
    QString out;
    QString err;
};

Run run(const QString &program, const QStringList &args,
        const QProcessEnvironment &env = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(program, args);
    Run result;
    if (!process.waitForFinished(180000) || process.exitStatus() != QProcess::NormalExit) {
        result.err = program + QStringLiteral(" did not finish: ") + process.errorString();
        return result;
    }
    result.code = process.exitCode();
    result.out = QString::fromUtf8(process.readAllStandardOutput());
    result.err = QString::fromUtf8(process.readAllStandardError());
    return result;
}

QString describe(const Run &r) { return QStringLiteral("exit %1\n%2%3").arg(r.code).arg(r.out, r.err); }
} // namespace

class PackageTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void programs();
    void validators_data();
    void validators();
    void envelopeType();
    void icons_data();
    void icons();
    void defaultApplication();
    void installedProgram_data();
    void installedProgram();
    void germanTexts_data();
    void germanTexts();

private:
    QProcessEnvironment localeEnv(const QString &locale) const;

    QTemporaryDir work;
    QString root;
    QString deb;
};

void PackageTest::initTestCase()
{
    QVERIFY(work.isValid());
    const Run built = run(QStringLiteral(NM_CPACK), {"-G", "DEB", "--config", NM_CPACK_CONFIG, "-B", work.path()});
    QVERIFY2(built.code == 0, qPrintable(describe(built)));
    const QString arch = run(QStringLiteral("dpkg"), {"--print-architecture"}).out.trimmed();
    deb = work.path() + QStringLiteral("/nimbra-crypt_" NM_PACKAGE_VERSION "_") + arch + QStringLiteral(".deb");
    QVERIFY2(QFileInfo::exists(deb), qPrintable(deb));
    root = work.path() + QStringLiteral("/root");
    const Run unpacked = run(QStringLiteral("dpkg-deb"), {"-x", deb, root});
    QVERIFY2(unpacked.code == 0, qPrintable(describe(unpacked)));

    // The file-type database of the unpacked root alone, as file managers
    // read it once the package's trigger ran. The tool reports what it
    // rejects but exits 0 all the same.
    qputenv("XDG_DATA_DIRS", QFile::encodeName(root + "/usr/share"));
    qputenv("XDG_DATA_HOME", QFile::encodeName(work.path() + "/data-home"));
    const Run mime = run(QStringLiteral("update-mime-database"), {root + "/usr/share/mime"});
    QVERIFY2(mime.code == 0 && (mime.out + mime.err).isEmpty(), qPrintable(describe(mime)));
}

// Only the program is shipped, and the command is a link that works wherever
// the tree is unpacked.
void PackageTest::programs()
{
    const Run listing = run(QStringLiteral("dpkg-deb"), {"-c", deb});
    QCOMPARE(listing.code, 0);
    QStringList executables;
    for (const QString &line : listing.out.split('\n')) {
        if (line.startsWith('l') || (line.startsWith('-') && line.left(10).contains('x')))
            executables << line.section(' ', 5, -1, QString::SectionSkipEmpty);
    }
    executables.sort();
    QCOMPARE(executables, QStringList({"./usr/bin/nimbra-crypt -> ../lib/nimbra-crypt/bin/nimbra-crypt",
                                       "./usr/lib/nimbra-crypt/bin/nimbra-crypt"}));
}

void PackageTest::validators_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("reportsOnStdout"); // else stdout is the checked file typeset

    const QString share = root + "/usr/share/";
    QTest::newRow("desktop entry") << "desktop-file-validate"
        << QStringList{share + "applications/" + kAppId + ".desktop"} << true;
    QTest::newRow("AppStream") << "appstreamcli"
        << QStringList{"validate", "--no-net", share + "metainfo/" + kAppId + ".metainfo.xml"} << true;
    QTest::newRow("file type XML") << "xmllint" << QStringList{"--noout", share + "mime/packages/nimbra-crypt.xml"} << true;
    QTest::newRow("manual page") << "man"
        << QStringList{"--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", share + "man/man1/nimbra-crypt.1.gz"} << false;
    QTest::newRow("lintian") << "lintian" << QStringList{"--fail-on", "error,warning", deb} << true;
}

void PackageTest::validators()
{
    QFETCH(QString, program);
    QFETCH(QStringList, args);
    QFETCH(bool, reportsOnStdout);
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("LC_ALL"), QStringLiteral("C.UTF-8"));
    env.insert(QStringLiteral("MANWIDTH"), QStringLiteral("80"));
    env.insert(QStringLiteral("MANROFFSEQ"), QString());
    const Run checked = run(program, args, env);
    const QString report = checked.err + (reportsOnStdout ? checked.out : QString());
    static const QRegularExpression complaint(QStringLiteral("^(E|W): |\\b(error|warning)\\b"),
                                              QRegularExpression::MultilineOption | QRegularExpression::CaseInsensitiveOption);
    QVERIFY2(checked.code == 0 && !report.contains(complaint), qPrintable(describe(checked)));
}

// Files named *.nimbra-env get the envelope type, with its comment and icon.
void PackageTest::envelopeType()
{
    const QMimeType type = QMimeDatabase().mimeTypeForFile(QStringLiteral("letter.pdf.nimbra-env"), QMimeDatabase::MatchExtension);
    QCOMPARE(type.name(), kMimeType);
    QCOMPARE(type.comment(), QStringLiteral("Nimbra encrypted envelope"));
    QCOMPARE(type.iconName(), QStringLiteral("application-x-nimbra-envelope"));
}

// The icon names that the desktop entry and the file type give have a
// picture of the right size in every size of the theme.
void PackageTest::icons_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("size");
    QFile desktop(root + "/usr/share/applications/" + kAppId + ".desktop");
    QVERIFY(desktop.open(QIODevice::ReadOnly | QIODevice::Text));
    const QString appIcon = QString::fromUtf8(desktop.readAll()).section(QLatin1String("\nIcon="), 1).section('\n', 0, 0);
    const QString typeIcon = QMimeDatabase().mimeTypeForName(kMimeType).iconName();
    for (int size : {16, 22, 24, 32, 48, 64, 128, 256}) {
        const QString folder = QStringLiteral("%1/usr/share/icons/hicolor/%2x%2/").arg(root).arg(size);
        QTest::addRow("application %d", size) << folder + "apps/" + appIcon + ".png" << size;
        QTest::addRow("envelope %d", size) << folder + "mimetypes/" + typeIcon + ".png" << size;
    }
}

void PackageTest::icons()
{
    QFETCH(QString, path);
    QFETCH(int, size);
    const QImage image(path);
    QVERIFY2(!image.isNull(), qPrintable(path));
    QCOMPARE(image.size(), QSize(size, size));
}

// A file manager asks the desktop database which program opens the type.
void PackageTest::defaultApplication()
{
    const QString applications = root + "/usr/share/applications";
    const Run database = run(QStringLiteral("update-desktop-database"), {applications});
    QVERIFY2(database.code == 0, qPrintable(describe(database)));
    QProcessEnvironment env;
    env.insert(QStringLiteral("PATH"), qEnvironmentVariable("PATH"));
    env.insert(QStringLiteral("HOME"), work.path());
    env.insert(QStringLiteral("XDG_DATA_DIRS"), root + "/usr/share");
    for (const char *name : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CONFIG_DIRS"})
        env.insert(QString::fromLatin1(name), work.path() + "/none");
    const Run query = run(QStringLiteral("xdg-mime"), {"query", "default", kMimeType}, env);
    QCOMPARE(query.out.trimmed(), kAppId + ".desktop");
}

QProcessEnvironment PackageTest::localeEnv(const QString &locale) const
{
    // No display at all: a mode that wrongly opened the window fails at once.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"})
        env.remove(QString::fromLatin1(name));
    env.insert(QStringLiteral("LC_ALL"), locale);
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), work.path() + "/config");
    env.insert(QStringLiteral("XDG_RUNTIME_DIR"), work.path()); // private, as the toolkit wants it
    return env;
}

// Started through the command's link, the program finds its strings files
// beside its own folder. The probe looks a text up exactly as the program
// does; it sits beside the unpacked program, reached through a link of its own.
void PackageTest::installedProgram_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("output");
    QTest::newRow("version") << "nimbra-crypt" << QStringList{"-v"} << "C.UTF-8" << "Orn Nimbra Crypt " NM_PACKAGE_VERSION;
    QTest::newRow("German text") << "nm-locale-probe" << QStringList() << "de_DE.UTF-8" << "Entschlüsseln";
}

void PackageTest::installedProgram()
{
    QFETCH(QString, command);
    QFETCH(QStringList, args);
    QFETCH(QString, locale);
    QFETCH(QString, output);
    const QString probe = root + "/usr/lib/nimbra-crypt/bin/nm-locale-probe";
    if (!QFileInfo::exists(probe)) {
        QVERIFY(QFile::copy(QStringLiteral(NM_LOCALE_PROBE), probe));
        QVERIFY(QFile::link(QStringLiteral("../lib/nimbra-crypt/bin/nm-locale-probe"), root + "/usr/bin/nm-locale-probe"));
    }
    const Run program = run(root + "/usr/bin/" + command, args, localeEnv(locale));
    QCOMPARE(program.code, 0);
    QCOMPARE(program.out, output + '\n');
}

// The program's own texts in German: its help, and the reason a list file
// cannot be read. A program version that prints no text there skips.
void PackageTest::germanTexts_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("help") << QStringList{"--help"} << 0;
    QTest::newRow("unreadable list") << QStringList{"-test-list", work.path() + "/no-such-list"} << 255;
}

void PackageTest::germanTexts()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    const QString program = root + "/usr/bin/nimbra-crypt";
    const Run english = run(program, args, localeEnv(QStringLiteral("C.UTF-8")));
    if (english.code != exitCode || (english.out + english.err).isEmpty())
        QSKIP("this version of the program prints no text here");
    const Run german = run(program, args, localeEnv(QStringLiteral("de_DE.UTF-8")));
    QCOMPARE(german.code, exitCode);
    QVERIFY2(german.out + german.err != english.out + english.err, qPrintable(german.out + german.err));
}

QTEST_GUILESS_MAIN(PackageTest)
#include "PackageTest.moc"
