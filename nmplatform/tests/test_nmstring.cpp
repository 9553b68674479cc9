#include <nmplatform/nmstatus.h>
#include <nmplatform/nmstring.h>

#include <QtTest>

#include <errno.h>

class TestNmString : public QObject
{
    Q_OBJECT
private slots:
    void append_data();
    void append();
    void badArguments();
    void statusText_data();
    void statusText();
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
    char buf[4] = "abc";
    size_t len = 4; // not below the size
    QCOMPARE(nm_strlcat(buf, "x", sizeof buf, &len), 22u);
    QCOMPARE(buf[0], '\0');
    QCOMPARE(nm_strlcat(nullptr, "x", 4, nullptr), 22u);
    strcpy(buf, "abc");
    QCOMPARE(nm_strlcat(buf, nullptr, sizeof buf, nullptr), 22u);
    QCOMPARE(buf[0], '\0');
    // A null length pointer copies from the start.
    strcpy(buf, "abc");
    QCOMPARE(nm_strlcat(buf, "xy", sizeof buf, nullptr), 0u);
    QCOMPARE(QByteArray(buf), QByteArray("xy"));
}

void TestNmString::statusText_data()
{
    QTest::addColumn<uint>("code");
    QTest::addColumn<QString>("text");
    QTest::newRow("first") << 28672u << "Invalid doc root path";
    QTest::newRow("after the gap") << 28697u << "Connection insecure";
    QTest::newRow("last") << 28715u << "Async job aborted at initiator request";
    QTest::newRow("system EINVAL") << uint(EINVAL) << QString::fromLocal8Bit(strerror(EINVAL));
    QTest::newRow("gap is a system number") << 28695u << QString::fromLocal8Bit(strerror(28695));
}

void TestNmString::statusText()
{
    QFETCH(uint, code);
    QFETCH(QString, text);
    char buf[1024];
    QCOMPARE(QString::fromLocal8Bit(nm_status_text(code, buf, sizeof buf)), text);
    QCOMPARE(QString(nm_status_text(EINVAL, nullptr, 0)), QString("N/A"));
}

QTEST_APPLESS_MAIN(TestNmString)
#include "test_nmstring.moc"
