// No copy of a batch's passphrase stays in memory once the batch has ended,
// however it ended, while the same search finds it as the batch runs.
#include "EngineTestSupport.h"

#include <engine/SecretText.h>
#include <memory_scan/MemoryScan.h>

#include <QTemporaryDir>

using memory_scan::Secret;

namespace {

const int kWait = 60000; // generous for sanitizer builds; never a timing assertion

enum Ending { Finished, WrongPassphrase, Stopped };

// Envelopes in folder for the ending: three that open with the secret (or,
// for a wrong passphrase, with another one), or a long one to stop in the
// middle. Written in a child, so the writer's copies of the secret never
// exist in this process.
QStringList writeEnvelopes(const QString &folder, const Secret &secret, Ending ending)
{
    QStringList paths;
    for (int i = 0; i < (ending == Stopped ? 1 : 3); ++i)
        paths << folder + QString("/doc%1.txt.nimbra-env").arg(i);
    bool written = false;
    secret.reveal([&](const char *passphrase) {
        written = memory_scan::inChild([&] {
            for (const QString &path : paths) {
                if (ending == Stopped)
                    engine_test::sparseEnvelope(path, 30, passphrase);
                else
                    engine_test::envelope(path, "plain", ending == WrongPassphrase ? "another" : passphrase);
            }
            return true;
        });
    });
    return written ? paths : QStringList();
}

} // namespace

class SecretsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void wipeLeavesOtherHoldersAlone();
    void batchLeavesNoCopy_data();
    void batchLeavesNoCopy();
};

void SecretsTest::initTestCase()
{
    const Secret::Copies none = Secret().find();
    QVERIFY2(none.error.empty(), none.error.c_str());
}

// A copy that shares the characters keeps them, since its holder may still
// need them; a literal is let go without writing to read-only memory.
void SecretsTest::wipeLeavesOtherHoldersAlone()
{
    const QString original = QString::fromLatin1("open sesame");
    QString owned = secret_text::ownedCopy(original);
    const QString shared = owned;
    secret_text::wipe(owned);
    QVERIFY(owned.isEmpty());
    QCOMPARE(shared, original);
    QString literal = QStringLiteral("literal");
    secret_text::wipe(literal);
    QVERIFY(literal.isEmpty());
}

void SecretsTest::batchLeavesNoCopy_data()
{
    QTest::addColumn<int>("ending");
    QTest::newRow("finished") << int(Finished);
    QTest::newRow("failed: wrong passphrase") << int(WrongPassphrase);
    QTest::newRow("stopped mid-file") << int(Stopped);
}

void SecretsTest::batchLeavesNoCopy()
{
    QFETCH(int, ending);
    QTemporaryDir dir;
    const Secret secret;
    const QStringList paths = writeEnvelopes(dir.path(), secret, Ending(ending));
    QVERIFY(!paths.isEmpty());
    DecryptManager manager;
    manager.onChangeNumThreads(2);
    QCOMPARE(manager.addFiles(paths), paths.size());
    QSignalSpy ended(&manager, &DecryptManager::allFinished);
    secret.reveal([&](const char *passphrase) {
        QString text = QString::fromUtf8(passphrase);
        manager.start(text);
        secret_text::wipe(text);
    });

    // The batch cannot end before this thread serves its reports.
    const Secret::Copies running = secret.find();
    QVERIFY2(running.utf16 > 0, "the search does not see the running batch's passphrase");
    if (ending == Stopped) {
        QTRY_VERIFY_WITH_TIMEOUT(!manager.runningTasks().isEmpty()
                                     && manager.runningTasks().first()->progress() > 0, kWait);
        manager.stop();
    }
    QTRY_COMPARE_WITH_TIMEOUT(ended.count(), 1, kWait);
    manager.wait();
    QCoreApplication::processEvents();
    QCOMPARE(manager.finishedCount() + manager.failedCount() + manager.pendingCount(), paths.size());
    QCOMPARE(manager.pendingCount(), ending == Stopped ? 1 : 0);

    const Secret::Copies left = secret.find();
    QVERIFY2(left.error.empty(), left.error.c_str());
    QCOMPARE(left.utf8, 0);
    QCOMPARE(left.utf16, 0);
}

QTEST_GUILESS_MAIN(SecretsTest)
#include "test_secrets.moc"
