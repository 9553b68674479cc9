#include <nmplatform/nmlog.h>
#include <nmplatform/nmstatus.h>

#include <QtTest>

#include <errno.h>

#define NM_LOG_SOURCE "nmplatform/tests/test_nmlog"

namespace {
const QString kHead = "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} \\[[0-9a-f]+-%1\\] ";
const QString kPaddedHead = kHead.arg("[0-9a-f]{8}");
const QString kPlainHead = kHead.arg("[0-9a-f]+");
} // namespace

class TestNmLog : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void repeatNotice();
    void levels_data();
    void levels();
    void longLineIsCut();
    void changeOverKeepsNumbering();
    void repeatCountedOnStandardErrorOnly();
    void queueThenFlush();
    void keepsErrnoAndRefusesUnknownMode();

private:
    QByteArray logText(int number = 1) const;
    QTemporaryDir m_dir;
};

void TestNmLog::init()
{
    QVERIFY(m_dir.isValid());
    QCOMPARE(nm_log_open(m_dir.path().toUtf8().constData(), "test.log"), 0u);
}

void TestNmLog::cleanup()
{
    nm_log_reset();
    QDir dir(m_dir.path());
    for (const QString &name : dir.entryList(QDir::Files))
        dir.remove(name);
}

QByteArray TestNmLog::logText(int number) const
{
    QFile f(m_dir.filePath(QString("%1test.log").arg(number)));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

void TestNmLog::repeatNotice()
{
    for (int i = 0; i < 3; ++i)
        QCOMPARE(NM_LOG(NM_LOG_ERR, "same %d", 7), 0u);
    NM_LOG(NM_LOG_WARN, "other");
    const QRegularExpression expected(QString("^%1ERR same 7\\r\\nLast message repeated 2 times\\r\\n%2LOG other\\r\\n$")
                                          .arg(kPaddedHead, kPlainHead));
    const QString text = QString::fromUtf8(logText());
    QVERIFY2(expected.match(text).hasMatch(), qPrintable(text));
}

void TestNmLog::levels_data()
{
    QTest::addColumn<int>("threshold");
    QTest::addColumn<uint>("level");
    QTest::addColumn<QString>("line");
    QTest::newRow("0 is ERR") << 5 << 0u << "ERR x";
    QTest::newRow("2 is LOG") << 5 << 2u << "LOG x";
    QTest::newRow("4 is DBG") << 5 << 4u << "DBG x";
    QTest::newRow("9 is TR") << 9 << 9u << "TR x";
    QTest::newRow("above the threshold") << 3 << 4u << "";
    QTest::newRow("logging off") << -1 << 0u << "";
}

void TestNmLog::levels()
{
    QFETCH(int, threshold);
    QFETCH(uint, level);
    QFETCH(QString, line);
    nm_log_set_level(threshold);
    NM_LOG(level, "x");
    const QString text = QString::fromUtf8(logText());
    QCOMPARE(text.section("] ", 1).trimmed(), line);
}

void TestNmLog::longLineIsCut()
{
    const QByteArray message(5000, 'm');
    NM_LOG(NM_LOG_ERR, "%s", message.constData());
    const QByteArray text = logText();
    const QByteArray body = text.mid(text.indexOf("] ") + 2);
    QCOMPARE(body, "ERR " + QByteArray(NM_LOG_TEXT_MAX - 4, 'm') + "\r\n");
}

void TestNmLog::changeOverKeepsNumbering()
{
    nm_log_set_max_size(1000);
    const QByteArray filler(1000, 'f');
    // The size is looked at after every 64 KiB written.
    for (int i = 0; i < 70; ++i)
        NM_LOG(NM_LOG_ERR, "%d %s", i, filler.constData());
    QVERIFY(logText(1).size() >= 65536);
    QVERIFY(logText(2).contains("ERR 69 "));
    QVERIFY(!logText(1).contains("ERR 69 "));

    // A new run carries on in the newest file and goes on counting from it.
    QCOMPARE(nm_log_open(m_dir.path().toUtf8().constData(), "test.log"), 0u);
    nm_log_set_max_size(1000);
    for (int i = 0; i < 70; ++i)
        NM_LOG(NM_LOG_ERR, "run2 %d %s", i, filler.constData());
    QVERIFY(logText(2).contains("run2 0 "));
    QVERIFY(logText(3).contains("run2 69 "));
    QCOMPARE(QString::fromUtf8(nm_log_file_path()), m_dir.filePath("3test.log"));
}

void TestNmLog::repeatCountedOnStandardErrorOnly()
{
    nm_log_set_stderr_only(1);
    NM_LOG(NM_LOG_ERR, "echo");
    NM_LOG(NM_LOG_ERR, "echo");
    nm_log_set_stderr_only(0);
    NM_LOG(NM_LOG_ERR, "file");
    const QString text = QString::fromUtf8(logText());
    QVERIFY2(QRegularExpression(QString("^Last message repeated 1 times\\r\\n%1ERR file\\r\\n$").arg(kPlainHead))
                 .match(text).hasMatch(), qPrintable(text));
}

void TestNmLog::queueThenFlush()
{
    nm_log_set_mode(NM_LOG_MODE_QUEUE);
    nm_log_set_queueing(1);
    NM_LOG(NM_LOG_ERR, "early %s", "one");
    NM_LOG(NM_LOG_DBG, "filtered later");
    NM_LOG(NM_LOG_WARN, "early two");
    QCOMPARE(logText(), QByteArray());
    nm_log_set_mode(NM_LOG_MODE_FILE);
    QCOMPARE(nm_log_flush_queue(), 0u);
    const QByteArray text = logText();
    QVERIFY(text.contains("ERR early one\r\n"));
    QVERIFY(text.contains("LOG early two\r\n"));
    QVERIFY(!text.contains("filtered"));
    QVERIFY(text.indexOf("one") < text.indexOf("two"));
}

void TestNmLog::keepsErrnoAndRefusesUnknownMode()
{
    errno = ENOSPC;
    NM_LOG(NM_LOG_ERR, "%s", strerror(EINVAL));
    QCOMPARE(errno, ENOSPC);
    QCOMPARE(nm_log_set_mode(7), 22u);
    QCOMPARE(NM_LOG(NM_LOG_ERR, "lost"), 22u);
    QCOMPARE(errno, ENOSPC);
    nm_log_reset(); // no file open
    QCOMPARE(NM_LOG(NM_LOG_ERR, "nowhere"), 22u);
}

QTEST_APPLESS_MAIN(TestNmLog)
#include "test_nmlog.moc"
