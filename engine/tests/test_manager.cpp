#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>

#include "EngineTestSupport.h"

using namespace engine_test;

class TestManager : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

private slots:
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    // Two of eight workers: never more than two decrypting, workers 0 and 1,
    // every task announced, allFinished() once when nothing runs any more.
    // Then, in a second batch, every guarded edit is refused and changes
    // nothing, and a stop puts the running files back first, without outputs.
    void batchThenStop()
    {
        DecryptManager manager;
        const std::pair<int, int> counts[] = {{8, 8}, {16, 1}, {0, 1}, {2, 2}}; // asked, used
        for (const auto &[asked, used] : counts) {
            manager.onChangeNumThreads(asked);
            QCOMPARE(manager.threadsInUse(), used);
        }
        QStringList paths = {envelope(dir.filePath("bad.nimbra-env"), "b", "other")};
        for (int i = 0; i < 6; ++i)
            paths << envelope(dir.filePath(QString("f%1.nimbra-env").arg(i)), QByteArray(256 << 10, 'p'));
        QSignalSpy started(&manager, &DecryptManager::started);
        QSignalSpy lists(&manager, qOverload<>(&DecryptManager::statsChanged));
        bool idleAtEnd = false;
        connect(&manager, &DecryptManager::allFinished, this, [&] { idleAtEnd = !manager.isBusy(); });
        // Busy workers bound the Decrypting tasks. Sampled at every task report
        // (queued, as the window's connections are), and held at two for 20 ms
        // while no event is served, so that no worker can return.
        QSet<const void *> announced;
        int most = 0;
        const auto sample = [&](const CryptTask *t) { announced << t; most = qMax(most, manager.runningCount()); };
        connect(&manager, qOverload<const CryptTask *>(&DecryptManager::statsChanged), this, sample,
                Qt::QueuedConnection);
        QCOMPARE(manager.addFiles(paths), 7);
        QVERIFY(finishBatch(manager, [&] {
            while (manager.runningCount() < 2)
                QThread::yieldCurrentThread();
            QThread::msleep(20);
            most = manager.runningCount();
        }));
        QVERIFY(idleAtEnd && most == 2);
        QVERIFY(started.count() == 1 && started.first().first() == 7);
        QCOMPARE(lists.count(), 2); // the additions, then the dispatcher's end
        QVERIFY(manager.finishedCount() == 6 && announced.contains(manager.failedTasks().first()));
        QSet<int> workers = {manager.failedTasks().first()->workerIndex()};
        for (const CryptTask *done : manager.finishedTasks()) {
            workers << done->workerIndex();
            QVERIFY(announced.contains(done));
            QCOMPARE(readFile(done->outputPath()), QByteArray(256 << 10, 'p'));
        }
        QCOMPARE(workers, QSet<int>({0, 1}));

        paths.clear();
        for (int i = 0; i < 5; ++i)
            paths << sparseEnvelope(dir.filePath(QString("stop%1.nimbra-env").arg(i)));
        manager.addFiles(paths);
        QSignalSpy error(&manager, &DecryptManager::error);
        QVERIFY(finishBatch(manager, [&] {
            while (manager.runningCount() < 2) // no event is served, so no worker returns
                QThread::yieldCurrentThread();
            QCOMPARE(manager.addFiles({dir.filePath("x")}), 0);
            QVERIFY(!manager.clearFinished() && !manager.clearFailed() && !manager.clearPending());
            QVERIFY(!manager.clearAll() && !manager.reloadFailed() && !manager.deleteEncrypted());
            QCOMPARE(error.count(), 7);
            for (const QList<QVariant> &args : qAsConst(error))
                QCOMPARE(args.first().toString(), "Cannot perform operations during decryption.");
            manager.start(QString::fromLatin1(kPassphrase));
            QCOMPARE(manager.lastMessage(), QStringLiteral("Decryption already in progress."));
            QVERIFY(manager.pendingPaths() == paths.mid(2) && manager.totalCount() == 12);
            manager.stop();
        }));
        QVERIFY(manager.finishedCount() == 6 && manager.failedCount() == 1
                && QFile::exists(dir.filePath("f0.nimbra-env"))); // deleteEncrypted() was refused
        QStringList pending = manager.pendingPaths();
        std::sort(pending.begin(), pending.begin() + 2); // the two cancelled files, in either order
        QCOMPARE(pending, paths);
        for (const QString &path : paths)
            QVERIFY2(!QFile::exists(path.chopped(11)), qPrintable(path));
    }

    void listEdits()
    {
        DecryptManager manager;
        QSignalSpy started(&manager, &DecryptManager::started);
        QCOMPARE(manager.addFiles({"/a", "/a", "/A"}), 2);
        QCOMPARE(manager.addFiles({"/a", "/b"}), 1);
        QVERIFY(manager.pendingPaths() == QStringList({"/a", "/A", "/b"}) && manager.totalCount() == 3);
        QVERIFY(manager.clearPending() && manager.totalCount() == 0);
        manager.start(QStringLiteral("pw")); // nothing pending: no batch
        QVERIFY(!manager.isRunning() && started.isEmpty());
        QVERIFY(!manager.reloadFailed());
        QCOMPARE(manager.lastMessage(), QStringLiteral("Failed list is empty."));

        const QStringList bad = {envelope(dir.filePath("1.nimbra-env"), "1", "no"),
                                 dir.filePath("missing.nimbra-env"),
                                 envelope(dir.filePath("3.nimbra-env"), "3", "no")};
        manager.addFiles(bad + QStringList(envelope(dir.filePath("ok.nimbra-env"), "ok")));
        QVERIFY(finishBatch(manager));
        QCOMPARE(manager.failedCount(), 3);
        manager.addFiles({dir.filePath("waiting"), bad[1]});
        QVERIFY(manager.reloadFailed() && manager.failedCount() == 0);
        QCOMPARE(manager.pendingPaths(), QStringList({dir.filePath("waiting"), bad[1], bad[0], bad[2]}));

        QSignalSpy error(&manager, &DecryptManager::error);
        QVERIFY(manager.deleteEncrypted() && manager.finishedTasks().first()->isSourceDeleted());
        QVERIFY(error.isEmpty() && !QFile::exists(dir.filePath("ok.nimbra-env")));
        QVERIFY(!manager.deleteEncrypted()); // a second run finds nothing to delete
        QCOMPARE(manager.lastMessage(), "Could not remove file " + dir.filePath("ok.nimbra-env")
                                            + ". file does not exist.");
        QCOMPARE(readFile(dir.filePath("ok")), QByteArray("ok"));
    }

    // Where the plaintext goes, and after success the renames of a plain
    // input and the deletion of the envelope when the setting asks for it.
    void naming_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QStringList>("existing"); // "name/": a folder
        QTest::addColumn<int>("setting"); // delete: 0 off, 1 on, 2 on but the file vanished
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("message"); // %1: the source's path
        using L = QStringList;
        const QString x = "x.nimbra-env";
        QTest::newRow("free") << x << L() << 0 << "x" << "";
        QTest::newRow("upper case extension") << "a.NIMBRA-ENV" << L() << 0 << "a" << "";
        QTest::newRow("inner extension") << "r.pdf.nimbra-env" << L() << 0 << "r.pdf" << "";
        QTest::newRow("taken") << x << L{"x"} << 0 << "x(decrypted)" << "";
        QTest::newRow("taken by a folder") << x << L{"x/"} << 0 << "x(decrypted)" << "";
        QTest::newRow("marked name taken too") << x << L{"x", "x(decrypted)"} << 0 << "x(decrypted 2)" << "";
        QTest::newRow("marked name taken") << "x(decrypted).nimbra-env" << L{"x(decrypted)"} << 0
                                           << "x(decrypted 2)" << "";
        QTest::newRow("mark before last extension") << "a.b.nimbra-env" << L{"a.b"} << 0 << "a(decrypted).b" << "";
        QTest::newRow("plain input") << "p.JPG" << L() << 0 << "p.JPG" << "";
        QTest::newRow("plain, no extension") << "n" << L() << 0 << "n" << "";
        QTest::newRow("plain, input rename fails") << "t.txt" << L{"t.txt.nimbra-env"} << 0 << "t(decrypted).txt"
                                                   << "Could not rename input %1 to %1.nimbra-env";
        QTest::newRow("deleted") << x << L() << 1 << "x" << "";
        QTest::newRow("plain, deleted") << "d.txt" << L() << 1 << "d.txt" << "";
        QTest::newRow("vanished") << x << L() << 2 << "x" << "Could not remove file %1. Does not exist";
    }

    void naming()
    {
        QFETCH(QString, source);
        QFETCH(QStringList, existing);
        QFETCH(int, setting);
        QFETCH(QString, output);
        QFETCH(QString, message);
        QTemporaryDir tmp;
        const QString path = envelope(tmp.filePath(source), "plain");
        for (const QString &name : existing)
            name.endsWith('/') ? void(QDir(tmp.path()).mkdir(name)) : writeFile(tmp.filePath(name), "old");
        // A plain input gets the envelope extension unless that name is taken.
        const bool renamed = !source.endsWith(".nimbra-env", Qt::CaseInsensitive)
                             && !existing.contains(source + ".nimbra-env");
        DecryptManager manager;
        // Asked as the batch starts and again once the file is finished.
        manager.setDeleteEncryptedProvider([&] {
            return setting == 2 ? manager.finishedCount() == 1 && QFile::remove(path) : setting == 1;
        });
        QSignalSpy error(&manager, &DecryptManager::error);
        manager.addFiles({path});
        QVERIFY(finishBatch(manager));
        QCOMPARE(manager.finishedCount(), 1);
        const CryptTask *task = manager.finishedTasks().first();
        QCOMPARE(task->status(), Task::Finished);
        QCOMPARE(task->outputPath(), tmp.filePath(output));
        QCOMPARE(readFile(task->outputPath()), QByteArray("plain"));
        QCOMPARE(task->isOutputSuffixed(), output.contains("(decrypted"));
        QCOMPARE(task->sourcePath(), renamed ? path + ".nimbra-env" : path);
        QCOMPARE(task->isPlainInput(), renamed);
        QCOMPARE(task->isSourceDeleted(), setting == 1);
        QCOMPARE(QFile::exists(task->sourcePath()), setting == 0);
        QCOMPARE(error.count(), message.isEmpty() ? 0 : 1);
        QCOMPARE(manager.lastMessage(), message.arg(path));
        for (const QString &name : existing) // nothing else is touched
            QVERIFY(name.endsWith('/') || name == output || readFile(tmp.filePath(name)) == "old");
    }

    // Short batches of tiny files with random thread counts, stops and
    // reloads. After each, every path stands in exactly one list, and a file
    // that did not finish has no output. Rounds: NM_STRESS_ROUNDS (default 30).
    void stress()
    {
        bool set = false;
        const int rounds = qEnvironmentVariableIntValue("NM_STRESS_ROUNDS", &set);
        QRandomGenerator random(20240611u);
        DecryptManager manager;
        for (int round = 0; round < (set ? rounds : 30); ++round) {
            QTemporaryDir tmp;
            QStringList paths;
            QHash<QString, QByteArray> good; // path -> plaintext, for those that can decrypt
            for (int i = random.bounded(4, 24); i > 0; --i) {
                paths << tmp.filePath(QString::number(i) + ".nimbra-env");
                const QByteArray plain(random.bounded(3000), char('a' + i));
                const bool ok = random.bounded(5) > 0;
                envelope(paths.last(), plain, ok ? kPassphrase : "wrong");
                if (ok)
                    good.insert(paths.last(), plain);
            }
            std::sort(paths.begin(), paths.end());
            QVERIFY(manager.clearAll());
            QCOMPARE(manager.addFiles(paths), paths.size());
            for (int batch = 0; batch < 4 && manager.pendingCount() > 0; ++batch) {
                manager.onChangeNumThreads(random.bounded(1, 9));
                const unsigned long stopAfter = random.bounded(3000); // microseconds
                const auto stop = [&] { QThread::usleep(stopAfter); manager.stop(); };
                QVERIFY(finishBatch(manager, random.bounded(2) ? std::function<void()>() : stop));
                QStringList seen = manager.pendingPaths();
                for (const QString &path : seen)
                    QVERIFY2(!QFile::exists(path.chopped(11)), qPrintable("output left: " + path));
                // A finished file has its plaintext, a failed one no output.
                for (const CryptTask *task : manager.finishedTasks() + manager.failedTasks()) {
                    seen << task->addedPath();
                    QCOMPARE(readFile(task->outputPath()), good.value(task->addedPath(), "<missing>"));
                }
                std::sort(seen.begin(), seen.end());
                QVERIFY2(seen == paths, qPrintable(QString("round %1: a path in no list or in two").arg(round)));
                if (manager.failedCount() > 0 && random.bounded(3) == 0)
                    QVERIFY(manager.reloadFailed());
            }
        }
    }
};

QTEST_GUILESS_MAIN(TestManager)
#include "test_manager.moc"
