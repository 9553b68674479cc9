#include <QSet>
#include <QTemporaryDir>

#include "EngineTestSupport.h"

using namespace engine_test;

class TestManager : public QObject
{
    Q_OBJECT

    static QStringList envelopes(const QTemporaryDir &dir, int count, quint64 size)
    {
        QStringList paths;
        for (int i = 0; i < count; ++i)
            paths << patternEnvelope(dir.filePath(QStringLiteral("f%1.nimbra-env").arg(i)), size);
        return paths;
    }

private slots:
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void threadCount_data()
    {
        QTest::addColumn<int>("asked");
        QTest::addColumn<int>("used");
        QTest::newRow("eight") << 8 << 8;
        QTest::newRow("sixteen") << 16 << 1;
        QTest::newRow("zero") << 0 << 1;
    }

    void threadCount()
    {
        QFETCH(int, asked);
        QFETCH(int, used);
        DecryptManager manager;
        manager.onChangeNumThreads(asked);
        QCOMPARE(manager.threadsInUse(), used);
    }

    void addSkipsPendingDuplicatesOnly()
    {
        DecryptManager manager;
        QCOMPARE(manager.addFiles({"/a", "/a", "/A"}), 2);
        QCOMPARE(manager.addFiles({"/a", "/b"}), 1);
        QCOMPARE(manager.pendingPaths(), QStringList({"/a", "/A", "/b"}));
        QCOMPARE(manager.totalCount(), 3);
        QSignalSpy started(&manager, &DecryptManager::started);
        QVERIFY(manager.clearPending());
        manager.start(QStringLiteral("pw")); // nothing pending: no batch
        QVERIFY(!manager.isRunning());
        QCOMPARE(started.count(), 0);
    }

    void batchKeepsToTheThreadCount()
    {
        QTemporaryDir dir;
        const QStringList paths = envelopes(dir, 6, 256 << 10);
        DecryptManager manager;
        manager.onChangeNumThreads(2);
        int mostBusy = 0;
        bool idleAtAllFinished = true;
        connect(&manager, qOverload<const CryptTask *>(&DecryptManager::statsChanged), this,
                [&] { mostBusy = qMax(mostBusy, manager.runningCount()); });
        connect(&manager, &DecryptManager::allFinished, this,
                [&] { idleAtAllFinished &= manager.runningCount() == 0; });
        QSignalSpy started(&manager, &DecryptManager::started);
        QSignalSpy allFinished(&manager, &DecryptManager::allFinished);
        QSignalSpy task(&manager, qOverload<const CryptTask *>(&DecryptManager::statsChanged));
        QSignalSpy lists(&manager, qOverload<>(&DecryptManager::statsChanged));
        runBatch(manager, paths);

        QCOMPARE(started.count(), 1);
        QCOMPARE(started.first().first().toInt(), 6);
        QTRY_VERIFY(allFinished.count() >= 1);
        QVERIFY(idleAtAllFinished);
        QTRY_VERIFY(lists.count() >= 2); // the additions, then the dispatcher's end
        QVERIFY(mostBusy <= 2);
        QCOMPARE(manager.finishedCount(), 6);
        QSet<int> workers;
        QSet<const CryptTask *> announced;
        for (const QList<QVariant> &args : qAsConst(task))
            announced << args.first().value<const CryptTask *>();
        for (CryptTask *done : manager.finishedTasks()) {
            workers << done->workerIndex();
            QVERIFY(announced.contains(done));
            QCOMPARE(readFile(done->outputPath()).size(), 256 << 10);
        }
        QVERIFY(workers.size() <= 2 && !workers.contains(2));
        QVERIFY(workers.contains(0));
    }

    void stopPutsRunningFilesFirst()
    {
        QTemporaryDir dir;
        QStringList paths;
        for (int i = 0; i < 5; ++i)
            paths << sparseEnvelope(dir.filePath(QStringLiteral("f%1.nimbra-env").arg(i)),
                                    qint64(1) << 30);
        DecryptManager manager;
        manager.onChangeNumThreads(2);
        QSet<QString> ran;
        connect(&manager, qOverload<const CryptTask *>(&DecryptManager::statsChanged), this,
                [&](const CryptTask *task) {
                    ran << task->addedPath();
                    manager.stop();
                });
        runBatch(manager, paths);

        const QStringList pending = manager.pendingPaths();
        QCOMPARE(pending.size(), 5);
        // Cancelled files first, then those never started in their order.
        int firstUntouched = 0;
        while (firstUntouched < pending.size() && ran.contains(pending[firstUntouched]))
            ++firstUntouched;
        QVERIFY(firstUntouched >= 1 && firstUntouched <= 2);
        const QStringList untouched = pending.mid(firstUntouched);
        QCOMPARE(untouched, paths.mid(paths.size() - untouched.size()));
        for (const QString &path : pending)
            QVERIFY2(!QFile::exists(path.chopped(11)), qPrintable(path));
    }

    void guardedEditsRefusedDuringBatch()
    {
        QTemporaryDir dir;
        DecryptManager manager;
        runBatch(manager, {envelope(dir.filePath("good.nimbra-env"), "a"),
                           envelope(dir.filePath("bad.nimbra-env"), "b", "other")});
        QCOMPARE(manager.failedCount(), 1);
        manager.addFiles({patternEnvelope(dir.filePath("next.nimbra-env"), 1 << 20)});
        const QStringList pending = manager.pendingPaths();
        manager.start(QString::fromLatin1(kPassphrase));
        QVERIFY(pinBusy(manager));

        QSignalSpy error(&manager, &DecryptManager::error);
        const QString refusal = QStringLiteral("Cannot perform operations during decryption.");
        QCOMPARE(manager.addFiles({dir.filePath("x")}), 0);
        QVERIFY(!manager.clearFinished());
        QVERIFY(!manager.clearFailed());
        QVERIFY(!manager.clearPending());
        QVERIFY(!manager.clearAll());
        QVERIFY(!manager.reloadFailed());
        QVERIFY(!manager.deleteEncrypted());
        QCOMPARE(error.count(), 7);
        for (const QList<QVariant> &args : qAsConst(error))
            QCOMPARE(args.first().toString(), refusal);
        manager.start(QString::fromLatin1(kPassphrase));
        QCOMPARE(manager.lastMessage(), QStringLiteral("Decryption already in progress."));
        QCOMPARE(manager.finishedCount(), 1);
        QCOMPARE(manager.failedCount(), 1);
        QCOMPARE(manager.totalCount(), 3);
        QVERIFY(QFile::exists(dir.filePath("good.nimbra-env")));
        QVERIFY(waitIdle(manager));
        QCOMPARE(manager.finishedCount(), 2);
        QVERIFY(pending.size() == 1 && manager.pendingCount() == 0);
    }

    void reloadFailedRequeuesTheirPaths()
    {
        QTemporaryDir dir;
        DecryptManager manager;
        QVERIFY(!manager.reloadFailed());
        QCOMPARE(manager.lastMessage(), QStringLiteral("Failed list is empty."));
        const QStringList bad = {envelope(dir.filePath("1.nimbra-env"), "1", "no"),
                                 dir.filePath("missing.nimbra-env"),
                                 envelope(dir.filePath("3.nimbra-env"), "3", "no")};
        runBatch(manager, bad);
        QCOMPARE(manager.failedCount(), 3);
        manager.addFiles({dir.filePath("waiting")});
        QVERIFY(manager.reloadFailed());
        QCOMPARE(manager.failedCount(), 0);
        QCOMPARE(manager.pendingPaths(), QStringList(dir.filePath("waiting")) + bad);
    }
};

QTEST_GUILESS_MAIN(TestManager)
#include "test_manager.moc"
