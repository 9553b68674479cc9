// The file layer: files, and the folder listing.
#include <nmplatform/nmdir.h>
#include <nmplatform/nmfile.h>
#include <nmplatform/nmstatus.h>

#include "nmtest.h"

#include <QtTest>

#include <errno.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/time.h>

namespace {

// A read that fails with g_errno for the first g_failures calls, then reads 5 bytes.
int g_calls = 0, g_failures = 0, g_errno = 0;
long failingRead(intptr_t, void *buffer, size_t)
{
    if (g_calls++ < g_failures)
        return errno = g_errno, -1;
    memset(buffer, 'x', 5);
    return 5;
}

QByteArray readAll(const char *path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

// A read failing failures times with err: its result, and the system reads it made.
struct RetryCase {
    int err, failures;
    uint result;
    int calls;
};

} // namespace

Q_DECLARE_METATYPE(RetryCase)

// Runs in a temporary folder, so that names are paths.
class TestNmFile : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QVERIFY(QDir::setCurrent(m_dir.path())); }
    void init() { nmtestCaptureLog(); }
    void cleanup() { nm_log_reset(); }

    // Refused opens leave the object closed and create nothing.
    void openRefusals()
    {
        nm_file_t f;
        QCOMPARE(nm_file_open("new", &f, NM_FILE_OPEN_ALWAYS), 22u); // no access asked for
        QCOMPARE(nm_file_open("missing", &f, NM_FILE_FLAGS_READ), uint(ENOENT));
        QCOMPARE(nm_file_open("..", &f, NM_FILE_FLAGS_READ), uint(EISDIR));
        QVERIFY(!nm_file_is_open(&f));
        QVERIFY(!QFile::exists("new") && !QFile::exists("missing"));
    }

    void readRetry_data()
    {
        QTest::addColumn<RetryCase>("c");
        QTest::newRow("EAGAIN ten times") << RetryCase{EAGAIN, 10, 0, 11};
        QTest::newRow("ENOBUFS eleven times") << RetryCase{ENOBUFS, 11, ENOBUFS, 11};
        QTest::newRow("EINTR at once, silently") << RetryCase{EINTR, 20, 0, 21};
        QTest::newRow("EPIPE is the end") << RetryCase{EPIPE, 1, 0, 1};
    }

    // Transient shortages are retried ten times, the first five at once.
    void readRetry()
    {
        QFETCH(RetryCase, c);
        const auto [err, failures, result, calls] = c;
        g_calls = 0, g_failures = failures, g_errno = err;
        nm_file_set_read_fn(failingRead);
        nm_file_t f{1234};
        char buf[16];
        size_t count = 99;
        QCOMPARE(nm_file_read(&f, buf, sizeof buf, &count), result);
        nm_file_set_read_fn(nullptr);
        QCOMPARE(g_calls, calls);
        QCOMPARE(count, size_t(result == 0 && calls > failures ? 5 : 0));
        QStringList log;
        for (int i = 0; i < qMin(failures, 10) && (err == EAGAIN || err == ENOBUFS); ++i)
            log << QString("1 nm_fileread: resource error %1, retrying after %2 ms").arg(err).arg(i < 5 ? 0 : 10);
        if (result)
            log << QString("1 nm_fileread: ReadFile failed. error=%1").arg(result);
        QCOMPARE(g_logged, log);
    }

    // Every origin, the end of the file, and the bytes past the size asked for untouched.
    void readAndSeek()
    {
        std::ofstream("three") << "abc";
        nm_file_t f;
        QCOMPARE(nm_file_open_read("three", &f), 0u);
        QByteArray buf(8, '#');
        size_t count = 0;
        QCOMPARE(nm_file_read(&f, buf.data(), 2, &count), 0u);
        QCOMPARE(buf, QByteArray("ab######"));
        const struct { int64_t offset; int origin; const char *rest; } seeks[] = {
            {-1, 1, "bc"}, {0, 1, ""}, {-1, 2, "c"}, {1, 0, "bc"}};
        for (const auto &s : seeks) {
            QCOMPARE(nm_file_seek(&f, s.offset, s.origin), 0u);
            QCOMPARE(nm_file_read(&f, buf.data(), buf.size(), &count), 0u);
            QCOMPARE(buf.left(int(count)), QByteArray(s.rest));
        }
        QCOMPARE(nm_file_seek(&f, 0, 3), uint(EINVAL));
        QCOMPARE(g_logged, QStringList{"1 nm_file_seek: SetFilePointerEx failed, error=22"});
        QCOMPARE(nm_file_close(&f), 0u);
    }

    void appendTruncateAndStat()
    {
        nm_file_t f;
        size_t n = 0;
        for (const char *text : {"one ", "two"}) {
            QCOMPARE(nm_file_open_append("log", &f), 0u);
            QCOMPARE(nm_file_write(&f, text, strlen(text), &n), 0u);
            QCOMPARE(n, strlen(text));
            QCOMPARE(nm_file_close(&f), 0u);
        }
        QCOMPARE(readAll("log"), QByteArray("one two"));

        // Every field from its own source: times and link count made distinct.
        const timeval times[2] = {{1000000000, 0}, {1500000000, 0}};
        QCOMPARE(utimes("log", times), 0);
        QCOMPARE(nm_file_link("log", "link"), 0u);
        struct stat sys;
        QCOMPARE(::stat("log", &sys), 0);
        QCOMPARE(nm_file_open("log", &f, NM_FILE_READ | NM_FILE_WRITE), 0u);
        nm_file_stat_t st;
        memset(&st, 0xff, sizeof st);
        QCOMPARE(nm_file_stat(&f, &st), 0u);
        QCOMPARE(QVector<qint64>({qint64(st.id), qint64(st.size), qint64(st.reserved), st.type, st.mode, st.uid,
                                  st.gid, st.ctime, st.mtime, st.atime, st.nlink, st.reserved2[0], st.reserved2[1]}),
                 QVector<qint64>({qint64(sys.st_ino), 7, 0, NM_FILE_TYPE_REGULAR, sys.st_mode, sys.st_uid,
                                  sys.st_gid, sys.st_ctime, 1500000000, 1000000000, 2, 0, 0}));
        QCOMPARE(nm_file_stat(&f, nullptr), 22u);
        QCOMPARE(g_logged, QStringList{"5 nm_file_setstat called with null pointer."});
        nm_file_close(&f);
        // Opening a fifo that has no writer returns at once.
        QCOMPARE(mkfifo("fifo", 0600), 0);
        for (const char *name : {"/dev/null", "fifo"}) {
            QCOMPARE(nm_file_open_read_stat(name, &f, &st), 0u);
            QCOMPARE(st.type, uint32_t(name[0] == '/' ? NM_FILE_TYPE_CHARACTER : NM_FILE_TYPE_OTHER));
            nm_file_close(&f);
        }

        QCOMPARE(nm_file_open("log", &f, NM_FILE_WRITE | NM_FILE_TRUNCATE), 0u);
        nm_file_close(&f);
        QCOMPARE(readAll("link"), QByteArray());
        QCOMPARE(nm_file_flush(&f), 22u);
    }

    void listing_data()
    {
        QTest::addColumn<QStringList>("files");
        QTest::newRow("empty") << QStringList();
        QTest::newRow("several and hidden") << QStringList{".hidden", "a", "b b", "\xc3\xa9t\xc3\xa9"};
    }

    void listing()
    {
        QFETCH(QStringList, files);
        QTemporaryDir tmp;
        for (const QString &name : files)
            QVERIFY(QFile(tmp.filePath(name)).open(QIODevice::WriteOnly));
        nm_dir_t dir;
        QCOMPARE(nm_dir_open(tmp.path().toUtf8().constData(), &dir), 0u);
        QCOMPARE(dir.state, uint32_t(files.isEmpty() ? NM_DIR_EMPTY : NM_DIR_HELD));
        QStringList seen;
        nm_dir_entry_t entry;
        uint32_t rc;
        while ((rc = nm_dir_read(&dir, &entry)) == 0)
            seen << QString::fromUtf8(entry.name);
        QCOMPARE(rc, uint32_t(NM_E_END_OF_DIRECTORY));
        seen.sort();
        files.sort();
        QCOMPARE(seen, files);
        QCOMPARE(nm_dir_close(&dir), 0u);
        QCOMPARE(nm_dir_close(&dir), 22u);
    }

    // A failed open leaves a closed cursor.
    void listingRefusals()
    {
        const std::pair<QByteArray, uint> rows[] = {{"/nonexistent/dir", ENOENT}, {"/dev/null", ENOTDIR},
                                                    {QByteArray(8189, 'a'), ENAMETOOLONG}, {QByteArray(8190, 'a'), 122}};
        for (const auto &[path, result] : rows) {
            nm_dir_t dir;
            nm_dir_entry_t entry;
            QCOMPARE(nm_dir_open(path.constData(), &dir), result);
            QVERIFY(nm_dir_read(&dir, &entry) != 0);
            QCOMPARE(nm_dir_close(&dir), 22u);
        }
    }

private:
    QTemporaryDir m_dir;
};

QTEST_APPLESS_MAIN(TestNmFile)
#include "test_nmfile.moc"
