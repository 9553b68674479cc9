#include <nmplatform/nmlog.h>
#include <nmplatform/nmstatus.h>
#include <nmplatform/nmsynchron.h>

#include "nmtest_alloc.h"

#include <QtTest>

#include <errno.h>
#include <stdlib.h>
#include <time.h>
#include <thread>
#include <unistd.h>

#define NM_LOG_SOURCE "nmplatform/tests/test_nmlog"

namespace {

// The local time a head shows, invalid when it isn't one.
QDateTime headTime(const QString &head)
{
    return QDateTime::fromString(head.left(23), "yyyy-MM-dd HH:mm:ss.zzz");
}

} // namespace

class TestNmLog : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void repeatNoticeAndHeads();
    void levels_data();
    void levels();
    void longLineIsCut();
    void changeOverKeepsNumbering();
    void repeatCountedOnStandardErrorOnly();
    void queueThenFlush();
    void refusesUnknownModeAndNoFile();
    void threadsWriteWholeLines();
    void nothingThrowsWithoutMemory();

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

void TestNmLog::repeatNoticeAndHeads()
{
    const QDateTime before = QDateTime::currentDateTime();
    for (int i = 0; i < 3; ++i)
        QCOMPARE(NM_LOG(NM_LOG_ERR, "same %d", 7), 0u);
    NM_LOG(NM_LOG_WARN, "other");
    NM_LOG(NM_LOG_WARN, "last");
    const QDateTime after = QDateTime::currentDateTime();
    const QString text = QString::fromUtf8(logText());
    // The thread number is padded to 8 digits except after a repeat notice.
    const QString ids = QString("[%1-").arg(getpid(), 0, 16);
    const QString padded = ids + QString("%1] ").arg(nm_thread_id(), 8, 16, QChar('0'));
    const QString plain = ids + QString("%1] ").arg(nm_thread_id(), 0, 16);
    const QStringList lines = text.split("\r\n");
    QCOMPARE(lines.size(), 5);
    QCOMPARE(lines[0].mid(23), ' ' + padded + "ERR same 7");
    QCOMPARE(lines[1], QString("Last message repeated 2 times"));
    QCOMPARE(lines[2].mid(23), ' ' + plain + "LOG other");
    QCOMPARE(lines[3].mid(23), ' ' + padded + "LOG last");
    QCOMPARE(lines[4], QString());
    for (const QString &line : {lines[0], lines[2], lines[3]}) {
        const QDateTime at = headTime(line);
        QVERIFY2(at.isValid() && before <= at && at <= after, qPrintable(line));
    }
}

void TestNmLog::levels_data()
{
    QTest::addColumn<int>("threshold");
    QTest::addColumn<uint>("level");
    QTest::addColumn<QString>("line");
    const char *prefixes[] = {"ERR", "ERR", "LOG", "LOG", "DBG", "TR"};
    for (uint level = 0; level < 6; ++level)
        QTest::addRow("%u is %s", level, prefixes[level]) << 9 << level << QString("%1 x").arg(prefixes[level]);
    QTest::newRow("at the threshold") << 3 << 3u << "LOG x";
    QTest::newRow("above the threshold") << 3 << 4u << "";
    QTest::newRow("logging off") << -1 << 0u << "";
    QTest::newRow("below -1 logs all") << -2 << 9u << "TR x";
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
    // The size is looked at after every 64 KiB written; looking leaves errno be.
    errno = ENOSPC;
    for (int i = 0; i < 70; ++i)
        NM_LOG(NM_LOG_ERR, "%d %s", i, filler.constData());
    QCOMPARE(errno, ENOSPC);
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
    char current[4096];
    QCOMPARE(nm_log_file_path(current, sizeof current), 0u);
    QCOMPARE(QString::fromUtf8(current), m_dir.filePath("3test.log"));
}

void TestNmLog::repeatCountedOnStandardErrorOnly()
{
    nm_log_set_stderr_only(1);
    NM_LOG(NM_LOG_ERR, "echo");
    NM_LOG(NM_LOG_ERR, "echo");
    nm_log_set_stderr_only(0);
    NM_LOG(NM_LOG_ERR, "file");
    const QByteArray text = logText();
    QVERIFY2(text.startsWith("Last message repeated 1 times\r\n") && text.endsWith("] ERR file\r\n")
                 && text.count("\r\n") == 2, text.constData());
}

// The queue takes every level; the threshold in force when it is flushed
// decides what reaches the file.
void TestNmLog::queueThenFlush()
{
    nm_log_set_mode(NM_LOG_MODE_QUEUE);
    nm_log_set_queueing(1);
    NM_LOG(NM_LOG_ERR, "early %s", "one");
    NM_LOG(NM_LOG_DBG, "debug");
    NM_LOG(NM_LOG_TRACE, "trace");
    NM_LOG(NM_LOG_WARN, "early two");
    QCOMPARE(logText(), QByteArray());
    nm_log_set_mode(NM_LOG_MODE_FILE);
    nm_log_set_level(NM_LOG_DBG);
    QCOMPARE(nm_log_flush_queue(), 0u);
    const QByteArray text = logText();
    const int one = text.indexOf("] ERR early one\r\n"), debug = text.indexOf("] DBG debug\r\n"),
              two = text.indexOf("] LOG early two\r\n");
    QVERIFY2(one > 0 && one < debug && debug < two, text.constData());
    QVERIFY(!text.contains("trace"));
}

void TestNmLog::refusesUnknownModeAndNoFile()
{
    QCOMPARE(nm_log_set_mode(7), 22u);
    QCOMPARE(NM_LOG(NM_LOG_ERR, "lost"), 22u);
    nm_log_reset(); // no file open
    QCOMPARE(NM_LOG(NM_LOG_ERR, "nowhere"), 22u);
}

// Threads log at once across change-overs: every line stays whole, and each
// thread's lines, repeats counted in, are all there and in order.
void TestNmLog::threadsWriteWholeLines()
{
    nm_log_set_max_size(20000);
    const int threads = 4, lines = 1500;
    std::vector<std::thread> pool;
    QVector<uint32_t> ids(threads);
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([t, &ids] {
            ids[t] = nm_thread_id();
            for (int i = 0; i < lines; ++i) {
                if (i % 3 == 2)
                    NM_LOG(NM_LOG_ERR, "thread %d same", t);
                else
                    NM_LOG(NM_LOG_ERR, "thread %d line %d %s", t, i, "padding padding padding padding");
            }
        });
    }
    for (std::thread &thread : pool)
        thread.join();

    QByteArray all;
    int files = 0;
    for (QByteArray part; !(part = logText(files + 1)).isEmpty(); ++files)
        all += part;
    QVERIFY(files > 3);
    const QRegularExpression line(QString("^.{23} \\[%1-([0-9a-f]+)\\] ERR thread (\\d) (?:same|line (\\d+) padding( padding){3})$")
                                      .arg(getpid(), 0, 16));
    const QRegularExpression repeat("^Last message repeated (\\d+) times$");
    QVector<int> counts(threads), next(threads);
    int last = -1;
    for (const QString &l : QString::fromUtf8(all).split("\r\n", Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch r = repeat.match(l);
        if (r.hasMatch() && last >= 0) {
            counts[last] += r.captured(1).toInt();
            continue;
        }
        const QRegularExpressionMatch m = line.match(l);
        QVERIFY2(m.hasMatch(), qPrintable(l));
        last = m.captured(2).toInt();
        QCOMPARE(m.captured(1).toUInt(nullptr, 16), ids[last]);
        ++counts[last];
        if (!m.captured(3).isEmpty()) {
            QVERIFY2(m.captured(3).toInt() >= next[last], qPrintable(l));
            next[last] = m.captured(3).toInt() + 1;
        }
    }
    QCOMPARE(counts, QVector<int>(threads, lines));
}

void TestNmLog::nothingThrowsWithoutMemory()
{
    nm_log_set_max_size(1000);
    const QByteArray filler(1000, 'f');
    const QByteArray dir = m_dir.path().toUtf8();
    QVector<uint32_t> results;
    t_failAllocations = true;
    for (int i = 0; i < 70; ++i) // the change-over after 64 KiB needs memory
        results << NM_LOG(NM_LOG_ERR, "%d %s", i, filler.constData());
    const uint32_t opened = nm_log_open(dir.constData(), "test.log");
    nm_log_set_mode(NM_LOG_MODE_QUEUE);
    nm_log_set_queueing(1);
    const uint32_t queued = NM_LOG(NM_LOG_ERR, "queued");
    t_failAllocations = false;
    QCOMPARE(results.count(0u), 69);
    QCOMPARE(results.count(8u), 1);
    QCOMPARE(opened, 8u);
    QCOMPARE(queued, 8u);

    // Every lock was let go: the writer works on as before.
    nm_log_set_mode(NM_LOG_MODE_FILE);
    QCOMPARE(nm_log_flush_queue(), 0u);
    QCOMPARE(nm_log_open(dir.constData(), "test.log"), 0u);
    QCOMPARE(NM_LOG(NM_LOG_ERR, "after"), 0u);
    QVERIFY(logText(1).endsWith("ERR after\r\n"));
}

int main(int argc, char **argv)
{
    // Heads show local time: a zone far from UTC tells the two apart.
    setenv("TZ", "NPT-5:45", 1);
    tzset();
    TestNmLog test;
    return QTest::qExec(&test, argc, argv);
}
#include "test_nmlog.moc"
