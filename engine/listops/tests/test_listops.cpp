// The list operations on one shared folder tree with the real decrypt
// manager: the folder walk and the test modes, loads and their summaries, the
// one-at-a-time rule, cancelling, clearing, reloading and deleting.
#include <QMetaMethod>
#include <QProcess>
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

} // namespace

class TestListOps : public QObject
{
    Q_OBJECT
    QTemporaryDir m_dir{QDir::tempPath() + "/listops-XXXXXX"};
    TaskManager *m_tasks = TaskManager::instance();
    DecryptManager *m_decrypt = DecryptManager::instance();
    // Every signal of the task manager as "name:text[:flag]". A started
    // operation's thread waits at the gate before its body runs; a test holds
    // the gate while it makes requests, so the two threads never append at
    // once and a cancel can land before the body's first test.
    QStringList m_lines;
    QSemaphore m_gate{1};
    int m_deleted = 0; // operation objects deleted by a deferred deletion

    QString path(const QString &name) const { return m_dir.filePath(name); }
    QString log() const { return m_lines.join('|'); }
    // Waits for the operation's thread, then delivers its queued onFinished().
    void finish()
    {
        QVERIFY(m_tasks->wait(60000));
        QCoreApplication::sendPostedEvents();
    }

public:
    bool eventFilter(QObject *object, QEvent *event) override
    {
        const bool operation = object->inherits("Task") && !object->inherits("CryptTask");
        m_deleted += operation && event->type() == QEvent::DeferredDelete;
        return false;
    }

private slots:
    // root (the current folder): a.nimbra-env (plain, an envelope by its
    // name), s1/b.NIMBRA-ENV (an envelope by its content), s1/t/c.NIMBRA-ENV
    // and s2/d (plain), :link (a link to s2/file-link), and in s2 only what no
    // walk or scan may take: hidden envelopes, a pipe, a loop, file-link (a
    // link to b). Beside root, odd holds names that are not UTF-8: a plain
    // file and a folder with an envelope; sides holds x, an envelope by its
    // side file, y, plain with a link to that side file, and z, plain beside
    // z.nmb-meta.txt.
    void initTestCase()
    {
        for (const char *name : {"root/s1/b.NIMBRA-ENV", "root/s2/.hidden/e.nimbra-env", "root/s2/.e", "odd/x"})
            write(path(name), true);
        // The shell writes the plain files, names files in bytes, and builds by
        // relative steps a chain of folders beyond the path length limit: no
        // call by path can list its innermost one, whoever runs the test.
        const char script[] = "cd \"$1\" && mkdir root/s1/t sides batch && for f in root/a.nimbra-env root/s2/d"
                              " root/s1/t/c.NIMBRA-ENV odd/y batch/bad sides/y sides/z sides/z.nmb-meta.txt"
                              "; do echo plain > $f; done && mkfifo list.fifo && ln -s cycle-b cycle-a"
                              " && ln -s cycle-a cycle-b && ln -s x.nmb-meta sides/y.nmb-meta && cd root/s2"
                              " && mkfifo pipe.nimbra-env && ln -s .. loop && ln -s ../s1/b.NIMBRA-ENV file-link"
                              " && ln -s s2/file-link ../:link"
                              " && cd ../../odd && o=$(printf '\\377') && mkdir $o && mv x $o && mv y $(printf '\\376')"
                              " && d=$(for i in $(seq 12); do printf $0/; done) && mkdir -p ../deep/$d"
                              " && cd ../deep/$d && mkdir -p $d && : > ${d}deep.nimbra-env";
        QCOMPARE(QProcess::execute("sh", {"-c", script, QString(200, 'd'), m_dir.path()}), 0);
        envelope_writer::EnvelopeOptions sideOnly;
        sideOnly.sideFile = true;
        QVERIFY(envelope_writer::writeEnvelope(path("sides/x").toStdString(), "payload", kPassphrase, sideOnly));
        QVERIFY(QDir::setCurrent(path("root")));
        qApp->installEventFilter(this);
        connect(m_tasks, &QThread::started, this, [this] { m_gate.acquire(), m_gate.release(); }, Qt::DirectConnection);
        const auto record = [this](auto signal) {
            const QString name = QMetaMethod::fromSignal(signal).name();
            connect(m_tasks, signal, this, [this, name](const QString &msg, auto... flag) {
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
    void walkOrderAndCancel()
    {
        const QString a = "./a.nimbra-env", b = "./s1/b.NIMBRA-ENV", c = "./s1/t/c.NIMBRA-ENV", d = "./s2/d";
        const QStringList found = FileLoading::walkFolder(".", "*", true, false, [] { return false; });
        QVERIFY2(found == QStringList({a, b, c, d}) || found == QStringList({a, d, b, c}), qPrintable(found.join(' ')));
        const auto third = [asked = 0]() mutable { return ++asked > 2; };
        QVERIFY(FileLoading::walkFolder(".", "*", true, false, third).isEmpty());
    }

    void testModes_data()
    {
        QTest::addColumn<QStringList>("paths");
        QTest::addColumn<bool>("expected");
        QTest::newRow("hidden, pipes, loop, link cycle, device, missing, empty, unlistable")
            << QStringList{"%1/root/s2", "%1/cycle-a", "%1/root/s2/pipe.nimbra-env", "/dev/zero", "%1/no.nimbra-env",
                           "", "%1/deep"}
            << false;
        QTest::newRow("file link given") << QStringList{"%1/no", "%1/root/s2/file-link"} << true;
        QTest::newRow("names not UTF-8") << QStringList{"%1/odd"} << true;
    }
    // Both modes answer at once on odd paths, list lines trimmed. An endless
    // list is answered at its first envelope, named by a line that is not
    // UTF-8.
    void testModes()
    {
        QFETCH(QStringList, paths);
        QFETCH(bool, expected);
        paths.replaceInStrings("%1", m_dir.path());
        QByteArrayList bytes;
        for (const QString &p : qAsConst(paths))
            bytes << p.toUtf8();
        QCOMPARE(FileLoading::scanPathsForEnvelopes(bytes), expected);
        QString error;
        write(path("list.txt"), false, "\n " + paths.join("\t\r\n\n ").toUtf8());
        QCOMPARE(FileLoading::scanListFileForEnvelopes(path("list.txt"), &error), expected);
        QProcess shell;
        const QString writer = "cd \"$0\" && [ -p list.fifo ] && yes \"$0/odd/$(printf '\\377')/x\" > list.fifo";
        shell.start("sh", {"-c", writer, m_dir.path()});
        QVERIFY(FileLoading::scanListFileForEnvelopes(path("list.fifo"), &error));
        QVERIFY(shell.waitForFinished());
    }

    // Relative entries are taken from root, the current folder. A list may be
    // a pipe; one that does not end stops at the bounds. A cancel before the
    // load's first test shows "Cancelling...", adds nothing, says nothing.
    void load_data()
    {
        // "files", "cancel" (files, then a cancel), "urls" (the first entry), or
        // a list file; ../list.fifo is filled by the first entry as a shell
        // command
        QTest::addColumn<QString>("via");
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<bool>("onlyEncrypted");
        QTest::addColumn<QString>("result");
        const QString a = "%1/a.nimbra-env", loaded = "filesLoaded:%1 loaded.";
        const QString twoLeftOut = " 2 paths that are not valid UTF-8 were left out.";
        QTest::newRow("blank, missing, plain, same file twice")
            << "files" << QStringList{"", "%1/no", "%1/s2/d", a, " " + a + "\t"} << true
            << loaded.arg("1 file") + " 1 duplicate skipped.";
        QTest::newRow("no entries") << "files" << QStringList{} << true << "filesLoaded:No files found.";
        QTest::newRow("cancelled") << "cancel" << QStringList{"%1"} << true
                                   << "statusMessage:Cancelling...:1|started:Cancelling...:0|statusMessage::0";
        QTest::newRow("one path per file, links apart")
            << "files" << QStringList{"%1/", ".", "./s1/../a.nimbra-env", "s2/loop/../root//s1/", ":link", "../odd"}
            << true << loaded.arg("3 files") + " 4 duplicates skipped. 1 path that is not valid UTF-8 was left out.";
        QTest::newRow("side files") << "files" << QStringList{"../sides"} << true << loaded.arg("3 files");
        QTest::newRow("dropped urls, every file, names not UTF-8")
            << "urls" << QStringList{"../odd"} << false << loaded.arg("0 files") + twoLeftOut;
        QTest::newRow("missing list file") << "no" << QStringList{} << true
                                           << "error:Could not open file no, for reading. No such file or directory";
        QTest::newRow("device as list") << "/dev/zero" << QStringList{} << true
                                        << "error:Could not open file /dev/zero, for reading. Not a regular file or "
                                           "a pipe.";
        const QString fifo = "../list.fifo", refused = "error:Could not open file ../list.fifo, for reading. ";
        const QString lines = "printf 'a.nimbra-env\\r\\n\\n s1 \\ra.nimbra-env\\n\\377\\r\\377'";
        QTest::newRow("pipe, line ends") << fifo << QStringList{lines} << true
                                         << loaded.arg("2 files") + " 1 duplicate skipped." + twoLeftOut;
        QTest::newRow("endless list") << fifo << QStringList{"yes $(printf %060000d 0)"} << true
                                      << refused + "The list is longer than 64 MB.";
        QTest::newRow("endless line") << fifo << QStringList{"cat /dev/zero"} << true
                                      << refused + "Line 1 is longer than 65536 bytes.";
        QTest::newRow("longest list") << fifo << QStringList{"yes $(printf %060000d 0) | head -c 67108864"} << true
                                      << loaded.arg("0 files");
        QTest::newRow("longest line") << fifo << QStringList{"printf '%065536d\\n%065537d' 0 0"} << true
                                      << refused + "Line 2 is longer than 65536 bytes.";
    }
    void load()
    {
        QFETCH(QString, via);
        QFETCH(QStringList, entries);
        QFETCH(bool, onlyEncrypted);
        QFETCH(QString, result);
        entries.replaceInStrings("%1", path("root"));
        QProcess shell;
        if (via == "../list.fifo")
            shell.start("sh", {"-c", "[ -p ../list.fifo ] && " + entries.value(0) + " > ../list.fifo"});
        m_gate.acquire();
        if (via == "files" || via == "cancel")
            m_tasks->loadFiles(entries, onlyEncrypted);
        else if (via == "urls")
            m_tasks->loadUrls({QUrl::fromLocalFile(entries.value(0))}, onlyEncrypted);
        else
            QCOMPARE(m_tasks->loadFromFile(via), result.startsWith("files"));
        if (via == "cancel")
            m_tasks->cancel();
        m_gate.release();
        shell.waitForFinished();
        finish();
        QCOMPARE(log(), "started:Loading files...:1|" + result.replace("%1", path("root")));
        QCOMPARE(m_decrypt->pendingCount(), result.section(':', 1).section(' ', 0, 0).toInt());
    }

    // A load's thread has ended, its end not yet delivered: a cancel then is
    // ignored; a new operation starts and refuses every kind of request; the
    // old end, arriving now, leaves it and its cancel alone. Each operation
    // object goes by a deferred deletion.
    void lateCancelAndLateEnd()
    {
        m_deleted = 0;
        m_tasks->loadFiles({path("root/s1")});
        QVERIFY(m_tasks->wait(60000));
        m_tasks->cancel();
        m_gate.acquire();
        m_tasks->clearStatus(Task::Finished);
        m_tasks->loadFiles({path("root")});
        QVERIFY(!m_tasks->loadFromFile(path("root/a.nimbra-env")));
        m_tasks->clearStatus(Task::Error);
        m_tasks->reloadFailed();
        m_tasks->deleteEncrypted();
        m_tasks->cancel();
        QCoreApplication::sendPostedEvents();
        m_gate.release();
        finish();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QCOMPARE(m_deleted, 2);
        const QString refused = "error:A task is in progress, try again later.|";
        QCOMPARE(log(), "started:Loading files...:1|filesLoaded:1 file loaded.|" + refused.repeated(5)
                            + "statusMessage:Cancelling...:1|started:Cancelling...:0|"
                              "started:Clearing finished tasks...:1|statusCleared:All finished tasks cleared.|"
                              "statusMessage::0");
    }

    // Each request in a batch of batch/x.nimbra-env and the plain batch/bad,
    // or after it (x finished, bad failed).
    void operation_data()
    {
        QTest::addColumn<int>("request"); // a status to clear; -1 reload, -2 delete
        QTest::addColumn<bool>("inBatch");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<QString>("lists"); // pending/failed/finished after the operation, after the batch
        const QString clear = "started:Clearing %1 tasks...:1|statusCleared:", failed = "Could not clear all tasks.";
        const QString pending = clear.arg("pending") + "All pending tasks cleared.", all = clear.arg("all");
        const QString deleting = "started:Deleting encrypted source files...:1|statusMessage:";
        const QString reload = "started:Reloading failed tasks...:1|statusReloadFailedTask:";
        QTest::newRow("Cancelled") << int(Task::Cancelled) << false << pending << "0/1/1";
        QTest::newRow("Waiting") << int(Task::Waiting) << false << pending << "0/1/1";
        QTest::newRow("Error") << int(Task::Error) << false << clear.arg("failed") + "All failed tasks cleared."
                               << "0/0/1";
        QTest::newRow("Finished") << int(Task::Finished) << false
                                  << clear.arg("finished") + "All finished tasks cleared." << "0/1/0";
        QTest::newRow("Cleared") << int(Task::Cleared) << false << all + "All tasks cleared" << "0/0/0";
        QTest::newRow("Decrypting") << int(Task::Decrypting) << false
                                    << "statusCleared:No files cleared for unknown status." << "0/1/1";
        QTest::newRow("reload") << -1 << false << reload + "Failed Tasks reloaded." << "1/0/1";
        QTest::newRow("delete") << -2 << false << deleting + "Encrypted source files deleted from finished tasks.:0"
                                << "0/1/1";
        QTest::newRow("all, batch") << int(Task::Cleared) << true << all + failed << "";
        QTest::newRow("reload, batch") << -1 << true << reload + "Cannot perform operations during decryption."
                                       << "";
        QTest::newRow("delete, batch") << -2 << true << deleting + "Not all encrypted files could be deleted.:0"
                                       << "";
    }
    // No event is served between the start of a batch and the operation's
    // end, so the workers cannot have handed their tasks back by then.
    void operation()
    {
        QFETCH(int, request);
        QFETCH(bool, inBatch);
        QFETCH(QString, expected);
        QFETCH(QString, lists);
        const QString x = path("batch/x.nimbra-env");
        write(x, true);
        QCOMPARE(m_decrypt->addFiles({x, path("batch/bad")}), 2);
        m_decrypt->start(kPassphrase);
        if (!inBatch)
            QTRY_VERIFY_WITH_TIMEOUT(!m_decrypt->isBusy(), 60000);
        if (request >= 0)
            m_tasks->clearStatus(Task::STATUS(request));
        else
            QMetaObject::invokeMethod(m_tasks, request == -1 ? "reloadFailed" : "deleteEncrypted");
        finish();
        QCOMPARE(log(), expected);
        if (!inBatch)
            QCOMPARE(QString("%1/%2/%3").arg(m_decrypt->pendingCount()).arg(m_decrypt->failedCount())
                         .arg(m_decrypt->finishedCount()), lists);
        QCOMPARE(QFile::exists(x), !expected.contains("deleted from"));
    }
};

QTEST_GUILESS_MAIN(TestListOps)
#include "test_listops.moc"
