#include <nmplatform/nmpath.h>
#include <nmplatform/nmstatus.h>

#include "nmtest_alloc.h"

#include <QtTest>

class TestNmPath : public QObject
{
    Q_OBJECT
private slots:
    void convert_data();
    void convert();
    void absolute_data();
    void absolute();
    void utf16();
    void limits();
    void nothingThrowsWithoutMemory();
};

// Each row runs both stages: normalise, then prefix the normalised form.
void TestNmPath::convert_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<QByteArray>("normalized");
    QTest::addColumn<QByteArray>("prefixed");
    QTest::newRow("empty") << QByteArray("") << QByteArray("") << QByteArray("");
    QTest::newRow("dot and dotdot") << QByteArray("C:/a/./b/../c") << QByteArray("C:/a/c") << QByteArray("C:/a/c");
    QTest::newRow("10 chars not prefixed") << QByteArray("C:\\abc\\def") << QByteArray("C:/abc/def") << QByteArray("C:/abc/def");
    QTest::newRow("11 chars prefixed") << QByteArray("C:\\abc\\\\defg\\") << QByteArray("C:/abc/defg")
                                       << QByteArray("\\\\?\\C:\\abc\\defg");
    QTest::newRow("network") << QByteArray("\\\\server\\share\\x") << QByteArray("//server/share/x")
                             << QByteArray("\\\\?\\UNC\\server\\share\\x");
    QTest::newRow("network without share") << QByteArray("//serverwithoutshare") << QByteArray("//serverwithoutshare")
                                           << QByteArray("\\\\?\\\\\\serverwithoutshare");
    QTest::newRow("dotdot at the root dropped") << QByteArray("/../a") << QByteArray("/a") << QByteArray("/a");
    QTest::newRow("relative keeps what it can't resolve") << QByteArray("../a/../../bcdefghijk")
                                                          << QByteArray("../../bcdefghijk") << QByteArray("../../bcdefghijk");
    QTest::newRow("all gone") << QByteArray("a/..") << QByteArray(".") << QByteArray(".");
    QTest::newRow("trailing dots dropped when prefixed") << QByteArray("C:/folder../name...")
                                                         << QByteArray("C:/folder../name...") << QByteArray("\\\\?\\C:\\folder\\name");
    QTest::newRow("url as it stands") << QByteArray("https://host//x/../y") << QByteArray("https://host//x/../y")
                                      << QByteArray("https://host//x/../y");
    QTest::newRow("one-letter scheme is a drive") << QByteArray("C://x/./y") << QByteArray("C:/x/y") << QByteArray("C:/x/y");
    QTest::newRow("vext as it stands") << QByteArray("vext://a/./b") << QByteArray("vext://a/./b") << QByteArray("vext://a/./b");
}

void TestNmPath::convert()
{
    QFETCH(QByteArray, path);
    QFETCH(QByteArray, normalized);
    QFETCH(QByteArray, prefixed);
    char out[NM_PATH_MAX];
    char longForm[NM_PATH_PREFIXED_MAX + 1];
    QCOMPARE(nm_path_normalize(path.constData(), out, sizeof out), 0u);
    QCOMPARE(QByteArray(out), normalized);
    QCOMPARE(nm_path_prefix(out, longForm, sizeof longForm), 0u);
    QCOMPARE(QByteArray(longForm), prefixed);
}

void TestNmPath::absolute_data()
{
    QTest::addColumn<QByteArray>("path");
    QTest::addColumn<bool>("absolute");
    QTest::newRow("slash") << QByteArray("/x") << true;
    QTest::newRow("backslash after blanks") << QByteArray("  \\x") << true;
    QTest::newRow("drive") << QByteArray("c:\\x") << true;
    QTest::newRow("drive-relative") << QByteArray("C:x") << false;
    QTest::newRow("digit is no drive") << QByteArray("1:/x") << false;
    QTest::newRow("relative") << QByteArray("x/y") << false;
}

void TestNmPath::absolute()
{
    QFETCH(QByteArray, path);
    QFETCH(bool, absolute);
    QCOMPARE(nm_path_is_absolute(path.constData()) != 0, absolute);
}

void TestNmPath::utf16()
{
    uint16_t out[8];
    size_t units = 0;
    QCOMPARE(nm_path_utf8_to_utf16("\xc3\xa9\xf0\x9f\x98\x80", out, 8, &units), 0u);
    QCOMPARE(QString::fromUtf16(out, int(units)), QString::fromUtf8("\xc3\xa9\xf0\x9f\x98\x80"));
    for (const char *bad : {"\xc0\xaf", "\xed\xa0\x80", "a\xe2\x82"}) // overlong, surrogate, cut short
        QCOMPARE(nm_path_utf8_to_utf16(bad, out, 8, &units), uint(NM_E_ILLEGAL_UTF));
    QCOMPARE(nm_path_utf8_to_utf16("abcdefgh", out, 8, &units), uint(NM_E_INSUFFICIENT_BUFFER));
}

void TestNmPath::limits()
{
    char out[16];
    QCOMPARE(nm_path_normalize("a\nb", out, sizeof out), 22u);
    std::vector<uint16_t> wide(NM_PATH_WIDE_MAX);
    const QByteArray longPath = "C:/" + QByteArray(8000, 'a');
    QCOMPARE(nm_path_to_windows(longPath.constData(), wide.data(), wide.size()), 0u);
    QCOMPARE(QString::fromUtf16(wide.data()).left(8), QString("\\\\?\\C:\\a"));
    // The prefixed form holds at most 8,202 characters.
    std::vector<char> prefixed(NM_PATH_PREFIXED_MAX + 8);
    const QByteArray longest = "C:/" + QByteArray(NM_PATH_PREFIXED_MAX - 7, 'a');
    QCOMPARE(nm_path_prefix(longest.constData(), prefixed.data(), prefixed.size()), 0u);
    QCOMPARE(strlen(prefixed.data()), size_t(NM_PATH_PREFIXED_MAX));
    QCOMPARE(nm_path_prefix((longest + 'a').constData(), prefixed.data(), prefixed.size()),
             uint(NM_E_INSUFFICIENT_BUFFER));
    const QByteArray tooLong = "C:/" + QByteArray(8200, 'a');
    QCOMPARE(nm_path_to_windows(tooLong.constData(), wide.data(), wide.size()), uint(NM_E_INSUFFICIENT_BUFFER));
}

void TestNmPath::nothingThrowsWithoutMemory()
{
    char out[64];
    std::vector<uint16_t> wide(64);
    t_failAllocations = true;
    const uint32_t normalized = nm_path_normalize("C:/a/../b", out, sizeof out);
    const uint32_t prefixed = nm_path_prefix("C:/abc/defghij", out, sizeof out);
    const uint32_t converted = nm_path_to_windows("C:/a", wide.data(), wide.size());
    t_failAllocations = false;
    QCOMPARE(normalized, 8u);
    QCOMPARE(prefixed, 8u);
    QCOMPARE(converted, 8u);
}

QTEST_APPLESS_MAIN(TestNmPath)
#include "test_nmpath.moc"
