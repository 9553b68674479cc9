#include <QTemporaryDir>

#include "EngineTestSupport.h"

using namespace engine_test;

// One worker, driven directly: every run is waited for, so the signals the
// worker emitted on its own thread are complete when checked.
class TestWorker : public QObject
{
    Q_OBJECT
    QTemporaryDir dir;

    QString path(const char *name) const { return dir.filePath(QString::fromLatin1(name)); }

    void runTask(VextDecryptWorker &worker, CryptTask &task)
    {
        worker.reset();
        worker.startTask(&task);
        QVERIFY(worker.wait(30000));
    }

private slots:
    void outcome_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("output");
        QTest::addColumn<quint32>("status");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QByteArray>("written");

        const QByteArray none("<missing>");
        QTest::newRow("plaintext") << envelope(path("ok.nimbra-env"), "hello world") << "out-ok"
                                   << 1u << QString() << QByteArray("hello world");
        QTest::newRow("empty plaintext") << envelope(path("empty.nimbra-env"), QByteArray())
                                         << "out-empty" << 1u << QString() << QByteArray();
        QTest::newRow("wrong passphrase")
            << envelope(path("wrong.nimbra-env"), "x", "other") << "out-wrong" << 2u
            << "(Passphrase doesn't match Code: 1)" << none;
        writeFile(path("corrupt.nimbra-env"), QByteArray(300, 'z'));
        QTest::newRow("corrupt") << path("corrupt.nimbra-env") << "out-corrupt" << 2u
                                 << "(Input file is corrupted or not encrypted. Code: 2)" << none;
        QDir(dir.path()).mkdir(QStringLiteral("folder.nimbra-env"));
        QTest::newRow("directory") << path("folder.nimbra-env") << "out-dir" << 2u
                                   << "(Source is not a file. Code: -3)" << none;
        QTest::newRow("missing") << path("gone.nimbra-env") << "out-gone" << 2u
                                 << "(Source file does not exist. Code: -3)" << none;
        QTest::newRow("unwritable output")
            << envelope(path("ok2.nimbra-env"), "abc") << "no-such-folder/out" << 2u
            << "(Could not write to destination. Code: -1)" << none;
    }

    void outcome()
    {
        QFETCH(QString, source);
        QFETCH(QString, output);
        QFETCH(quint32, status);
        QFETCH(QString, message);
        QFETCH(QByteArray, written);

        VextDecryptWorker worker(5, nullptr);
        QSignalSpy completed(&worker, &VextDecryptWorker::completed);
        QSignalSpy failed(&worker, &VextDecryptWorker::failed);
        QSignalSpy started(&worker, &VextDecryptWorker::started);
        CryptTask task(source, nullptr);
        task.setOutputPath(dir.filePath(output));
        task.setPassphrase(QString::fromLatin1(kPassphrase));
        runTask(worker, task);

        QCOMPARE(started.count(), 1);
        QCOMPARE(completed.count() + failed.count(), 1);
        QCOMPARE(completed.count(), status == Task::Finished ? 1 : 0);
        QCOMPARE(quint32(task.status()), status);
        QCOMPARE(task.errorMessage(), message);
        QCOMPARE(task.workerIndex(), 5);
        QCOMPARE(readFile(task.outputPath()), written);
        if (status == Task::Finished)
            QCOMPARE(task.progress(), 1.0f);
    }

    void nullTaskStartsNothing()
    {
        VextDecryptWorker worker(0, nullptr);
        worker.startTask(nullptr);
        QVERIFY(!worker.isRunning());
        QCOMPARE(worker.resultText(), QStringLiteral("(Invalid file Code: -3)"));
    }

    // The fraction is over every file the worker ever opened.
    void progressIsCumulativeOverTheWorkersLife()
    {
        const QString first = envelope(path("first.nimbra-env"), QByteArray(5000, 'a'));
        const QString second = envelope(path("second.nimbra-env"), QByteArray(300, 'b'));
        VextDecryptWorker worker(0, nullptr);
        CryptTask one(first, nullptr), two(second, nullptr);
        one.setOutputPath(path("first.out"));
        two.setOutputPath(path("second.out"));
        one.setPassphrase(QString::fromLatin1(kPassphrase));
        two.setPassphrase(QString::fromLatin1(kPassphrase));
        runTask(worker, one);
        runTask(worker, two);
        const float expected =
            float(5000 + 300) / float(QFileInfo(first).size() + QFileInfo(second).size());
        QCOMPARE(worker.fractionDone(), expected);
        QCOMPARE(two.progress(), 1.0f);
    }

    void cancelRemovesPartialOutput()
    {
        const QString source = sparseEnvelope(path("big.nimbra-env"), qint64(1) << 30);
        VextDecryptWorker worker(0, nullptr);
        QSignalSpy failed(&worker, &VextDecryptWorker::failed);
        CryptTask task(source, nullptr);
        task.setOutputPath(path("big.out"));
        task.setPassphrase(QString::fromLatin1(kPassphrase));
        worker.startTask(&task);
        worker.cancel();
        QVERIFY(worker.wait(30000));
        QCOMPARE(task.status(), Task::Cancelled);
        QCOMPARE(failed.count(), 1);
        QVERIFY(task.errorMessage().isEmpty());
        QVERIFY(task.progress() < 1.0f);
        QCOMPARE(task.progress(), worker.fractionDone());
        QVERIFY(!QFile::exists(task.outputPath()));
    }
};

QTEST_GUILESS_MAIN(TestWorker)
#include "test_worker.moc"
