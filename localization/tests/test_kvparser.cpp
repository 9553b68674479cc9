// Strings-file parsing and the escape rules of lookups, on real files.
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <localization/KVParser.h>

#include <stdexcept>

namespace {

std::string bytes(const QByteArray &data)
{
    return std::string(data.constData(), size_t(data.size()));
}

} // namespace

class TestKVParser : public QObject
{
    Q_OBJECT

private slots:
    void lookup_data();
    void lookup();
    void missingFile();
    void directoryInsteadOfFile();

private:
    QTemporaryDir dir;
};

void TestKVParser::lookup_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("entry") << QByteArray("\"Exit\" = \"Beenden\";\n") << QByteArray("Exit") << QByteArray("Beenden");
    QTest::newRow("absent key") << QByteArray("\"Exit\" = \"Beenden\";\n") << QByteArray("Clear All") << QByteArray("Clear All");
    QTest::newRow("empty file") << QByteArray() << QByteArray("Exit") << QByteArray("Exit");
    QTest::newRow("three pieces") << QByteArray("\"a\" = \"b\" = \"c\";\n") << QByteArray("a") << QByteArray("a");
    QTest::newRow("empty value") << QByteArray("\"Exit\" = \"\";\n") << QByteArray("Exit") << QByteArray("Exit");
    QTest::newRow("comment and blank lines") << QByteArray("// c\n\n\"k\" = \"v\";\n") << QByteArray("k") << QByteArray("v");
    QTest::newRow("later entry wins") << QByteArray("\"k\" = \"1\";\n\"k\" = \"2\";\n") << QByteArray("k") << QByteArray("2");
    QTest::newRow("indented line never matches") << QByteArray("  \"k\" = \"v\";\n") << QByteArray("k") << QByteArray("k");
    QTest::newRow("last line without LF") << QByteArray("\"a\" = \"1\";\n\"k\" = \"v\";") << QByteArray("k") << QByteArray("v");
    QTest::newRow("CR LF line end") << QByteArray("\"k\" = \"v\";\r\n\"l\" = \"w\";\r\n") << QByteArray("k") << QByteArray("v");
    QTest::newRow("stray CR keeps quote") << QByteArray("\"k\" = \"v\";\r\r\n") << QByteArray("k") << QByteArray("v\";");
    QTest::newRow("escaped line feeds") << QByteArray("\"Line\\nTwo\" = \"Zeile\\nZwei\";\n") << QByteArray("Line\nTwo") << QByteArray("Zeile\nZwei");
    QTest::newRow("escaped quote in key") << QByteArray("\"a \\\"b\\\" c\" = \"ok\";\n") << QByteArray("a \"b\" c") << QByteArray("ok");
    QTest::newRow("escaped quote in value is dropped") << QByteArray("\"k\" = \"a\\\"b\";\n") << QByteArray("k") << QByteArray("a\\b");
    QTest::newRow("backslash v is a plain v") << QByteArray("\"k\" = \"tab\\vx\";\n") << QByteArray("k") << QByteArray("tabvx");
    QTest::newRow("control escapes") << QByteArray("\"k\\t\" = \"\\a\\b\\f\\r\\t\\\\\";\n") << QByteArray("k\t") << QByteArray("\a\b\f\r\t\\");
    QTest::newRow("trailing backslash kept") << QByteArray("\"k\" = \"a\\\";\n") << QByteArray("k") << QByteArray("a\\");
    QTest::newRow("Latin-1 bytes pass through") << QByteArray("\"Open\" = \"\xd6\x66\x66nen\";\n") << QByteArray("Open") << QByteArray("\xd6\x66\x66nen");
    QTest::newRow("byte-order mark hides first key") << QByteArray("\xef\xbb\xbf\"k\" = \"v\";\n") << QByteArray("k") << QByteArray("k");
}

void TestKVParser::lookup()
{
    QFETCH(QByteArray, file);
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, expected);

    QFile out(dir.filePath(QStringLiteral("Localizable.strings")));
    QVERIFY(out.open(QIODevice::WriteOnly | QIODevice::Truncate));
    out.write(file);
    out.close();

    NMLOCAL::KVParser parser("Localizable.strings");
    parser.setDirectory(dir.path().toStdString());
    parser.parse();
    QCOMPARE(QByteArray::fromStdString(parser.get(bytes(key))), expected);
}

void TestKVParser::missingFile()
{
    NMLOCAL::KVParser parser("Localizable.strings");
    parser.setLocaleName("fr_FR");
    parser.setDirectory(dir.filePath(QStringLiteral("fr.lproj")).toStdString());
    try {
        parser.parse();
        QFAIL("parse() accepted a missing file");
    } catch (const std::runtime_error &e) {
        QCOMPARE(QByteArray(e.what()), QByteArray("Could not find locale strings file for: fr_FR\n"));
    }
    QCOMPARE(parser.get("Exit"), std::string("Exit"));
}

void TestKVParser::directoryInsteadOfFile()
{
    QVERIFY(QDir(dir.path()).mkpath(QStringLiteral("sub/Localizable.strings")));
    NMLOCAL::KVParser parser("Localizable.strings");
    const std::string sub = dir.filePath(QStringLiteral("sub")).toStdString();
    parser.setDirectory(sub);
    try {
        parser.parse();
        QFAIL("parse() accepted a directory");
    } catch (const std::runtime_error &e) {
        QCOMPARE(std::string(e.what()), "Could not open " + sub + "/Localizable.strings\n");
    }
}

QTEST_APPLESS_MAIN(TestKVParser)
#include "test_kvparser.moc"
