#include <nmplatform/nmstatus.h>
#include <nmplatform/nmstring.h>

#include "nmtest.h"

#include <QtTest>

#include <errno.h>
#include <iterator>

// source appended to initial in a buffer of size bytes; expected short of
// initial + source means the source was cut.
struct AppendCase {
    QByteArray initial, source;
    int size;
    QByteArray expected;
};
Q_DECLARE_METATYPE(AppendCase)

class TestNmString : public QObject
{
    Q_OBJECT
private slots:
    void append_data()
    {
        QTest::addColumn<AppendCase>("c");
        QTest::newRow("exact fit") << AppendCase{"ab", "cde", 6, "abcde"};
        QTest::newRow("ascii cut") << AppendCase{"", "abcdef", 4, "abc"};
        QTest::newRow("2-byte kept") << AppendCase{"a", "\xc3\xa9z", 4, "a\xc3\xa9"};
        QTest::newRow("3-byte cut after 2") << AppendCase{"a", "\xe2\x82\xac", 4, "a"};
        QTest::newRow("4-byte kept") << AppendCase{"", "\xf0\x9f\x98\x80z", 5, "\xf0\x9f\x98\x80"};
        QTest::newRow("5-byte kept") << AppendCase{"", "\xf8\x88\x80\x80\x80z", 6, "\xf8\x88\x80\x80\x80"};
        QTest::newRow("stray continuation bytes kept") << AppendCase{"", "\x80\x80\x80\x80", 4, "\x80\x80\x80"};
    }

    void append()
    {
        QFETCH(AppendCase, c);
        const auto &[initial, source, size, expected] = c;
        QByteArray buf(size + 4, '#'); // the bytes past size stay untouched
        memcpy(buf.data(), initial.constData(), initial.size() + 1);
        size_t len = initial.size();
        const uint cut = expected == initial + source ? 0u : uint(NM_E_INSUFFICIENT_BUFFER);
        QCOMPARE(nm_strlcat(buf.data(), source.constData(), size, &len), cut);
        QCOMPARE(QByteArray(buf.constData()), expected);
        QCOMPARE(len, size_t(expected.size()));
        QCOMPARE(buf.mid(size), QByteArray(4, '#'));
    }

    void badArguments()
    {
        nmtestCaptureLog();
        char buf[4] = "abc";
        size_t len = 4; // not below the size
        QCOMPARE(nm_strlcat(buf, "x", sizeof buf, &len), 22u);
        QCOMPARE(buf[0], '\0');
        QCOMPARE(nm_strlcat(nullptr, "x", 4, nullptr), 22u);
        strcpy(buf, "abc");
        QCOMPARE(nm_strlcat(buf, nullptr, sizeof buf, nullptr), 22u);
        QCOMPARE(buf[0], '\0');
        nm_log_reset();
        const QString head = "3 Warning: nm_str_to failure, args ";
        g_logged.replaceInStrings(QRegularExpression("0x[0-9a-f]+"), "p"); // pointers
        QCOMPARE(g_logged, QStringList({head + "p p 4 4 'x'", head + "(nil) p 4 0 'x'",
                                        head + "p (nil) 4 0 '(nil)'"}));
    }

    // Code 28672 + i has text i; the gaps and the number after the table are
    // the system's. A system text is cut to the buffer, and without a buffer it
    // is "N/A".
    void statusTexts()
    {
        const char *const texts[] = {
            "Invalid doc root path", "Invalid command or token separator mismatch",
            "Base file/directory name not found in path", "File/directory path mismatch",
            "Illegal UTF string", "Insufficient buffer space", "End or directory reached",
            "Library open/close failed", "Library module loading failed", "Could not create UUID string",
            "Could not parse xml file for configs", "Could not read locale info", "Could not compute md5sum",
            "Could not compute SHA hash", "Could not log message", "Invalid user name",
            "Parse error inside UAC", "No transmitting xfer found", "Unimplemented function",
            "Internal error", "Reached end", "Storage inaccessible", "Bad pathname", nullptr, nullptr,
            "Connection insecure", "File not valid", "Not enabled", "Not present", "Already locked",
            "Invalid lock", "Lock time skew detected", "Incorrect channel accessed", "User aborted session",
            "Bad token", "Illegal character(s) in path name", "Missing docroot restriction",
            "Failed docroot restriction check", "Expired", "File upload already in progress",
            "Server-side Encryption At Rest unavailable", "Server-side Encryption At Rest failed",
            "Cipher checksum not supported in FIPS mode", "Async job aborted at initiator request"};
        char buf[1024];
        for (uint i = 0; i <= std::size(texts); ++i) {
            const char *text = i < std::size(texts) && texts[i] ? texts[i] : strerror(int(28672 + i));
            QCOMPARE(QByteArray(nm_status_text(28672 + i, buf, sizeof buf)), QByteArray(text));
        }
        QByteArray small(8, '#');
        QCOMPARE(nm_status_text(EINVAL, small.data(), 4), small.constData());
        QCOMPARE(small, QByteArray(strerror(EINVAL)).left(3) + '\0' + "####");
        QCOMPARE(QByteArray(nm_status_text(EINVAL, nullptr, 0)), QByteArray("N/A"));
    }
};

QTEST_APPLESS_MAIN(TestNmString)
#include "test_nmstring.moc"
