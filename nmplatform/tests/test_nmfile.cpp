#include <nmplatform/nmfile.h>
#include <nmplatform/nmlog.h>

#include <QtTest>

#include <errno.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace {

// A read that fails with g_errno for the first g_failures calls.
int g_calls = 0;
int g_failures = 0;
int g_errno = 0;
long failingRead(intptr_t, void *buffer, size_t size)
{
    if (g_calls++ < g_failures) {
        errno = g_errno;
        return -1;
    }
    memset(buffer, 'x', size < 5 ? size : 5);
    return size < 5 ? long(size) : 5;
}

// Each line as "<level> <text>".
QStringList g_logged;
void captureLog(uint32_t level, const char *, int, const char *format, va_list args)
{
    char text[512];
    vsnprintf(text, sizeof text, format, args);
    g_logged << QString("%1 %2").arg(level).arg(QString::fromUtf8(text));
}

QByteArray readAll(const QString &path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

} // namespace

class TestNmFile : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void openRefusals_data();
    void openRefusals();
    void readRetry_data();
    void readRetry();
    void readAtEnd();
    void appendTruncateAndStat();

private:
    QTemporaryDir m_dir;
    QByteArray path(const char *name) const { return m_dir.filePath(name).toUtf8(); }
};

void TestNmFile::init()
{
    g_logged.clear();
    nm_log_set_mode(NM_LOG_MODE_CALLBACK);
    nm_log_set_callback(captureLog);
    nm_log_set_level(5);
}

void TestNmFile::cleanup()
{
    nm_file_set_read_fn(nullptr);
    nm_log_reset();
}

void TestNmFile::openRefusals_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<uint>("flags");
    QTest::addColumn<uint>("result");
    QTest::newRow("no access bits") << QByteArray("new") << 256u << 22u;
    QTest::newRow("line feed") << QByteArray("a\nb") << 258u << 22u;
    QTest::newRow("missing without open-always") << QByteArray("missing") << 17u << uint(ENOENT);
    QTest::newRow("directory") << QByteArray(".") << 17u << uint(EISDIR);
}

void TestNmFile::openRefusals()
{
    QFETCH(QByteArray, name);
    QFETCH(uint, flags);
    QFETCH(uint, result);
    nm_file_t f;
    nm_file_init(&f);
    const QByteArray p = name == "." ? m_dir.path().toUtf8() : path(name.constData());
    QCOMPARE(nm_file_open(p.constData(), &f, flags), result);
    QVERIFY(!nm_file_is_open(&f));
    QVERIFY(name == "." || !QFile::exists(QString::fromUtf8(p))); // nothing created
}

void TestNmFile::readRetry_data()
{
    QTest::addColumn<int>("err");
    QTest::addColumn<int>("failures");
    QTest::addColumn<uint>("result");
    QTest::addColumn<int>("calls");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<qint64>("handle");
    const QString retry = "1 nm_fileread: resource error %1, retrying after %2 ms";
    QTest::newRow("ENOMEM twice") << ENOMEM << 2 << 0u << 3
                                  << QStringList{retry.arg(ENOMEM).arg(0), retry.arg(ENOMEM).arg(0)} << qint64(1234);
    QStringList ten;
    for (int i = 0; i < 10; ++i)
        ten << retry.arg(EAGAIN).arg(i < 5 ? 0 : 10);
    QTest::newRow("EAGAIN ten times") << EAGAIN << 10 << 0u << 11 << ten << qint64(1234);
    QTest::newRow("ENOBUFS eleven times") << ENOBUFS << 11 << uint(ENOBUFS) << 11
                                          << (QStringList(ten).replaceInStrings(QString::number(EAGAIN), QString::number(ENOBUFS))
                                              << QString("1 nm_fileread: ReadFile failed. error=%1").arg(ENOBUFS)) << qint64(1234);
    QTest::newRow("EINTR at once, silently") << EINTR << 20 << 0u << 21 << QStringList() << qint64(1234);
    QTest::newRow("EIO not retried") << EIO << 1 << uint(EIO) << 1
                                     << QStringList{QString("1 nm_fileread: ReadFile failed. error=%1").arg(EIO)} << qint64(1234);
    QTest::newRow("EPIPE is the end") << EPIPE << 1 << 0u << 1 << QStringList() << qint64(1234);
    QTest::newRow("closed object never reaches the system")
        << 0 << 0 << uint(EBADF) << 0 << QStringList{QString("1 nm_fileread: ReadFile failed. error=%1").arg(EBADF)}
        << qint64(NM_FILE_CLOSED);
}

void TestNmFile::readRetry()
{
    QFETCH(int, err);
    QFETCH(int, failures);
    QFETCH(uint, result);
    QFETCH(int, calls);
    QFETCH(QStringList, log);
    QFETCH(qint64, handle);
    g_calls = 0;
    g_failures = failures;
    g_errno = err;
    nm_file_set_read_fn(failingRead);
    nm_file_t f;
    f.handle = intptr_t(handle); // never reaches the system
    char buf[16];
    size_t count = 99;
    QCOMPARE(nm_file_read(&f, buf, sizeof buf, &count), result);
    QCOMPARE(g_calls, calls);
    QCOMPARE(count, size_t(result == 0 && calls > failures ? 5 : 0));
    QCOMPARE(g_logged, log);
}

void TestNmFile::readAtEnd()
{
    QFile file(m_dir.filePath("three"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("abc");
    file.close();
    nm_file_t f;
    QCOMPARE(nm_file_open_read(path("three").constData(), &f), 0u);
    QByteArray buf(8, '#'); // bytes past the size asked for stay untouched
    size_t count = 0;
    QCOMPARE(nm_file_read(&f, buf.data(), 2, &count), 0u);
    QCOMPARE(count, size_t(2));
    QCOMPARE(buf, QByteArray("ab######"));
    QCOMPARE(nm_file_seek(&f, -1, 1), 0u);
    QCOMPARE(nm_file_read(&f, buf.data(), buf.size(), &count), 0u);
    QCOMPARE(buf.left(int(count)), QByteArray("bc"));
    QCOMPARE(nm_file_read(&f, buf.data(), buf.size(), &count), 0u);
    QCOMPARE(count, size_t(0));
    QCOMPARE(nm_file_seek(&f, 0, 0), 0u);
    QCOMPARE(nm_file_seek(&f, -1, 2), 0u);
    QCOMPARE(nm_file_read(&f, buf.data(), buf.size(), &count), 0u);
    QCOMPARE(buf.left(int(count)), QByteArray("c"));
    QCOMPARE(nm_file_seek(&f, -10, 0), uint(EINVAL));
    QCOMPARE(g_logged, QStringList{QString("1 nm_file_seek: SetFilePointerEx failed, error=%1").arg(EINVAL)});
    QCOMPARE(nm_file_close(&f), 0u);

    nm_file_stat_t st;
    QCOMPARE(nm_file_open_read_stat(path("three").constData(), &f, &st), 0u);
    QCOMPARE(st.size, uint64_t(3));
    QCOMPARE(nm_file_read_at(&f, 1, buf.data(), buf.size(), &count), 0u);
    QCOMPARE(buf.left(int(count)), QByteArray("bc"));
    QCOMPARE(nm_file_read_at(&f, 3, buf.data(), buf.size(), &count), 0u);
    QCOMPARE(count, size_t(0));
    QCOMPARE(nm_file_close(&f), 0u);
    QCOMPARE(nm_file_open_read_stat(m_dir.path().toUtf8().constData(), &f, &st), uint(EISDIR));
    QVERIFY(!nm_file_is_open(&f));
}

void TestNmFile::appendTruncateAndStat()
{
    nm_file_t f;
    size_t n = 0;
    for (const char *text : {"one ", "two"}) {
        QCOMPARE(nm_file_open_append(path("log").constData(), &f), 0u);
        QCOMPARE(nm_file_write(&f, text, strlen(text), &n), 0u);
        QCOMPARE(n, strlen(text));
        QCOMPARE(nm_file_close(&f), 0u);
    }
    QCOMPARE(readAll(m_dir.filePath("log")), QByteArray("one two"));

    // Every field from its own source: times and link count made distinct.
    const timeval times[2] = {{1000000000, 0}, {1500000000, 0}};
    QCOMPARE(utimes(path("log").constData(), times), 0);
    QCOMPARE(nm_file_link(path("log").constData(), path("link").constData()), 0u);
    struct stat sys;
    QCOMPARE(::stat(path("log").constData(), &sys), 0);
    QCOMPARE(nm_file_open(path("log").constData(), &f, NM_FILE_READ | NM_FILE_WRITE), 0u);
    nm_file_stat_t st;
    memset(&st, 0xff, sizeof st);
    QCOMPARE(nm_file_stat(&f, &st), 0u);
    QCOMPARE(st.id, uint64_t(sys.st_ino));
    QCOMPARE(st.size, uint64_t(7));
    QCOMPARE(st.reserved, uint64_t(0));
    QCOMPARE(st.type, uint32_t(NM_FILE_TYPE_REGULAR));
    QCOMPARE(st.mode, uint32_t(sys.st_mode));
    QCOMPARE(st.uid, uint32_t(sys.st_uid));
    QCOMPARE(st.gid, uint32_t(sys.st_gid));
    QCOMPARE(st.ctime, int64_t(sys.st_ctime));
    QCOMPARE(st.mtime, int64_t(1500000000));
    QCOMPARE(st.atime, int64_t(1000000000));
    QCOMPARE(st.nlink, uint32_t(2));
    QCOMPARE(st.reserved2[0] | st.reserved2[1], uint32_t(0));
    QCOMPARE(nm_file_stat(&f, nullptr), 22u);
    QCOMPARE(g_logged.value(0), QString("5 nm_file_setstat called with null pointer."));
    nm_file_close(&f);
    QCOMPARE(nm_file_delete(path("link").constData()), 0u);

    QCOMPARE(nm_file_open(path("log").constData(), &f, NM_FILE_WRITE | NM_FILE_TRUNCATE), 0u);
    nm_file_close(&f);
    QCOMPARE(readAll(m_dir.filePath("log")), QByteArray());

    QCOMPARE(nm_file_link(path("log").constData(), path("log").constData()), uint(EEXIST));
    QCOMPARE(nm_file_delete(path("log").constData()), 0u);
    QCOMPARE(nm_file_delete(path("log").constData()), uint(ENOENT));
    QCOMPARE(nm_file_close(&f), 0u); // closing a closed object succeeds
    QCOMPARE(nm_file_flush(&f), 22u);
}

QTEST_APPLESS_MAIN(TestNmFile)
#include "test_nmfile.moc"
