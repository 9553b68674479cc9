#include <nmplatform/nmlog.h>
#include <nmplatform/nmsynchron.h>

#include "nmtest.h"

#include <QtTest>

#include <errno.h>
#include <thread>
#include <unistd.h>

#define NM_LOG_SOURCE "nmplatform/tests/test_nmlog"

namespace {

QByteArray logText(int number = 1)
{
    QFile f(QString("%1test.log").arg(number));
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The lines of the first log file with their heads taken off.
QStringList texts()
{
    const QRegularExpression head("^.{23} \\[[0-9a-f]+-[0-9a-f]+\\] ", QRegularExpression::MultilineOption);
    return QString::fromUtf8(logText()).remove(head).split("\r\n");
}

// 70 lines of 1,000 bytes and more: past the 64 KiB after which the size is looked at.
QVector<uint32_t> logLines(const char *tag)
{
    QVector<uint32_t> results;
    for (int i = 0; i < 70; ++i)
        results << NM_LOG(NM_LOG_ERR, "%s %d %s", tag, i, QByteArray(1000, 'f').constData());
    return results;
}

} // namespace

// Runs in a temporary folder that holds the numbered log files.
class TestNmLog : public QObject
{
    Q_OBJECT
private slots:
    // A zone far from UTC tells local time and UTC apart.
    void initTestCase()
    {
        qputenv("TZ", "NPT-5:45");
        tzset();
        QVERIFY(QDir::setCurrent(m_dir.path()));
    }
    void init() { QCOMPARE(nm_log_open(".", "test.log"), 0u); }
    void cleanup()
    {
        nm_log_reset();
        for (const QString &name : QDir().entryList(QDir::Files))
            QFile::remove(name);
    }

    // Heads show the local time, the process and the thread, padded to 8
    // digits except after a repeat notice.
    void repeatNoticeAndHeads()
    {
        const QDateTime before = QDateTime::currentDateTime();
        for (int i = 0; i < 3; ++i)
            QCOMPARE(NM_LOG(NM_LOG_ERR, "same %d", 7), 0u);
        NM_LOG(NM_LOG_WARN, "other");
        const QDateTime after = QDateTime::currentDateTime();
        const QString ids = QString(" [%1-").arg(getpid(), 0, 16);
        const QString padded = ids + QString("%1] ").arg(nm_thread_id(), 8, 16, QChar('0'));
        const QStringList lines = QString::fromUtf8(logText()).split("\r\n");
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines[0].mid(23), padded + "ERR same 7");
        QCOMPARE(lines[1], QString("Last message repeated 2 times"));
        QCOMPARE(lines[2].mid(23), ids + QString("%1] LOG other").arg(nm_thread_id(), 0, 16));
        for (const QString &line : {lines[0], lines[2]}) {
            const QDateTime at = QDateTime::fromString(line.left(23), "yyyy-MM-dd HH:mm:ss.zzz");
            QVERIFY2(at.isValid() && before <= at && at <= after, qPrintable(line));
        }
    }

    void levels_data()
    {
        QTest::addColumn<int>("threshold");
        QTest::addColumn<uint>("level");
        QTest::addColumn<QString>("line"); // empty: none
        const char *prefixes[] = {"ERR", "ERR", "LOG", "LOG", "DBG", "TR"};
        for (uint level = 0; level < 6; ++level)
            QTest::addRow("level %u", level) << 9 << level << QString(prefixes[level]) + " x";
        QTest::newRow("at the threshold") << 3 << 3u << QString("LOG x");
        QTest::newRow("above the threshold") << 3 << 4u << QString();
        QTest::newRow("logging off") << -1 << 0u << QString();
        QTest::newRow("below -1 logs all") << -2 << 9u << QString("TR x");
    }

    void levels()
    {
        QFETCH(int, threshold);
        QFETCH(uint, level);
        QFETCH(QString, line);
        nm_log_set_level(threshold);
        NM_LOG(level, "x");
        QCOMPARE(texts(), line.isEmpty() ? QStringList("") : QStringList({line, ""}));
    }

    // Standard error gets the text without a head: every line when it is the
    // only output, otherwise the lines up to its own level. Repeats are counted
    // either way. A text is cut to 4,093 characters, its prefix included.
    void standardError()
    {
        QTemporaryFile echo;
        QVERIFY(echo.open());
        const int saved = dup(2);
        dup2(echo.handle(), 2);
        nm_log_set_stderr_only(1);
        NM_LOG(NM_LOG_ERR, "%s", QByteArray(5000, 'm').constData());
        NM_LOG(NM_LOG_ERR, "echo");
        NM_LOG(NM_LOG_ERR, "echo");
        nm_log_set_stderr_only(0);
        nm_log_set_stderr_level(NM_LOG_WARN);
        nm_log_set_level(NM_LOG_DBG);
        NM_LOG(NM_LOG_WARN, "both");
        NM_LOG(NM_LOG_DBG, "file");
        dup2(saved, 2);
        ::close(saved);
        QVERIFY(echo.seek(0));
        QCOMPARE(echo.readAll(), "ERR " + QByteArray(4089, 'm') + "\r\nERR echo\r\nLOG both\r\n");
        QCOMPARE(texts(), QStringList({"Last message repeated 1 times", "LOG both", "DBG file", ""}));
    }

    // A new run carries on in the newest file and goes on counting from it;
    // looking at the size leaves errno be.
    void changeOverKeepsNumbering()
    {
        nm_log_set_max_size(1000);
        errno = ENOSPC;
        logLines("run1");
        QCOMPARE(errno, ENOSPC);
        QVERIFY(logText(2).contains("run1 69 ") && !logText(1).contains("run1 69 "));
        QCOMPARE(nm_log_open(".", "test.log"), 0u);
        nm_log_set_max_size(1000);
        logLines("run2");
        QVERIFY(logText(2).contains("run2 0 ") && logText(3).contains("run2 69 "));
    }

    // The queue takes every level, and the threshold in force at the flush
    // decides what reaches the file. File mode 2 is a file too; logging
    // without a file is refused.
    void destinations()
    {
        nm_log_set_mode(NM_LOG_MODE_QUEUE);
        nm_log_set_queueing(1);
        for (uint level : {1, 4, 5, 3})
            NM_LOG(level, "early %u", level);
        QCOMPARE(nm_log_set_mode(NM_LOG_MODE_FILE2), 0u);
        nm_log_set_level(NM_LOG_DBG);
        QCOMPARE(nm_log_flush_queue(), 0u);
        QCOMPARE(texts(), QStringList({"ERR early 1", "DBG early 4", "LOG early 3", ""}));
        nm_log_reset(); // no file open
        QCOMPARE(NM_LOG(NM_LOG_ERR, "nowhere"), 22u);
    }

    // Threads log at once across change-overs: every line stays whole.
    void threadsWriteWholeLines()
    {
        nm_log_set_max_size(20000);
        std::vector<std::thread> pool;
        for (int t = 0; t < 4; ++t)
            pool.emplace_back([t] {
                for (int i = 0; i < 20000; ++i)
                    i % 8 ? NM_LOG(NM_LOG_ERR, "same") : NM_LOG(NM_LOG_ERR, "thread %d line %d pad", t, i);
            });
        for (std::thread &thread : pool)
            thread.join();
        QByteArray all;
        for (int number = 1; QFile::exists(QString("%1test.log").arg(number)); ++number)
            all += logText(number);
        const QRegularExpression line("^(?:Last message repeated \\d+ times|.{23} \\[[0-9a-f]+-[0-9a-f]+\\] "
                                      "ERR (?:same|thread \\d line \\d+ pad))$");
        for (const QString &l : QString::fromUtf8(all).split("\r\n", Qt::SkipEmptyParts))
            QVERIFY2(line.match(l).hasMatch(), qPrintable(l));
    }

    // Every lock is let go when memory runs out: the writer works on as before.
    void nothingThrowsWithoutMemory()
    {
        const QByteArray folder = m_dir.path().toUtf8(); // too long to be held without memory
        QCOMPARE(nm_log_open(folder.constData(), "test.log"), 0u);
        nm_log_set_max_size(1000);
        t_failAllocations = true;
        QVector<uint32_t> results = logLines("x"); // the change-over needs memory
        results << nm_log_open(folder.constData(), "test.log");
        nm_log_set_mode(NM_LOG_MODE_QUEUE);
        nm_log_set_queueing(1);
        results << NM_LOG(NM_LOG_ERR, "queued");
        t_failAllocations = false;
        QCOMPARE(results.count(8u), 3);
        QCOMPARE(results.mid(70), QVector<uint32_t>({8u, 8u}));
        nm_log_set_mode(NM_LOG_MODE_FILE);
        QCOMPARE(nm_log_open(".", "test.log"), 0u);
        QCOMPARE(NM_LOG(NM_LOG_ERR, "after"), 0u);
        QVERIFY(logText(1).endsWith("ERR after\r\n"));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_APPLESS_MAIN(TestNmLog)
#include "test_nmlog.moc"
