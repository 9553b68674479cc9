#include <nmplatform/nmlog.h>
#include <nmplatform/nmsynchron.h>

#include <QtTest>

#include <atomic>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

std::atomic<uint32_t> g_reacquiredBy{0};
void onReacquire(uint32_t owner) { g_reacquiredBy = owner; }

QStringList g_logged;
void captureLog(uint32_t level, const char *, int, const char *format, va_list args)
{
    char text[512];
    vsnprintf(text, sizeof text, format, args);
    g_logged << QString("%1 %2").arg(level).arg(QString::fromUtf8(text));
}

// Runs body in a child process with its standard error (where the log goes)
// captured; returns the child's wait status.
int runInChild(void (*body)(), QByteArray *output)
{
    int pipeFds[2];
    if (pipe(pipeFds) != 0)
        return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        const rlimit noCore{0, 0};
        setrlimit(RLIMIT_CORE, &noCore);
        dup2(pipeFds[1], 2);
        nm_log_set_stderr_only(1);
        body();
        _exit(0);
    }
    ::close(pipeFds[1]);
    char buf[4096];
    for (ssize_t n; (n = ::read(pipeFds[0], buf, sizeof buf)) > 0;)
        output->append(buf, int(n));
    ::close(pipeFds[0]);
    int status = -1;
    waitpid(pid, &status, 0);
    return status;
}

void reacquireTwice()
{
    nm_mutex_t m;
    nm_mutex_init(&m, 0);
    nm_mutex_acquire(&m);
    _exit(int(nm_mutex_acquire(&m) % 256));
}

} // namespace

class TestNmSynchron : public QObject
{
    Q_OBJECT
private slots:
    void releaseByNonOwner_data();
    void releaseByNonOwner();
    void reacquire_data();
    void reacquire();
    void reacquireTrapsByDefault();
    void failedReleaseKeepsOwner();
};

void TestNmSynchron::releaseByNonOwner_data()
{
    QTest::addColumn<int>("recursive");
    QTest::newRow("non-recursive") << 0;
    QTest::newRow("recursive") << 1;
}

void TestNmSynchron::releaseByNonOwner()
{
    QFETCH(int, recursive);
    nm_mutex_t m;
    QCOMPARE(nm_mutex_init(&m, recursive), 0u);
    QCOMPARE(nm_mutex_acquire(&m), 0u);
    const uint32_t owner = nm_thread_id();

    uint32_t result = 0;
    nm_log_set_mode(NM_LOG_MODE_CALLBACK);
    nm_log_set_callback(captureLog);
    g_logged.clear();
    std::thread([&] { result = nm_mutex_release(&m); }).join();
    nm_log_reset();
    QCOMPARE(result, NM_MUTEX_NOT_OWNER);
    QCOMPARE(m.owner, owner);
    QCOMPARE(g_logged, QStringList{"3 Attempt to release mutex by non-owner thread"});

    // Still locked: another thread can't take it.
    bool taken = true;
    std::thread([&] { taken = pthread_mutex_trylock(&m.lock) == 0; }).join();
    QVERIFY(!taken);

    QCOMPARE(nm_mutex_release(&m), 0u);
    std::thread([&] {
        result = nm_mutex_acquire(&m);
        if (result == 0)
            result = nm_mutex_release(&m);
    }).join();
    QCOMPARE(result, 0u);
    QCOMPARE(nm_mutex_destroy(&m), 0u);
}

void TestNmSynchron::reacquire_data()
{
    QTest::addColumn<int>("recursive");
    QTest::addColumn<uint>("second");
    QTest::newRow("non-recursive refuses") << 0 << NM_MUTEX_REACQUIRED;
    QTest::newRow("recursive nests") << 1 << 0u;
}

void TestNmSynchron::reacquire()
{
    QFETCH(int, recursive);
    QFETCH(uint, second);
    nm_mutex_set_reacquire_handler(onReacquire);
    g_reacquiredBy = 0;
    nm_mutex_t m;
    nm_mutex_init(&m, recursive);
    QCOMPARE(nm_mutex_acquire(&m), 0u);
    QCOMPARE(nm_mutex_acquire(&m), second);
    QCOMPARE(g_reacquiredBy.load(), second ? nm_thread_id() : 0u);
    if (second == 0)
        QCOMPARE(nm_mutex_release(&m), 0u);
    QCOMPARE(nm_mutex_release(&m), 0u);
    // Released for good: the same thread takes it again.
    QCOMPARE(nm_mutex_acquire(&m), 0u);
    QCOMPARE(nm_mutex_release(&m), 0u);
    nm_mutex_set_reacquire_handler(nullptr);
    nm_mutex_destroy(&m);
}

void TestNmSynchron::reacquireTrapsByDefault()
{
    QByteArray log;
    const int status = runInChild(reacquireTwice, &log);
    QVERIFY2(WIFSIGNALED(status) && WTERMSIG(status) == SIGTRAP, qPrintable(QString::number(status, 16)));
    QVERIFY2(log.startsWith("ERR nm_mutex_acquire: attempt to reacquire non-recursive mutex.  Aborting.\r\nERR "),
             log.constData());
}

void TestNmSynchron::failedReleaseKeepsOwner()
{
    nm_log_set_mode(NM_LOG_MODE_CALLBACK);
    nm_log_set_callback(captureLog);
    g_logged.clear();
    nm_mutex_t m;
    nm_mutex_init(&m, 0);
    m.owner = nm_thread_id(); // a record that went wrong: the lock isn't held
    QCOMPARE(nm_mutex_release(&m), uint32_t(EPERM));
    QCOMPARE(m.owner, nm_thread_id());
    nm_log_reset();
    QCOMPARE(g_logged.size(), 1);
    const QRegularExpression line("^3 nm_mutex_release failed\\. err=1 &m->mutex=0x[0-9a-f]+, m->mutex=0x0$");
    QVERIFY2(line.match(g_logged[0]).hasMatch(), qPrintable(g_logged[0]));
    m.owner = 0;
    nm_mutex_destroy(&m);
}

QTEST_APPLESS_MAIN(TestNmSynchron)
#include "test_nmsynchron.moc"
