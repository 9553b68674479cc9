#include <cerrno>
#include <optional>

#include <QScopeGuard>
#include <QSet>
#include <QTemporaryDir>

#include "EngineTestSupport.h"
#include "FaultSupport.h"

using namespace engine_test;

class TestManager : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

private slots:
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    // Two of eight workers: never more than two decrypting, workers 0 and 1,
    // every task announced as it starts and once it has ended, allFinished()
    // once when nothing runs any more. Then, in a second batch, every guarded
    // edit is refused and changes nothing, the timer reports the progress of
    // the running files, and a stop puts them back first, without outputs.
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
        QHash<const CryptTask *, int> heard;
        bool idleAtEnd = false, polled = false; // polled: a running task heard again, with progress
        connect(&manager, &DecryptManager::allFinished, this, [&] { idleAtEnd = !manager.isBusy(); });
        connect(&manager, qOverload<const CryptTask *>(&DecryptManager::statsChanged), this, [&](const CryptTask *t) {
            const bool again = ++heard[t] > 1;
            polled = polled || (again && t->status() == Task::Decrypting && t->progress() > 0);
        });
        QCOMPARE(manager.addFiles(paths), 7);
        int most = 0;
        QVERIFY(finishBatch(manager, [&] { // no event is served, so no worker can return
            QVERIFY(waitUntil([&] { return manager.runningCount() >= 2; }));
            QThread::msleep(20);
            most = manager.runningCount();
        }));
        QVERIFY(idleAtEnd && most == 2 && started.count() == 1 && started.first().first() == 7);
        QVERIFY(lists.count() == 2 && manager.finishedCount() == 6); // lists: the additions, the dispatcher's end
        QSet<int> workers;
        for (const CryptTask *task : manager.finishedTasks() + manager.failedTasks()) {
            workers << task->workerIndex();
            QVERIFY(heard.value(task) >= 2);
            QVERIFY(task->status() == Task::Error || readFile(task->outputPath()) == QByteArray(256 << 10, 'p'));
        }
        QCOMPARE(workers, QSet<int>({0, 1}));

        paths.clear();
        for (int i = 0; i < 5; ++i)
            paths << sparseEnvelope(dir.filePath(QString("stop%1.nimbra-env").arg(i)), 31);
        manager.addFiles(paths);
        QSignalSpy error(&manager, &DecryptManager::error);
        QVERIFY(finishBatch(manager, [&] {
            const auto stopAtEnd = qScopeGuard([&] { manager.stop(); }); // also when a check fails
            QVERIFY(waitUntil([&] { return manager.runningCount() == 2; }));
            QCOMPARE(manager.addFiles({dir.filePath("x")}), 0);
            QVERIFY(!manager.clearFinished() && !manager.clearFailed() && !manager.clearPending());
            QVERIFY(!manager.clearAll() && !manager.reloadFailed() && !manager.deleteEncrypted());
            QCOMPARE(error.count(), 7);
            for (const QList<QVariant> &args : qAsConst(error))
                QCOMPARE(args.first().toString(), "Cannot perform operations during decryption.");
            manager.start(QString::fromLatin1(kPassphrase));
            QCOMPARE(manager.lastMessage(), QStringLiteral("Decryption already in progress."));
            QVERIFY(manager.pendingPaths() == paths.mid(2) && manager.totalCount() == 12);
            QVERIFY(waitUntil([&] { return polled; }, true, 5000)); // the timer, once a second
        }));
        QVERIFY(manager.finishedCount() == 6 && manager.failedCount() == 1
                && QFile::exists(dir.filePath("f0.nimbra-env"))); // deleteEncrypted() was refused
        QStringList pending = manager.pendingPaths();
        std::sort(pending.begin(), pending.begin() + qMin(2, pending.size())); // the two cancelled, in either order
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
        QVERIFY(!manager.isRunning() && started.isEmpty() && !manager.reloadFailed());
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
        QSignalSpy announced(&manager, qOverload<const CryptTask *>(&DecryptManager::statsChanged));
        QVERIFY(manager.deleteEncrypted() && manager.finishedTasks().first()->isSourceDeleted());
        QVERIFY(error.isEmpty() && announced.count() == 1 && !QFile::exists(dir.filePath("ok.nimbra-env")));
        QVERIFY(!manager.deleteEncrypted()); // a second run finds nothing to delete
        QCOMPARE(manager.lastMessage(), "Could not remove file " + dir.filePath("ok.nimbra-env") + ". file does not exist.");
    }

    // Where the plaintext goes, and after success the renames of a plain
    // input and the deletion of the envelope when the setting asks for it;
    // the window hears of the task once all of it is done.
    void naming_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<int>("setting"); // delete: 0 off, 1 on, 2 on but the file vanished
        QTest::addColumn<QString>("output");
        QTest::addColumn<QString>("message"); // %1: the folder
        using L = QStringList;
        const QString x = "x.nimbra-env"; // "!name" below: a rename onto name fails
        QTest::newRow("free") << x << L() << 0 << "x" << "";
        QTest::newRow("upper case extension") << "a.NIMBRA-ENV" << L() << 0 << "a" << "";
        QTest::newRow("taken") << x << L{"x"} << 0 << "x(decrypted)" << "";
        QTest::newRow("marked name taken") << "x(decrypted).nimbra-env" << L{"x(decrypted)"} << 0
                                           << "x(decrypted 2)" << "";
        QTest::newRow("mark before last extension") << "a.b.nimbra-env" << L{"a.b"} << 0 << "a(decrypted).b" << "";
        QTest::newRow("plain input") << "p.JPG" << L() << 0 << "p.JPG" << "";
        QTest::newRow("plain, input rename fails") << "t.txt" << L{"t.txt.nimbra-env"} << 0 << "t(decrypted).txt"
                                                   << "Could not rename input %1/t.txt to %1/t.txt.nimbra-env";
        QTest::newRow("plain, output rename fails") << "o.txt" << L{"!o.txt"} << 0 << "o(decrypted).txt"
                                                    << "Could not rename output %1/o(decrypted).txt to %1/o.txt";
        QTest::newRow("deleted") << x << L() << 1 << "x" << "";
        QTest::newRow("plain, deleted") << "d.txt" << L() << 1 << "d.txt" << "";
        QTest::newRow("vanished") << x << L() << 2 << "x" << "Could not remove file %1/x.nimbra-env. Does not exist";
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
        std::optional<ScopedFault> fault;
        for (const QString &name : existing) {
            if (name.startsWith('!'))
                fault.emplace(FaultPlan{NM_FILE_OP_PLACE, EIO, 0, QFile::encodeName(name).replace('!', '/'), {}});
            else
                writeFile(tmp.filePath(name), "old");
        }
        // A plain input gets the envelope extension unless that name is taken.
        const bool renamed = !source.endsWith(".nimbra-env", Qt::CaseInsensitive)
                             && !existing.contains(source + ".nimbra-env");
        DecryptManager manager;
        // Asked as the batch starts and again once the file is finished.
        manager.setDeleteEncryptedProvider([&] {
            return setting == 2 ? manager.finishedCount() == 1 && QFile::remove(path) : setting == 1;
        });
        const auto seen = [](const CryptTask *t) { return t->statusText() + t->sourcePath() + (t->isSourceDeleted() ? "+" : "-"); };
        QString heard;
        connect(&manager, qOverload<const CryptTask *>(&DecryptManager::statsChanged), this,
                [&](const CryptTask *t) { heard = seen(t); });
        QSignalSpy error(&manager, &DecryptManager::error);
        manager.addFiles({path});
        QVERIFY(finishBatch(manager) && manager.finishedCount() == 1);
        const CryptTask *task = manager.finishedTasks().first();
        QCOMPARE(task->statusText(), "Finished -> " + tmp.filePath(output));
        QCOMPARE(readFile(task->outputPath()), QByteArray("plain"));
        QCOMPARE(task->isOutputSuffixed(), output.contains("(decrypted"));
        QCOMPARE(task->sourcePath(), renamed ? path + ".nimbra-env" : path);
        QVERIFY(task->isPlainInput() == renamed && task->isSourceDeleted() == (setting == 1));
        QCOMPARE(QFile::exists(task->sourcePath()), setting == 0);
        QCOMPARE(heard, seen(task)); // told last once all was done
        QCOMPARE(error.count(), message.isEmpty() ? 0 : 1);
        QCOMPARE(manager.lastMessage(), QString(message).replace("%1", tmp.path()));
    }
};

QTEST_GUILESS_MAIN(TestManager)
#include "test_manager.moc"
