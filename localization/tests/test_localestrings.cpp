// The process-wide table: formatting with positional arguments, installing
// parsers, and finding the system locale's strings file beside the program.
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <localization/KVParser.h>
#include <localization/LocaleLoader.h>
#include <localization/LocaleStrings.h>

#include <cstdlib>
#include <stdexcept>

class TestLocaleStrings : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void format_data();
    void format();
    void nullParserKeepsTable();
    void missingFileLeavesEnglish();
    void localeDirectory_data();
    void localeDirectory();
    void loadsLanguageOfSystemLocale();

private:
    void install(const char *localeName, const QString &directory);
    QTemporaryDir dir;
};

void TestLocaleStrings::initTestCase()
{
    QFile out(dir.filePath(QStringLiteral("Localizable.strings")));
    QVERIFY(out.open(QIODevice::WriteOnly));
    out.write("\"Exit\" = \"Beenden\";\n"
              "\"%1$s of %2$s\" = \"%2$s: %1$s\";\n"
              "\"%s files loaded.\" = \"%s Dateien geladen.\";\n");
}

void TestLocaleStrings::install(const char *localeName, const QString &directory)
{
    LocaleStrings::instance().setParser(new NMLOCAL::KVParser("Localizable.strings"), localeName,
                                        directory.toStdString(), "Localizable.strings");
}

void TestLocaleStrings::format_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("untranslated positional") << QByteArray("%1$s finished, %2$s failed, %3$s pending, %4$s total")
                                             << QByteArray("3 finished, 1 failed, 0 pending, 4 total");
    QTest::newRow("translation reorders") << QByteArray("%1$s of %2$s") << QByteArray("1: 3");
    QTest::newRow("plain conversion") << QByteArray("%s files loaded.") << QByteArray("3 Dateien geladen.");
    QTest::newRow("literal percent") << QByteArray("100%% done") << QByteArray("100% done");
    QTest::newRow("cut to 998 characters") << QByteArray(1500, 'x') << QByteArray(998, 'x');
}

void TestLocaleStrings::format()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, expected);
    install("de_DE", dir.path());
    const std::string text = LocaleStrings::instance().format(key.constData(), "3", "1", "0", "4");
    QCOMPARE(QByteArray::fromStdString(text), expected);
}

void TestLocaleStrings::nullParserKeepsTable()
{
    install("de_DE", dir.path());
    try {
        LocaleStrings::instance().setParser(nullptr, "de_DE", dir.path().toStdString(), "Localizable.strings");
        QFAIL("a null parser was accepted");
    } catch (const char *message) {
        QCOMPARE(QByteArray(message), QByteArray("Parser is nil\n"));
    }
    QCOMPARE(LocaleStrings::instance().format("Exit"), std::string("Beenden"));
}

void TestLocaleStrings::missingFileLeavesEnglish()
{
    install("de_DE", dir.path());
    QVERIFY_EXCEPTION_THROWN(install("fr_FR", dir.filePath(QStringLiteral("fr.lproj"))),
                             std::runtime_error);
    QCOMPARE(LocaleStrings::instance().format("Exit"), std::string("Exit"));
}

void TestLocaleStrings::localeDirectory_data()
{
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("folder");
    QTest::addColumn<bool>("exists");

    QTest::newRow("region falls back to language") << "de_AT" << "de.lproj" << true;
    QTest::newRow("language only") << "de" << "de.lproj" << true;
    QTest::newRow("unknown language") << "fr_FR" << "fr.lproj" << false;
}

void TestLocaleStrings::localeDirectory()
{
    QFETCH(QString, locale);
    QFETCH(QString, folder);
    QFETCH(bool, exists);
    const QString expected = QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../locales/" + folder);
    QCOMPARE(::localeDirectory(locale), expected);
    QCOMPARE(QFileInfo(expected + "/Localizable.strings").isFile(), exists);
}

void TestLocaleStrings::loadsLanguageOfSystemLocale()
{
    QCOMPARE(QLocale::system().name(), QStringLiteral("de_AT"));
    loadLocaleStrings();
    QCOMPARE(LocaleStrings::instance().format("Exit"), std::string("Beenden"));
}

int main(int argc, char **argv)
{
    // The system locale is fixed when Qt first asks for it.
    setenv("LC_ALL", "de_AT.UTF-8", 1);
    setenv("LANG", "de_AT.UTF-8", 1);
    QCoreApplication app(argc, argv);
    TestLocaleStrings test;
    return QTest::qExec(&test, argc, argv);
}

#include "test_localestrings.moc"
