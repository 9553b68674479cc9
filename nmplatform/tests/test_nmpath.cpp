#include <nmplatform/nmpath.h>
#include <nmplatform/nmstatus.h>

#include "nmtest.h"

#include <QtTest>

// path normalised, then the normalised form prefixed (null: as normalised).
struct ConvertCase {
    const char *path, *normalized, *prefixed;
};
Q_DECLARE_METATYPE(ConvertCase)

class TestNmPath : public QObject
{
    Q_OBJECT
private slots:
    // Each row runs both stages: normalise, then prefix the normalised form.
    void convert_data()
    {
        QTest::addColumn<ConvertCase>("c");
        QTest::newRow("10 chars not prefixed") << ConvertCase{"C:\\abc\\def", "C:/abc/def", nullptr};
        QTest::newRow("11 chars prefixed") << ConvertCase{"C:\\abc\\\\defg\\", "C:/abc/defg", "\\\\?\\C:\\abc\\defg"};
        QTest::newRow("network") << ConvertCase{"\\\\server\\share\\x", "//server/share/x", "\\\\?\\UNC\\server\\share\\x"};
        QTest::newRow("network without share") << ConvertCase{"//serverwithoutshare", "//serverwithoutshare", "\\\\?\\\\\\serverwithoutshare"};
        QTest::newRow("dotdot at the root dropped") << ConvertCase{"/../a", "/a", nullptr};
        QTest::newRow("relative keeps what it can't resolve") << ConvertCase{"../a/../../bcdefghijk", "../../bcdefghijk", nullptr};
        QTest::newRow("all gone") << ConvertCase{"a/..", ".", nullptr};
        QTest::newRow("trailing dots dropped when prefixed") << ConvertCase{"C:/folder../name...", "C:/folder../name...", "\\\\?\\C:\\folder\\name"};
        QTest::newRow("url as it stands") << ConvertCase{"https://host//x/../y", "https://host//x/../y", nullptr};
        QTest::newRow("one-letter scheme is a drive") << ConvertCase{"C://x/./y", "C:/x/y", nullptr};
    }

    void convert()
    {
        QFETCH(ConvertCase, c);
        char out[NM_PATH_MAX], longForm[NM_PATH_PREFIXED_MAX + 1];
        QCOMPARE(nm_path_normalize(c.path, out, sizeof out), 0u);
        QCOMPARE(QByteArray(out), QByteArray(c.normalized));
        QCOMPARE(nm_path_prefix(out, longForm, sizeof longForm), 0u);
        QCOMPARE(QByteArray(longForm), QByteArray(c.prefixed ? c.prefixed : c.normalized));
    }

    void absolute()
    {
        for (const char *yes : {"/x", "  \\x", "c:\\x"})
            QVERIFY2(nm_path_is_absolute(yes), yes);
        for (const char *no : {"C:x", "1:/x", "x/y"})
            QVERIFY2(!nm_path_is_absolute(no), no);
    }

    void utf16()
    {
        uint16_t out[8];
        size_t units = 0;
        QCOMPARE(nm_path_utf8_to_utf16("\xc3\xa9\xf0\x9f\x98\x80", out, 8, &units), 0u);
        QCOMPARE(QString::fromUtf16(out, int(units)), QString::fromUtf8("\xc3\xa9\xf0\x9f\x98\x80"));
        for (const char *bad : {"\xc0\xaf", "\xed\xa0\x80", "a\xe2\x82"}) // overlong, surrogate, cut short
            QCOMPARE(nm_path_utf8_to_utf16(bad, out, 8, &units), uint(NM_E_ILLEGAL_UTF));
        QCOMPARE(nm_path_utf8_to_utf16("abcdefgh", out, 8, &units), uint(NM_E_INSUFFICIENT_BUFFER));
    }

    // The prefixed form holds at most 8,202 characters; exhausted memory is error 8.
    void refusals()
    {
        std::vector<char> prefixed(NM_PATH_PREFIXED_MAX + 8);
        const QByteArray longest = "C:/" + QByteArray(NM_PATH_PREFIXED_MAX - 7, 'a');
        QCOMPARE(nm_path_prefix(longest.constData(), prefixed.data(), prefixed.size()), 0u);
        QCOMPARE(strlen(prefixed.data()), size_t(NM_PATH_PREFIXED_MAX));
        QCOMPARE(nm_path_prefix((longest + 'a').constData(), prefixed.data(), prefixed.size()),
                 uint(NM_E_INSUFFICIENT_BUFFER));
        std::vector<uint16_t> wide(NM_PATH_WIDE_MAX);
        QCOMPARE(nm_path_to_windows(longest.constData(), wide.data(), wide.size()), uint(NM_E_INSUFFICIENT_BUFFER));
        t_failAllocations = true;
        const uint32_t results[] = {nm_path_normalize("C:/a/../b", prefixed.data(), 64),
                                    nm_path_prefix("C:/abc/defghij", prefixed.data(), 64),
                                    nm_path_to_windows("C:/a", wide.data(), 64)};
        t_failAllocations = false;
        for (uint32_t rc : results)
            QCOMPARE(rc, 8u);
    }
};

QTEST_APPLESS_MAIN(TestNmPath)
#include "test_nmpath.moc"
