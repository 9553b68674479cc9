// No copy of a batch's passphrase stays in memory once the batch has ended,
// however it ended, while the same search finds it as the batch runs.
#include "EngineTestSupport.h"

#include <memory>

#include <engine/SecretText.h>
#include <memory_scan/MemoryScan.h>

#include <QTemporaryDir>

using memory_scan::Secret;
using namespace engine_test;

class SecretsTest : public QObject
{
    Q_OBJECT
    enum Ending { Finished, Failed, Stopped, Quit };

private slots:
    // A copy that shares the characters keeps them, since its holder may still
    // need them; a literal is let go without writing to read-only memory.
    void wipeLeavesOtherHoldersAlone()
    {
        const QString original = QString::fromLatin1("open sesame");
        QString owned = secret_text::ownedCopy(original), literal = QStringLiteral("literal");
        const QString shared = owned;
        secret_text::wipe(owned);
        secret_text::wipe(literal);
        QVERIFY(owned.isEmpty() && literal.isEmpty());
        QCOMPARE(shared, original);
    }

    void batchLeavesNoCopy_data()
    {
        QTest::addColumn<int>("ending");
        QTest::newRow("finished") << int(Finished);
        QTest::newRow("failed: wrong passphrase, missing file") << int(Failed);
        QTest::newRow("stopped mid-file") << int(Stopped);
        QTest::newRow("quit mid-file") << int(Quit);
    }

    void batchLeavesNoCopy()
    {
        QFETCH(int, ending);
        QTemporaryDir dir;
        const Secret secret;
        QStringList paths;
        for (int i = ending >= Stopped ? 2 : 0; i < 3; ++i)
            paths << dir.filePath(QString("doc%1.nimbra-env").arg(i));
        QVERIFY(secret.revealInChild([&](const char *passphrase) {
            for (const QString &path : paths.mid(ending == Failed)) { // a failed batch's first file is missing
                if (ending >= Stopped)
                    sparseEnvelope(path, 30, passphrase);
                else
                    envelope(path, "plain", ending == Failed ? "another" : passphrase);
            }
            return true;
        }));
        auto manager = std::make_unique<DecryptManager>();
        manager->onChangeNumThreads(2);
        QCOMPARE(manager->addFiles(paths), paths.size());
        QSignalSpy ended(manager.get(), &DecryptManager::allFinished);
        secret.reveal([&](const char *passphrase) {
            QString text = QString::fromUtf8(passphrase);
            manager->start(text);
            secret_text::wipe(text);
        });

        // The batch cannot end before this thread serves its reports.
        QVERIFY2(secret.find().utf16 > 0, "the search does not see the running batch's passphrase");
        if (ending >= Stopped) {
            QVERIFY(waitUntil([&] {
                const QList<CryptTask *> running = manager->runningTasks();
                return !running.isEmpty() && running.first()->progress() > 0;
            }, true));
            // The manager's and the task's; the worker's went as the envelope opened.
            const Secret::Copies opened = secret.find();
            QVERIFY(opened.utf8 == 0 && opened.utf16 == 2);
        }
        if (ending == Quit) {
            manager.reset(); // as the program does at its end
        } else {
            if (ending == Stopped)
                manager->stop();
            QVERIFY(waitUntil([&] { return ended.count() == 1; }, true));
            manager->wait();
            QCoreApplication::processEvents();
            QCOMPARE(manager->finishedCount(), ending == Finished ? 3 : 0);
            QCOMPARE(manager->pendingCount(), ending == Stopped ? 1 : 0);
        }
        QVERIFY(secret.find().none());
    }
};

QTEST_GUILESS_MAIN(SecretsTest)
#include "test_secrets.moc"
