#include <nmplatform/nmlog.h>
#include <nmplatform/nmstatus.h>
#include <nmplatform/nmstring.h>

#include <QtTest>

#include <errno.h>

namespace {

QStringList g_logged;
void captureLog(uint32_t level, const char *, int, const char *format, va_list args)
{
    char text[512];
    vsnprintf(text, sizeof text, format, args);
    g_logged << QString("%1 %2").arg(level).arg(QString::fromUtf8(text));
}

} // namespace

class TestNmString : public QObject
{
    Q_OBJECT
private slots:
    void append_data();
    void append();
    void badArguments();
    void statusText_data();
    void statusText();
    void statusTextBuffers();
};

void TestNmString::append_data()
{
    QTest::addColumn<QByteArray>("initial");
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<int>("size");
    QTest::addColumn<QByteArray>("expected");
    QTest::addColumn<uint>("result");

    const uint cut = NM_E_INSUFFICIENT_BUFFER;
    QTest::newRow("fits") << QByteArray("ab") << QByteArray("cd") << 8 << QByteArray("abcd") << 0u;
    QTest::newRow("exact fit") << QByteArray("ab") << QByteArray("cde") << 6 << QByteArray("abcde") << 0u;
    QTest::newRow("ascii cut") << QByteArray() << QByteArray("abcdef") << 4 << QByteArray("abc") << cut;
    QTest::newRow("full buffer, empty source") << QByteArray("abc") << QByteArray() << 4 << QByteArray("abc") << 0u;
    QTest::newRow("2-byte lead cut off") << QByteArray("ab") << QByteArray("\xc3\xa9") << 4 << QByteArray("ab") << cut;
    QTest::newRow("2-byte kept whole") << QByteArray("a") << QByteArray("\xc3\xa9z") << 4 << QByteArray("a\xc3\xa9") << cut;
    QTest::newRow("3-byte cut after 2") << QByteArray("a") << QByteArray("\xe2\x82\xac") << 4 << QByteArray("a") << cut;
    QTest::newRow("4-byte cut after 3") << QByteArray() << QByteArray("\xf0\x9f\x98\x80") << 4 << QByteArray() << cut;
    QTest::newRow("stray continuation bytes kept") << QByteArray() << QByteArray("\x80\x80\x80\x80") << 4
                                                   << QByteArray("\x80\x80\x80") << cut;
    QTest::newRow("4-byte kept, next cut") << QByteArray() << QByteArray("\xf0\x9f\x98\x80\xc3\xa9") << 6
                                          << QByteArray("\xf0\x9f\x98\x80") << cut;
}

void TestNmString::append()
{
    QFETCH(QByteArray, initial);
    QFETCH(QByteArray, source);
    QFETCH(int, size);
    QFETCH(QByteArray, expected);
    QFETCH(uint, result);

    QByteArray buf(size + 4, '#'); // guard bytes past size must stay untouched
    memcpy(buf.data(), initial.constData(), initial.size() + 1);
    size_t len = initial.size();
    QCOMPARE(nm_strlcat(buf.data(), source.constData(), size, &len), result);
    QCOMPARE(QByteArray(buf.constData()), expected);
    QCOMPARE(len, size_t(expected.size()));
    QCOMPARE(buf.mid(size), QByteArray(4, '#'));
}

void TestNmString::badArguments()
{
    nm_log_set_mode(NM_LOG_MODE_CALLBACK);
    nm_log_set_callback(captureLog);
    char buf[4] = "abc";
    size_t len = 4; // not below the size
    QCOMPARE(nm_strlcat(buf, "x", sizeof buf, &len), 22u);
    QCOMPARE(buf[0], '\0');
    QCOMPARE(nm_strlcat(nullptr, "x", 4, nullptr), 22u);
    strcpy(buf, "abc");
    QCOMPARE(nm_strlcat(buf, nullptr, sizeof buf, nullptr), 22u);
    QCOMPARE(buf[0], '\0');
    nm_log_reset();
    const QString head = "^3 Warning: nm_str_to failure, args ";
    QCOMPARE(g_logged.size(), 3);
    QVERIFY2(QRegularExpression(head + "0x[0-9a-f]+ 0x[0-9a-f]+ 4 4 'x'$").match(g_logged[0]).hasMatch(), qPrintable(g_logged[0]));
    QVERIFY2(QRegularExpression(head + "\\(nil\\) 0x[0-9a-f]+ 4 0 'x'$").match(g_logged[1]).hasMatch(), qPrintable(g_logged[1]));
    QVERIFY2(QRegularExpression(head + "0x[0-9a-f]+ \\(nil\\) 4 0 '\\(nil\\)'$").match(g_logged[2]).hasMatch(), qPrintable(g_logged[2]));
    // A null length pointer copies from the start.
    strcpy(buf, "abc");
    QCOMPARE(nm_strlcat(buf, "xy", sizeof buf, nullptr), 0u);
    QCOMPARE(QByteArray(buf), QByteArray("xy"));
}

void TestNmString::statusText_data()
{
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("text");
    const struct {
        uint code;
        const char *text;
    } table[] = {
        {28672, "Invalid doc root path"},
        {28673, "Invalid command or token separator mismatch"},
        {28674, "Base file/directory name not found in path"},
        {28675, "File/directory path mismatch"},
        {28676, "Illegal UTF string"},
        {28677, "Insufficient buffer space"},
        {28678, "End or directory reached"},
        {28679, "Library open/close failed"},
        {28680, "Library module loading failed"},
        {28681, "Could not create UUID string"},
        {28682, "Could not parse xml file for configs"},
        {28683, "Could not read locale info"},
        {28684, "Could not compute md5sum"},
        {28685, "Could not compute SHA hash"},
        {28686, "Could not log message"},
        {28687, "Invalid user name"},
        {28688, "Parse error inside UAC"},
        {28689, "No transmitting xfer found"},
        {28690, "Unimplemented function"},
        {28691, "Internal error"},
        {28692, "Reached end"},
        {28693, "Storage inaccessible"},
        {28694, "Bad pathname"},
        {28697, "Connection insecure"},
        {28698, "File not valid"},
        {28699, "Not enabled"},
        {28700, "Not present"},
        {28701, "Already locked"},
        {28702, "Invalid lock"},
        {28703, "Lock time skew detected"},
        {28704, "Incorrect channel accessed"},
        {28705, "User aborted session"},
        {28706, "Bad token"},
        {28707, "Illegal character(s) in path name"},
        {28708, "Missing docroot restriction"},
        {28709, "Failed docroot restriction check"},
        {28710, "Expired"},
        {28711, "File upload already in progress"},
        {28712, "Server-side Encryption At Rest unavailable"},
        {28713, "Server-side Encryption At Rest failed"},
        {28714, "Cipher checksum not supported in FIPS mode"},
        {28715, "Async job aborted at initiator request"},
    };
    for (const auto &row : table)
        QTest::addRow("%u", row.code) << row.code << QString(row.text);
    // Every other number is the system's.
    for (uint code : {uint(EINVAL), 28671u, 28695u, 28696u, 28716u})
        QTest::addRow("system %u", code) << code << QString::fromLocal8Bit(strerror(int(code)));
}

void TestNmString::statusText()
{
    QFETCH(uint, code);
    QFETCH(QString, text);
    char buf[1024];
    QCOMPARE(QString::fromLocal8Bit(nm_status_text(code, buf, sizeof buf)), text);
}

// A table text never touches the buffer; a system text is cut to it, and
// without one it is "N/A".
void TestNmString::statusTextBuffers()
{
    QByteArray buf(8, '#');
    QCOMPARE(QByteArray(nm_status_text(28672, buf.data(), 4)), QByteArray("Invalid doc root path"));
    QCOMPARE(buf, QByteArray(8, '#'));
    QCOMPARE(nm_status_text(EINVAL, buf.data(), 4), buf.constData());
    QCOMPARE(buf, QByteArray(strerror(EINVAL)).left(3) + '\0' + "####");
    QCOMPARE(QByteArray(nm_status_text(EINVAL, nullptr, 0)), QByteArray("N/A"));
}

QTEST_APPLESS_MAIN(TestNmString)
#include "test_nmstring.moc"
