// The task manager with the real decrypt manager: loads, the one-at-a-time
// rule, cancelling, clearing, reloading and deleting, on real files.
#include <memory>

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <engine/DecryptManager.h>
#include <engine/TaskManager.h>

#include "ListOpsTestSupport.h"
#include "TaskManagerRecorder.h"

using namespace listops_test;

Q_DECLARE_METATYPE(Task::STATUS)

class TestTaskManager : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();
    void cleanupTestCase();

    void load_data();
    void load();
    void unreadableListFile();
    void secondRequestRefused();
    void cancelDuringLoad();
    void pendingCancelEndsNextOperation();
    void clearStatus_data();
    void clearStatus();
    void duringDecryption_data();
    void duringDecryption();
    void reloadFailed();
    void deleteWithOneUnremovable();

private:
    QString path(const QString &name) const { return m_dir->filePath(name); }
    void finish();
    void decrypt(const QStringList &paths, const char *passphrase);
    void waitDecryptIdle();
    QStringList lines() const { return m_recorder->lines(); }

    TaskManager *m_tasks = TaskManager::instance();
    DecryptManager *m_decrypt = DecryptManager::instance();
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<TaskManagerRecorder> m_recorder;
};

void TestTaskManager::init()
{
    m_dir.reset(new QTemporaryDir(QDir::tempPath() + QStringLiteral("/listops-XXXXXX")));
    QVERIFY(m_dir->isValid());
    QVERIFY(m_decrypt->clearAll());
    m_recorder.reset(new TaskManagerRecorder(m_tasks));
}

void TestTaskManager::cleanup()
{
    m_recorder->openGate();
    finish();
    waitDecryptIdle();
    m_recorder.reset();
    m_dir.reset();
}

void TestTaskManager::cleanupTestCase()
{
    TaskManager::release();
    DecryptManager::release();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

// Waits for the operation's thread, then delivers its queued onFinished().
void TestTaskManager::finish()
{
    QVERIFY(m_tasks->wait(60000));
    QCoreApplication::sendPostedEvents();
}

void TestTaskManager::decrypt(const QStringList &paths, const char *passphrase)
{
    m_decrypt->addFiles(paths);
    m_decrypt->start(QString::fromLatin1(passphrase));
    waitDecryptIdle();
}

// Serves events until the batch has handed every task back.
void TestTaskManager::waitDecryptIdle()
{
    QElapsedTimer clock;
    clock.start();
    while (m_decrypt->isBusy() && clock.elapsed() < 60000)
        QTest::qWait(5);
    QTest::qWait(5); // the dispatcher's own end report
}

void TestTaskManager::load_data()
{
    QTest::addColumn<QString>("via");
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<bool>("onlyEncrypted");
    QTest::addColumn<QString>("summary");
    const QString a = QStringLiteral("%1/a.nimbra-env");
    QTest::newRow("one file") << "paths" << QStringList{a} << true << "1 file loaded.";
    QTest::newRow("same file twice")
        << "paths" << QStringList{a, " " + a + "\t"} << true << "1 file loaded. 1 duplicate skipped.";
    QTest::newRow("empty and missing entries")
        << "paths" << QStringList{"", "%1/none", a, "%1/b.dat"} << true << "2 files loaded.";
    QTest::newRow("plain file by hand") << "paths" << QStringList{"%1/c.txt"} << false
                                        << "1 file loaded.";
    QTest::newRow("plain file, only encrypted") << "paths" << QStringList{"%1/c.txt"} << true
                                                << "0 files loaded.";
    QTest::newRow("folder, only encrypted") << "paths" << QStringList{"%1"} << true
                                            << "3 files loaded.";
    QTest::newRow("folder, every file") << "paths" << QStringList{"%1"} << false
                                        << "4 files loaded.";
    QTest::newRow("no entries") << "paths" << QStringList{} << true << "No files found.";
    QTest::newRow("dropped urls") << "urls" << QStringList{a, "%1/sub"} << false
                                  << "2 files loaded.";
    QTest::newRow("list file with blank lines")
        << "list" << QStringList{"", a, "", "%1/sub", a} << true
        << "2 files loaded. 1 duplicate skipped.";
}

void TestTaskManager::load()
{
    QFETCH(QString, via);
    QFETCH(QStringList, entries);
    QFETCH(bool, onlyEncrypted);
    QFETCH(QString, summary);
    envelope(path("a.nimbra-env"));
    envelope(path("b.dat"));
    plainFile(path("c.txt"));
    plainFile(path("sub/d.nimbra-env"));
    envelope(path(".hidden.nimbra-env"));
    entries.replaceInStrings(QStringLiteral("%1"), m_dir->path());

    if (via == "urls") {
        QList<QUrl> urls;
        for (const QString &entry : qAsConst(entries))
            urls << QUrl::fromLocalFile(entry);
        m_tasks->loadUrls(urls, onlyEncrypted);
    } else if (via == "list") {
        plainFile(path(".list.txt"), entries.join(QStringLiteral("\r\n")).toUtf8());
        QVERIFY(m_tasks->loadFromFile(path(".list.txt"), onlyEncrypted));
    } else {
        m_tasks->loadFiles(entries, onlyEncrypted);
    }
    finish();
    QCOMPARE(lines(), (QStringList{"started:Loading files...:1", "filesLoaded:" + summary}));
    QCOMPARE(m_decrypt->pendingCount(), summary.section(' ', 0, 0).toInt());
}

void TestTaskManager::unreadableListFile()
{
    QVERIFY(!m_tasks->loadFromFile(path("absent.txt")));
    QVERIFY(!m_tasks->isRunning());
    const QStringList seen = lines();
    QCOMPARE(seen.size(), 2);
    QCOMPARE(seen.at(0), QStringLiteral("started:Loading files...:1"));
    const QString prefix = "error:Could not open file " + path("absent.txt") + ", for reading. ";
    QVERIFY2(seen.at(1).startsWith(prefix) && seen.at(1).size() > prefix.size(),
             qPrintable(seen.at(1)));
}

// Every kind of request is refused while a load runs; the load completes.
void TestTaskManager::secondRequestRefused()
{
    m_recorder->closeGate();
    m_tasks->loadFiles({envelope(path("a.nimbra-env"))});
    m_tasks->loadFiles({path("a.nimbra-env")});
    QVERIFY(!m_tasks->loadFromFile(path("a.nimbra-env")));
    m_tasks->clearStatus(Task::Cleared);
    m_recorder->openGate();
    finish();
    const QString refusal = QStringLiteral("error:A task is in progress, try again later.");
    QStringList seen = lines();
    QCOMPARE(seen.count(refusal), 3);
    seen.removeAll(refusal);
    QCOMPARE(seen, (QStringList{"started:Loading files...:1", "filesLoaded:1 file loaded."}));
    QCOMPARE(m_decrypt->pendingCount(), 1);
}

void TestTaskManager::cancelDuringLoad()
{
    m_recorder->closeGate();
    m_tasks->loadFiles({envelope(path("a.nimbra-env"))});
    m_tasks->cancel();
    m_recorder->openGate();
    finish();
    // The load may end before or after the cancel, or stop on it unreported.
    const QStringList seen = lines().filter(QRegularExpression(QStringLiteral("^(?!filesLoaded)")));
    QCOMPARE(seen, (QStringList{"started:Loading files...:1", "statusMessage:Cancelling...:1",
                                "started:Cancelling...:0", "statusMessage::0"}));
}

// A cancel while idle stays pending: the next load stops before its first
// entry, and only that load's end clears the flag.
void TestTaskManager::pendingCancelEndsNextOperation()
{
    m_tasks->cancel();
    QVERIFY(lines().isEmpty());
    m_tasks->loadFiles({envelope(path("a.nimbra-env"))});
    finish();
    QCOMPARE(lines(), (QStringList{"started:Loading files...:1", "statusMessage::0"}));
    QCOMPARE(m_decrypt->pendingCount(), 0);

    m_tasks->loadFiles({path("a.nimbra-env")});
    finish();
    QCOMPARE(lines().last(), QStringLiteral("filesLoaded:1 file loaded."));
}

void TestTaskManager::clearStatus_data()
{
    QTest::addColumn<Task::STATUS>("status");
    QTest::addColumn<QString>("announced");
    QTest::addColumn<QString>("result");
    QTest::addColumn<int>("pendingAfter");
    QTest::newRow("Cancelled") << Task::Cancelled << "Clearing pending tasks..."
                               << "All pending tasks cleared." << 0;
    QTest::newRow("Waiting") << Task::Waiting << "Clearing pending tasks..."
                             << "All pending tasks cleared." << 0;
    QTest::newRow("Error") << Task::Error << "Clearing failed tasks..."
                           << "All failed tasks cleared." << 1;
    QTest::newRow("Finished") << Task::Finished << "Clearing finished tasks..."
                              << "All finished tasks cleared." << 1;
    QTest::newRow("Cleared") << Task::Cleared << "Clearing all tasks..." << "All tasks cleared" << 0;
    QTest::newRow("Decrypting") << Task::Decrypting << ""
                                << "No files cleared for unknown status." << 1;
    QTest::newRow("unknown") << static_cast<Task::STATUS>(9) << ""
                             << "No files cleared for unknown status." << 1;
}

void TestTaskManager::clearStatus()
{
    QFETCH(Task::STATUS, status);
    QFETCH(QString, announced);
    QFETCH(QString, result);
    QFETCH(int, pendingAfter);
    QCOMPARE(m_decrypt->addFiles({path("pending.nimbra-env")}), 1);
    m_tasks->clearStatus(status);
    finish();
    QStringList expected{"statusCleared:" + result};
    if (!announced.isEmpty())
        expected.prepend("started:" + announced + ":1");
    QCOMPARE(lines(), expected);
    QCOMPARE(m_decrypt->pendingCount(), pendingAfter);
}

void TestTaskManager::duringDecryption_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("result");
    QTest::newRow("clear all") << "clear" << "statusCleared:Could not clear all tasks.";
    QTest::newRow("reload")
        << "reload" << "reloaded:Cannot perform operations during decryption.";
    QTest::newRow("delete")
        << "delete" << "statusMessage:Not all encrypted files could be deleted.:0";
}

// No event is served between the start of the batch and the end of the
// operation, so the worker cannot have handed its task back.
void TestTaskManager::duringDecryption()
{
    QFETCH(QString, operation);
    QFETCH(QString, result);
    m_decrypt->addFiles({envelope(path("big.nimbra-env"), {}, 1 << 20)});
    m_decrypt->start(QString::fromLatin1(kPassphrase));
    if (operation == "clear")
        m_tasks->clearStatus(Task::Cleared);
    else if (operation == "reload")
        m_tasks->reloadFailed();
    else
        m_tasks->deleteEncrypted();
    QVERIFY(m_tasks->wait(60000));
    QCOMPARE(lines().last(), result);
    QCOMPARE(lines().size(), 2);
}

void TestTaskManager::reloadFailed()
{
    m_tasks->reloadFailed();
    finish();
    QCOMPARE(lines().last(), QStringLiteral("reloaded:Failed list is empty."));

    decrypt({envelope(path("one.nimbra-env")), envelope(path("two.nimbra-env"))}, "wrong");
    QCOMPARE(m_decrypt->failedCount(), 2);
    m_tasks->reloadFailed();
    finish();
    QCOMPARE(lines().mid(2), (QStringList{"started:Reloading failed tasks...:1",
                                          "reloaded:Failed Tasks reloaded."}));
    QCOMPARE(m_decrypt->failedCount(), 0);
    QCOMPARE(m_decrypt->pendingCount(), 2);
}

// A non-empty folder in place of one envelope cannot be removed, whoever
// runs the test; the other envelopes go.
void TestTaskManager::deleteWithOneUnremovable()
{
    const QStringList sources{envelope(path("one.nimbra-env")), envelope(path("two.nimbra-env")),
                              envelope(path("three.nimbra-env"))};
    decrypt(sources, kPassphrase);
    QCOMPARE(m_decrypt->finishedCount(), 3);
    QVERIFY(QFile::remove(sources.at(1)));
    plainFile(sources.at(1) + "/kept");

    m_tasks->deleteEncrypted();
    finish();
    QCOMPARE(lines(), (QStringList{"started:Deleting encrypted source files...:1",
                                   "statusMessage:Not all encrypted files could be deleted.:0"}));
    QVERIFY(!QFile::exists(sources.at(0)));
    QVERIFY(QFile::exists(sources.at(1) + "/kept"));
    QVERIFY(!QFile::exists(sources.at(2)));
    QFile output(path("one"));
    QVERIFY(output.open(QIODevice::ReadOnly));
    QCOMPARE(output.readAll(), QByteArray("plain text"));
}

QTEST_GUILESS_MAIN(TestTaskManager)
#include "test_task_manager.moc"
