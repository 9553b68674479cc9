#include <nmplatform/nmpath.h>
#include <nmplatform/nmstatus.h>

#include <QtTest>

class TestNmPath : public QObject
{
    Q_OBJECT
private slots:
    void normalize_data();
    void normalize();
    void prefix_data();
    void prefix();
    void isUrl_data();
    void isUrl();
    void utf16_data();
    void utf16();
    void wholeConversionLimits();
};

void TestNmPath::normalize_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<uint>("result");
    QTest::newRow("empty") << QByteArray("") << QByteArray("") << 0u;
    QTest::newRow("dot and dotdot") << QByteArray("C:/a/./b/../c") << QByteArray("C:/a/c") << 0u;
    QTest::newRow("backslashes") << QByteArray("C:\\dir\\\\file.txt") << QByteArray("C:/dir/file.txt") << 0u;
    QTest::newRow("runs of slashes") << QByteArray("/a///b//") << QByteArray("/a/b") << 0u;
    QTest::newRow("network kept") << QByteArray("\\\\server\\share\\x") << QByteArray("//server/share/x") << 0u;
    QTest::newRow("dotdot at root dropped") << QByteArray("/../a") << QByteArray("/a") << 0u;
    QTest::newRow("relative dotdot kept") << QByteArray("../a/../../b") << QByteArray("../../b") << 0u;
    QTest::newRow("all gone") << QByteArray("a/..") << QByteArray(".") << 0u;
    QTest::newRow("url as is") << QByteArray("https://host//x/../y") << QByteArray("https://host//x/../y") << 0u;
    QTest::newRow("vext as is") << QByteArray("vext://a/./b") << QByteArray("vext://a/./b") << 0u;
    QTest::newRow("line feed") << QByteArray("a\nb") << QByteArray("") << 22u;
}

void TestNmPath::normalize()
{
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, expected);
    QFETCH(uint, result);
    char out[NM_PATH_MAX];
    QCOMPARE(nm_path_normalize(path.constData(), out, sizeof out), result);
    QCOMPARE(QByteArray(out), expected);
}

void TestNmPath::prefix_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("10 chars stays") << QByteArray("C:/abc/def") << QByteArray("C:/abc/def");
    QTest::newRow("11 chars absolute") << QByteArray("C:/abc/defg") << QByteArray("\\\\?\\C:\\abc\\defg");
    QTest::newRow("relative stays") << QByteArray("some/relative/path") << QByteArray("some/relative/path");
    QTest::newRow("unc") << QByteArray("//server/share/x") << QByteArray("\\\\?\\UNC\\server\\share\\x");
    QTest::newRow("no share, plain prefix") << QByteArray("//serverwithoutshare") << QByteArray("\\\\?\\\\\\serverwithoutshare");
    QTest::newRow("trailing dots of a segment") << QByteArray("C:/folder../file.txt") << QByteArray("\\\\?\\C:\\folder\\file.txt");
    QTest::newRow("dots at the end") << QByteArray("C:/folder/name...") << QByteArray("\\\\?\\C:\\folder\\name");
}

void TestNmPath::prefix()
{
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, expected);
    char out[NM_PATH_PREFIXED_MAX + 1];
    QCOMPARE(nm_path_prefix(path.constData(), out, sizeof out), 0u);
    QCOMPARE(QByteArray(out), expected);
}

void TestNmPath::isUrl_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<bool>("url");
    QTest::newRow("https") << QByteArray("https://x") << true;
    QTest::newRow("drive letter") << QByteArray("C://x") << false;
    QTest::newRow("single slash") << QByteArray("ab:/x") << false;
    QTest::newRow("digit first") << QByteArray("1ab://x") << false;
    QTest::newRow("slash before colon") << QByteArray("a/b://x") << false;
}

void TestNmPath::isUrl()
{
    QFETCH(QByteArray, path);
    QFETCH(bool, url);
    QCOMPARE(bool(nm_path_is_url(path.constData())), url);
}

void TestNmPath::utf16_data()
{
    QTest::addColumn<QByteArray>("utf8");
    QTest::addColumn<uint>("result");
    QTest::newRow("bmp") << QByteArray("\xc3\xa9\xe2\x82\xac") << 0u;
    QTest::newRow("astral") << QByteArray("\xf0\x9f\x98\x80") << 0u;
    QTest::newRow("overlong") << QByteArray("\xc0\xaf") << uint(NM_E_ILLEGAL_UTF);
    QTest::newRow("surrogate") << QByteArray("\xed\xa0\x80") << uint(NM_E_ILLEGAL_UTF);
    QTest::newRow("truncated") << QByteArray("a\xe2\x82") << uint(NM_E_ILLEGAL_UTF);
}

void TestNmPath::utf16()
{
    QFETCH(QByteArray, utf8);
    QFETCH(uint, result);
    uint16_t out[32];
    size_t units = 99;
    QCOMPARE(nm_path_utf8_to_utf16(utf8.constData(), out, 32, &units), result);
    if (result == 0) {
        const QString expected = QString::fromUtf8(utf8);
        QCOMPARE(QString::fromUtf16(out, int(units)), expected);
    }
}

void TestNmPath::wholeConversionLimits()
{
    std::vector<uint16_t> wide(NM_PATH_WIDE_MAX);
    QByteArray longPath = "C:/" + QByteArray(8000, 'a');
    QCOMPARE(nm_path_to_windows(longPath.constData(), wide.data(), wide.size()), 0u);
    QCOMPARE(QString::fromUtf16(wide.data()).left(8), QString("\\\\?\\C:\\a"));
    QByteArray tooLong = "C:/" + QByteArray(8200, 'a');
    QCOMPARE(nm_path_to_windows(tooLong.constData(), wide.data(), wide.size()), uint(NM_E_INSUFFICIENT_BUFFER));
}

QTEST_APPLESS_MAIN(TestNmPath)
#include "test_nmpath.moc"
