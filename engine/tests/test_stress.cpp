// Many short batches of tiny files with random thread counts, stops and
// reloads. After each batch every path must stand in exactly one list, and a
// file that is not finished must have no output. Rounds: NM_STRESS_ROUNDS.
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>

#include "EngineTestSupport.h"

using namespace engine_test;

class TestStress : public QObject
{
    Q_OBJECT

    struct Round {
        QStringList paths;
        QHash<QString, QByteArray> plain; // paths that can decrypt
    };

    static Round makeFiles(const QTemporaryDir &dir, QRandomGenerator &random)
    {
        Round round;
        const int count = random.bounded(4, 24);
        for (int i = 0; i < count; ++i) {
            const QString path = dir.filePath(QStringLiteral("f%1.nimbra-env").arg(i));
            const QByteArray plain(random.bounded(0, 3000), char('a' + i % 26));
            switch (random.bounded(6)) {
            case 0: envelope(path, plain, "wrong"); break;
            case 1: writeFile(path, "not an envelope at all"); break;
            default: envelope(path, plain); round.plain.insert(path, plain);
            }
            round.paths << path;
        }
        return round;
    }

    static void checkInvariants(DecryptManager &manager, const Round &round)
    {
        QSet<QString> seen;
        auto claim = [&](const QString &path) {
            QVERIFY2(round.paths.contains(path), qPrintable(path));
            QVERIFY2(!seen.contains(path), qPrintable("twice: " + path));
            seen.insert(path);
        };
        for (CryptTask *task : manager.finishedTasks()) {
            claim(task->addedPath());
            QCOMPARE(task->status(), Task::Finished);
            QCOMPARE(readFile(task->outputPath()), round.plain.value(task->addedPath()));
        }
        for (CryptTask *task : manager.failedTasks()) {
            claim(task->addedPath());
            QCOMPARE(task->status(), Task::Error);
            QVERIFY(!round.plain.contains(task->addedPath()));
        }
        for (const QString &path : manager.pendingPaths()) {
            claim(path);
            QVERIFY2(!QFile::exists(path.chopped(11)), qPrintable("output left: " + path));
        }
        QCOMPARE(seen.size(), round.paths.size());
        QCOMPARE(manager.runningCount(), 0);
    }

private slots:
    void randomBatches()
    {
        const int rounds = qEnvironmentVariableIsSet("NM_STRESS_ROUNDS")
                               ? qEnvironmentVariableIntValue("NM_STRESS_ROUNDS")
                               : 40;
        QRandomGenerator random(20240611u);
        DecryptManager manager;
        int interrupted = 0; // batches that a stop left with files pending
        for (int r = 0; r < rounds; ++r) {
            QTemporaryDir dir;
            const Round round = makeFiles(dir, random);
            QVERIFY(manager.clearAll());
            QCOMPARE(manager.addFiles(round.paths), round.paths.size());
            for (int batch = 0; batch < 4 && manager.pendingCount() > 0; ++batch) {
                manager.onChangeNumThreads(random.bounded(1, 9));
                manager.start(QString::fromLatin1(kPassphrase));
                if (random.bounded(2))
                    QThread::usleep(random.bounded(3000));
                const bool stopped = random.bounded(2);
                if (stopped)
                    manager.stop();
                QVERIFY2(waitIdle(manager), "batch did not end");
                interrupted += stopped && manager.pendingCount() > 0;
                checkInvariants(manager, round);
                if (QTest::currentTestFailed())
                    QFAIL(qPrintable(QStringLiteral("round %1, batch %2").arg(r).arg(batch)));
                if (manager.failedCount() > 0 && random.bounded(3) == 0)
                    QVERIFY(manager.reloadFailed());
            }
        }
        qInfo("%d rounds, %d batches interrupted", rounds, interrupted);
        QVERIFY(manager.clearAll());
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
};

QTEST_GUILESS_MAIN(TestStress)
#include "test_stress.moc"
