// The list operations on one shared folder tree with the real decrypt
// manager: the folder walk and the test modes, loads and their summaries, the
// one-at-a-time rule, cancelling, clearing, reloading and deleting.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include <QMetaMethod>
#include <QProcess>
#include <QRegularExpression>
#include <QSemaphore>
#include <QTemporaryDir>
#include <QTest>

#include <engine/DecryptManager.h>
#include <engine/FileLoading.h>
#include <engine/TaskManager.h>
#include <envelope_writer/EnvelopeWriter.h>

namespace {

const char kPassphrase[] = "open sesame";

// Writes bytes to path, or an envelope of them when sealed, making the folder.
void write(const QString &path, bool sealed, const QByteArray &bytes = "plain text")
{
    QFile file(path);
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QVERIFY(sealed ? envelope_writer::writeEnvelope(path.toStdString(), bytes.toStdString(), kPassphrase)
                   : file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
}

// Under folder, a chain of folders whose innermost one, holding a file with
// the envelope suffix, lies beyond the path length limit: no call by path can
// list it, whoever runs the test. Built by relative steps, which have no limit.
void buildChainBeyondPathLimit(const QString &folder)
{
    const QString start = QDir::currentPath(), level(200, 'd');
    QVERIFY(QDir().mkpath(folder) && QDir::setCurrent(folder));
    for (int depth = 0; depth < 24; ++depth)
        QVERIFY(QDir().mkdir(level) && QDir::setCurrent(level));
    QVERIFY(QFile("deep.nimbra-env").open(QIODevice::WriteOnly));
    QVERIFY(QDir::setCurrent(start));
}

} // namespace

class TestListOps : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir{QDir::tempPath() + "/listops-XXXXXX"};
    TaskManager *m_tasks = TaskManager::instance();
    DecryptManager *m_decrypt = DecryptManager::instance();
    // Every signal of the task manager as "name:text[:flag]". The operation's
    // thread appends only after passing the gate, which the test holds while
    // it makes requests, so the two threads never append at once.
    QStringList m_lines;
    QSemaphore m_gate{1};

    QString path(const QString &name) const { return m_dir.filePath(name); }
    QString log() const { return m_lines.join('|'); }
    // Waits for the operation's thread, then delivers its queued onFinished().
    void finish()
    {
        QVERIFY(m_tasks->wait(60000));
        QCoreApplication::sendPostedEvents();
    }

private slots:
    // root: a.nimbra-env (envelope), s1/b.NIMBRA-ENV (envelope known by its
    // content only), s1/t/c.NIMBRA-ENV and s2/d (plain), and in s2 only what
    // no walk or scan may take: hidden envelopes, a pipe, a loop, a file link.
    void initTestCase()
    {
        ::signal(SIGPIPE, SIG_IGN); // a pipe's writer learns of the reader's leaving by EPIPE
        const QString root = path("root");
        for (const char *name : {"a.nimbra-env", "s1/b.NIMBRA-ENV", "s2/.hidden/e.nimbra-env", "s2/.e.nimbra-env"})
            write(root + '/' + name, true);
        for (const char *name : {"s1/t/c.NIMBRA-ENV", "s2/d"})
            write(root + '/' + name, false);
        QCOMPARE(::mkfifo(qPrintable(root + "/s2/pipe.nimbra-env"), 0600), 0);
        QVERIFY(QFile::link(root, root + "/s2/loop"));
        QVERIFY(QFile::link(root + "/a.nimbra-env", root + "/s2/file-link"));
        QVERIFY(QFile::link(path("cycle-b"), path("cycle-a")));
        QVERIFY(QFile::link(path("cycle-a"), path("cycle-b")));
        buildChainBeyondPathLimit(path("deep"));
        const auto record = [this](auto signal) {
            const QString name = QMetaMethod::fromSignal(signal).name();
            connect(m_tasks, signal, this, [this, name](const QString &msg, auto... flag) {
                if (QThread::currentThread() == m_tasks) {
                    m_gate.acquire();
                    m_gate.release();
                }
                m_lines << QStringList{name, msg, QString::number(int(flag))...}.join(':');
            }, Qt::DirectConnection);
        };
        for (auto signal : {&TaskManager::filesLoaded, &TaskManager::statusCleared, &TaskManager::error,
                            &TaskManager::statusReloadFailedTask})
            record(signal);
        record(&TaskManager::statusMessage);
        record(&TaskManager::started);
    }
    void cleanup()
    {
        if (m_gate.available() == 0) // a failed check left the gate closed
            m_gate.release();
        finish();
        QTRY_VERIFY_WITH_TIMEOUT(!m_decrypt->isBusy(), 60000);
        m_lines.clear();
        QVERIFY(m_decrypt->clearAll());
    }
    // rm also reaches the folders beyond the path length limit.
    void cleanupTestCase()
    {
        TaskManager::release();
        DecryptManager::release();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QProcess::execute("rm", {"-rf", m_dir.path()});
    }

    // Files of a folder come before those of its sub-folders, each sub-folder
    // whole before the next; a cancel discards what the folder had found.
    void walkOrderAndExclusions()
    {
        const QString r = path("root"), a = r + "/a.nimbra-env", b = r + "/s1/b.NIMBRA-ENV";
        const QString c = r + "/s1/t/c.NIMBRA-ENV", d = r + "/s2/d";
        const QStringList found = FileLoading::walkFolder(r, "*", true, false, [] { return false; });
        QVERIFY2(found == QStringList({a, b, c, d}) || found == QStringList({a, d, b, c}),
                 qPrintable(found.join(", ")));
        int asked = 0;
        const auto third = [&] { return ++asked > 2; };
        QVERIFY(FileLoading::walkFolder(r, "*", true, false, third).isEmpty());
    }

    // A plain file counts when its side file holds a trailer, even when the
    // side file is a link; the walk skips the side-file lookup only where the
    // listing shows none.
    void walkSideFiles()
    {
        const QString f = path("sides");
        envelope_writer::EnvelopeOptions sideOnly;
        sideOnly.sideFile = true;
        QVERIFY(QDir().mkpath(f));
        QVERIFY(envelope_writer::writeEnvelope((f + "/x").toStdString(), "payload", kPassphrase, sideOnly));
        write(f + "/y", false);
        QVERIFY(QFile::link(f + "/x.nmb-meta", f + "/y.nmb-meta"));
        write(f + "/z", false);
        write(f + "/z.nmb-meta.txt", false);
        QStringList found = FileLoading::walkFolder(f, "*", true, true, [] { return false; });
        found.sort();
        QCOMPARE(found, QStringList({f + "/x", f + "/x.nmb-meta", f + "/y"}));
    }

    void testModes_data()
    {
        QTest::addColumn<QStringList>("paths");
        QTest::addColumn<bool>("expected");
        QTest::newRow("hidden, pipe, loop, link inside") << QStringList{"%1/root/s2"} << false;
        QTest::newRow("link cycle, pipe, device, missing, empty")
            << QStringList{"%1/cycle-a", "%1/root/s2/pipe.nimbra-env", "/dev/zero", "%1/no.nimbra-env", ""} << false;
        QTest::newRow("unlistable folder") << QStringList{"%1/deep"} << false;
        QTest::newRow("file link given") << QStringList{"%1/no", "%1/root/s2/file-link"} << true;
        QTest::newRow("by folder link, content") << QStringList{"%1/root/s2/loop/s1"} << true;
    }
    // Both modes answer at once on odd paths; a device, a folder or a missing
    // file as the list is refused.
    void testModes()
    {
        QFETCH(QStringList, paths);
        QFETCH(bool, expected);
        paths.replaceInStrings("%1", m_dir.path());
        QCOMPARE(FileLoading::scanPathsForEnvelopes(paths), expected);
        write(path("list.txt"), false, "\n" + paths.join("\r\n\n").toUtf8());
        QCOMPARE(FileLoading::scanListFileForEnvelopes(path("list.txt")), expected);
        for (const QString odd : {"/dev/zero", "%1/no", "%1/root"})
            QVERIFY(!FileLoading::scanListFileForEnvelopes(QString(odd).replace("%1", m_dir.path())));
    }

    // A pipe is read as a list; one that does not end stops at the bounds.
    void listFromPipe_data()
    {
        QTest::addColumn<QByteArray>("chunk"); // written once, or until the reader leaves
        QTest::addColumn<bool>("endless");
        QTest::addColumn<QString>("result"); // the entries joined by '|', or the error
        QTest::newRow("lines") << QByteArray("a\r\n\n b \nc") << false << "a||b|c";
        QTest::newRow("endless list") << QByteArray(60000, 'x').append('\n') << true
                                      << "The list is longer than 64 MB.";
        QTest::newRow("endless line") << QByteArray(4096, 'x') << true << "Line 1 is longer than 65536 bytes.";
    }
    void listFromPipe()
    {
        QFETCH(QByteArray, chunk);
        QFETCH(bool, endless);
        QFETCH(QString, result);
        const QByteArray fifo = QFile::encodeName(path("list.fifo"));
        QFile::remove(fifo);
        QCOMPARE(::mkfifo(fifo.constData(), 0600), 0);
        std::atomic<bool> readerDone{false};
        std::thread writer([&] {
            int fd;
            // Without blocking, so that a reader that never opens cannot hang the test.
            while ((fd = ::open(fifo.constData(), O_WRONLY | O_NONBLOCK)) < 0 && !readerDone)
                QThread::msleep(1);
            ::fcntl(fd, F_SETFL, 0);
            while (fd >= 0 && ::write(fd, chunk.constData(), size_t(chunk.size())) == chunk.size() && endless) {
            }
            ::close(fd);
        });
        QStringList entries;
        QString error;
        const bool read = FileLoading::readListFile(path("list.fifo"), &entries, &error);
        readerDone = true;
        writer.join();
        QCOMPARE(read ? entries.join('|') : error, result);
    }

    void load_data()
    {
        QTest::addColumn<QString>("via"); // "files", "urls", "list" (list.txt) or a list file
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<bool>("onlyEncrypted");
        QTest::addColumn<QString>("result");
        const QString a = "%1/a.nimbra-env";
        const QString loaded = "filesLoaded:%1 loaded.";
        QTest::newRow("same file twice")
            << "files" << QStringList{a, " " + a + "\t"} << true << loaded.arg("1 file") + " 1 duplicate skipped.";
        QTest::newRow("blank, missing, plain")
            << "files" << QStringList{"", "%1/no", "%1/s2/d"} << true << loaded.arg("0 files");
        QTest::newRow("folder, envelopes") << "files" << QStringList{"%1"} << true << loaded.arg("2 files");
        QTest::newRow("folder, every file") << "files" << QStringList{"%1"} << false << loaded.arg("4 files");
        QTest::newRow("no entries") << "files" << QStringList{} << true << "filesLoaded:No files found.";
        QTest::newRow("dropped urls") << "urls" << QStringList{a, "%1/s1"} << false << loaded.arg("3 files");
        QTest::newRow("list file") << "list" << QStringList{"", a, "", "%1/s1/", a, a} << true
                                   << loaded.arg("2 files") + " 2 duplicates skipped.";
        QTest::newRow("missing list file") << "%1/no" << QStringList{} << true
                                           << "error:Could not open file %1/no, for reading. No such file or directory";
    }
    void load()
    {
        QFETCH(QString, via);
        QFETCH(QStringList, entries);
        QFETCH(bool, onlyEncrypted);
        QFETCH(QString, result);
        entries.replaceInStrings("%1", path("root"));
        write(path("list.txt"), false, entries.join("\r\n").toUtf8());
        QList<QUrl> urls;
        for (const QString &entry : qAsConst(entries))
            urls << QUrl::fromLocalFile(entry);
        if (via == "files")
            m_tasks->loadFiles(entries, onlyEncrypted);
        else if (via == "urls")
            m_tasks->loadUrls(urls, onlyEncrypted);
        else
            QCOMPARE(m_tasks->loadFromFile(via == "list" ? path("list.txt") : via.arg(path("root"))),
                     result.startsWith("files"));
        finish();
        QCOMPARE(log(), "started:Loading files...:1|" + result.replace("%1", path("root")));
        QCOMPARE(m_decrypt->pendingCount(), result.section(':', 1).section(' ', 0, 0).toInt());
    }

    // Every kind of request is refused while a load runs; the load completes.
    void refusedWhileBusy()
    {
        const QString a = path("root/a.nimbra-env");
        m_gate.acquire();
        m_tasks->loadFiles({a});
        m_tasks->loadFiles({a});
        QVERIFY(!m_tasks->loadFromFile(a));
        m_tasks->deleteEncrypted();
        m_gate.release();
        finish();
        QStringList seen = log().split('|');
        QCOMPARE(seen.removeAll("error:A task is in progress, try again later."), 3);
        QCOMPARE(seen.join('|'), QString("started:Loading files...:1|filesLoaded:1 file loaded."));
    }

    // "Cancelling..." on the status line and the busy dialog, then the load's
    // end clears the line.
    void cancelDuringLoad()
    {
        m_gate.acquire();
        m_tasks->loadFiles({path("root/a.nimbra-env")});
        m_tasks->cancel();
        m_gate.release();
        finish();
        // The load either stops on the cancel unreported or reports before it.
        QCOMPARE(log().split('|').filter(QRegularExpression("^(?!filesLoaded)")).join('|'),
                 QString("started:Loading files...:1|statusMessage:Cancelling...:1|"
                         "started:Cancelling...:0|statusMessage::0"));
    }

    // Cancel pressed just as a load ends: the cancel is served after the
    // thread body returned but before its end is reported. Neither it nor a
    // cancel while idle announces anything or stops the next load.
    void lateCancelIsIgnored()
    {
        m_tasks->loadFiles({path("root/a.nimbra-env")});
        QVERIFY(m_tasks->wait(60000));
        m_tasks->cancel();
        QCoreApplication::sendPostedEvents();
        m_tasks->cancel();
        m_tasks->loadFiles({path("root/s1")});
        finish();
        const QString load = "started:Loading files...:1|filesLoaded:1 file loaded.";
        QCOMPARE(log(), load + '|' + load);
    }

    void operation_data()
    {
        // A status to clear; -1 reload, -2 delete, -3 load.
        QTest::addColumn<int>("request");
        QTest::addColumn<int>("pendingAfter"); // -1: during a batch, when it is open
        QTest::addColumn<QString>("expected");
        const QString clearing = "started:Clearing %1 tasks...:1|statusCleared:";
        const QString pending = clearing.arg("pending") + "All pending tasks cleared.";
        QTest::newRow("Cancelled") << int(Task::Cancelled) << 0 << pending;
        QTest::newRow("Waiting") << int(Task::Waiting) << 0 << pending;
        QTest::newRow("Error") << int(Task::Error) << 1 << clearing.arg("failed") + "All failed tasks cleared.";
        QTest::newRow("Finished")
            << int(Task::Finished) << 1 << clearing.arg("finished") + "All finished tasks cleared.";
        QTest::newRow("Cleared") << int(Task::Cleared) << 0 << clearing.arg("all") + "All tasks cleared";
        QTest::newRow("Decrypting")
            << int(Task::Decrypting) << 1 << "statusCleared:No files cleared for unknown status.";
        QTest::newRow("all, batch") << int(Task::Cleared) << -1 << clearing.arg("all") + "Could not clear all tasks.";
        QTest::newRow("reload, batch") << -1 << -1 << "started:Reloading failed tasks...:1|statusReloadFailedTask:"
                                                      "Cannot perform operations during decryption.";
        QTest::newRow("delete, batch") << -2 << -1 << "started:Deleting encrypted source files...:1|"
                                                      "statusMessage:Not all encrypted files could be deleted.:0";
        QTest::newRow("load, batch")
            << -3 << -1 << "started:Loading files...:1|filesLoaded:0 files loaded. 1 duplicate skipped.";
    }
    // No event is served between the start of a batch and the operation's
    // end, so the worker cannot have handed its task back by then.
    void operation()
    {
        QFETCH(int, request);
        QFETCH(int, pendingAfter);
        QFETCH(QString, expected);
        write(path("batch/x.nimbra-env"), true);
        QCOMPARE(m_decrypt->addFiles({path("batch/x.nimbra-env")}), 1);
        if (pendingAfter < 0)
            m_decrypt->start(kPassphrase);
        if (request >= 0)
            m_tasks->clearStatus(Task::STATUS(request));
        else if (request < -2)
            m_tasks->loadFiles({path("root/a.nimbra-env")});
        else
            QMetaObject::invokeMethod(m_tasks, request == -1 ? "reloadFailed" : "deleteEncrypted");
        finish();
        QCOMPARE(log(), expected);
        if (pendingAfter >= 0)
            QCOMPARE(m_decrypt->pendingCount(), pendingAfter);
    }

    // A non-empty folder in place of one envelope cannot be removed, whoever
    // runs the test; the other envelope goes. The failed task is then reloaded.
    void deleteWithOneUnremovable()
    {
        const QString one = path("done/one.nimbra-env"), two = path("done/two.nimbra-env"), bad = path("done/bad");
        write(one, true);
        write(two, true);
        write(bad, false);
        m_decrypt->addFiles({one, two, bad});
        m_decrypt->start(kPassphrase);
        QTRY_VERIFY_WITH_TIMEOUT(!m_decrypt->isBusy(), 60000);
        QVERIFY(QFile::remove(two));
        write(two + "/kept", false);
        m_tasks->deleteEncrypted();
        finish();
        m_tasks->reloadFailed();
        finish();
        QCOMPARE(log(), QString("started:Deleting encrypted source files...:1|statusMessage:Not all "
                                "encrypted files could be deleted.:0|started:Reloading failed tasks...:1|"
                                "statusReloadFailedTask:Failed Tasks reloaded."));
        QVERIFY(!QFile::exists(one) && QFile::exists(two + "/kept"));
        QCOMPARE(m_decrypt->pendingCount(), 1);
    }
};

QTEST_GUILESS_MAIN(TestListOps)
#include "test_listops.moc"
