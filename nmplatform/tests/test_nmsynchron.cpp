#include <nmplatform/nmsynchron.h>

#include "nmtest.h"

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

} // namespace

class TestNmSynchron : public QObject
{
    Q_OBJECT
private slots:
    void ownership_data()
    {
        QTest::addColumn<int>("recursive");
        QTest::newRow("non-recursive") << 0;
        QTest::newRow("recursive") << 1;
    }

    // A second acquisition nests or is refused through the handler; a
    // non-owner's release is refused; once released for good, the mutex is
    // free for its last owner too. A release the lock refuses keeps the owner.
    void ownership()
    {
        QFETCH(int, recursive);
        nm_mutex_set_reacquire_handler(onReacquire);
        g_reacquiredBy = 0;
        nm_mutex_t m;
        QCOMPARE(nm_mutex_init(&m, recursive), 0u);
        QCOMPARE(nm_mutex_acquire(&m), 0u);
        QCOMPARE(nm_mutex_acquire(&m), recursive ? 0u : NM_MUTEX_REACQUIRED);
        QCOMPARE(g_reacquiredBy.load(), recursive ? 0u : nm_thread_id());
        nmtestCaptureLog();
        uint32_t result = 0;
        std::thread([&] { result = nm_mutex_release(&m); }).join();
        QCOMPARE(result, NM_MUTEX_NOT_OWNER);
        for (int i = 0; i <= recursive; ++i)
            QCOMPARE(nm_mutex_release(&m), 0u);
        QCOMPARE(nm_mutex_acquire(&m), 0u);
        QCOMPARE(nm_mutex_release(&m), 0u);
        nm_mutex_set_reacquire_handler(nullptr);
        m.owner = nm_thread_id(); // a record that went wrong: the lock isn't held
        QCOMPARE(nm_mutex_release(&m), uint32_t(EPERM));
        QCOMPARE(m.owner, nm_thread_id());
        nm_log_reset();
        g_logged.replaceInStrings(QRegularExpression("0x[0-9a-f]{4,}"), "p"); // the lock's address
        QCOMPARE(g_logged, QStringList({"3 Attempt to release mutex by non-owner thread",
                                        "3 nm_mutex_release failed. err=1 &m->mutex=p, m->mutex=0x0"}));
        QCOMPARE(nm_mutex_destroy(&m), 0u);
    }

    // Without a handler the attempt is logged and traps, here in a child process
    // whose log goes to standard error, a file.
    void reacquireTrapsByDefault()
    {
        QTemporaryFile log;
        QVERIFY(log.open());
        const pid_t pid = fork();
        if (pid == 0) {
            const rlimit noCore{0, 0};
            setrlimit(RLIMIT_CORE, &noCore);
            dup2(log.handle(), 2);
            nm_log_set_stderr_only(1);
            nm_mutex_t m;
            nm_mutex_init(&m, 0);
            nm_mutex_acquire(&m);
            _exit(int(nm_mutex_acquire(&m) % 256));
        }
        int status = -1;
        waitpid(pid, &status, 0);
        QVERIFY2(WIFSIGNALED(status) && WTERMSIG(status) == SIGTRAP, qPrintable(QString::number(status, 16)));
        QVERIFY(log.seek(0));
        const QByteArray text = log.readAll();
        QVERIFY2(text.startsWith("ERR nm_mutex_acquire: attempt to reacquire non-recursive mutex.  Aborting.\r\nERR "),
                 text.constData());
    }
};

QTEST_APPLESS_MAIN(TestNmSynchron)
#include "test_nmsynchron.moc"
