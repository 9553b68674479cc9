#include <nmplatform/nmsynchron.h>

#include <QtTest>

#include <atomic>
#include <thread>

namespace {
std::atomic<uint32_t> g_reacquiredBy{0};
void onReacquire(uint32_t owner) { g_reacquiredBy = owner; }
} // namespace

class TestNmSynchron : public QObject
{
    Q_OBJECT
private slots:
    void releaseByNonOwner_data();
    void releaseByNonOwner();
    void reacquire_data();
    void reacquire();
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
    std::thread([&] { result = nm_mutex_release(&m); }).join();
    QCOMPARE(result, NM_MUTEX_NOT_OWNER);
    QCOMPARE(m.owner, owner);

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
    nm_mutex_set_reacquire_handler(nullptr);
    nm_mutex_destroy(&m);
}

QTEST_APPLESS_MAIN(TestNmSynchron)
#include "test_nmsynchron.moc"
