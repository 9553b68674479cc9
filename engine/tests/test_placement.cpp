#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QTemporaryDir>

#include "EngineTestSupport.h"

using namespace engine_test;

// A plaintext never replaces or writes through anything: a taken name, of
// whatever kind, moves it on along the name sequence, and the names chosen
// in one batch never meet. With deletion on, in each case every plaintext
// still exists whole and nothing that was there before was changed.
class TestPlacement : public QObject
{
    Q_OBJECT
    QTemporaryDir elsewhere;

    static DecryptManager *deleting(DecryptManager &manager)
    {
        manager.setDeleteEncryptedProvider([] { return true; });
        return &manager;
    }

    // The contents of every file in folder.
    static QSet<QByteArray> contents(const QString &folder)
    {
        QSet<QByteArray> found;
        for (const QByteArray &entry : snapshot(folder))
            found << entry;
        return found;
    }

private slots:
    void initTestCase() { umask(022); }
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void takenNames_data()
    {
        QTest::addColumn<QString>("kind"); // of the entry named "x(decrypted)"
        for (const char *kind : {"FIFO without a reader", "FIFO with a reader", "link to /dev/null",
                                 "link to a file elsewhere", "dangling link", "folder", "file of one's own"})
            QTest::newRow(kind) << QString(kind);
    }

    // "x" is the person's own file, so the plaintext of x.nimbra-env would go
    // to "x(decrypted)", which something holds already.
    void takenNames()
    {
        QFETCH(QString, kind);
        QTemporaryDir tmp;
        const QString source = envelope(tmp.filePath("x.nimbra-env"), "secret plaintext");
        writeFile(tmp.filePath("x"), "mine");
        const QByteArray taken = QFile::encodeName(tmp.filePath("x(decrypted)"));
        const QString victim = elsewhere.filePath("victim");
        writeFile(victim, "victim");
        if (kind.startsWith("FIFO"))
            QCOMPARE(mkfifo(taken.constData(), 0600), 0);
        const int reader = kind == "FIFO with a reader" ? open(taken.constData(), O_RDONLY | O_NONBLOCK) : -1;
        if (kind.startsWith("link") || kind == "dangling link") {
            const QByteArray target = kind.contains("null") ? "/dev/null"
                                      : kind.contains("elsewhere") ? QFile::encodeName(victim)
                                                                   : "nowhere";
            QCOMPARE(symlink(target.constData(), taken.constData()), 0);
        }
        if (kind == "folder")
            QVERIFY(QDir(tmp.path()).mkdir("x(decrypted)"));
        if (kind == "file of one's own")
            writeFile(QFile::decodeName(taken), "also mine");
        QMap<QString, QByteArray> before = snapshot(tmp.path());
        before.remove("x.nimbra-env");

        DecryptManager manager;
        deleting(manager)->addFiles({source});
        QVERIFY(finishBatch(manager));
        QCOMPARE(manager.finishedCount(), 1);
        const CryptTask *task = manager.finishedTasks().first();
        QCOMPARE(task->outputPath(), tmp.filePath("x(decrypted 2)"));
        QCOMPARE(readFile(task->outputPath()), QByteArray("secret plaintext"));
        QVERIFY(task->isSourceDeleted() && !QFile::exists(source)); // the plaintext is whole
        QMap<QString, QByteArray> after = snapshot(tmp.path());
        after.remove("x(decrypted 2)");
        QCOMPARE(after, before);
        QCOMPARE(readFile(victim), QByteArray("victim"));
        char byte;
        QVERIFY(reader < 0 || read(reader, &byte, 1) <= 0); // nothing went into the pipe
        if (reader >= 0)
            close(reader);
    }

    // Names chosen for one batch count as taken for every other task of it,
    // before any is placed.
    void namesReservedInABatch()
    {
        QTemporaryDir tmp;
        writeFile(tmp.filePath("x"), "an envelope without the extension");
        DecryptManager manager;
        QStringList outputs;
        std::vector<std::unique_ptr<CryptTask>> tasks; // alive, as a batch's tasks are
        for (const char *name : {"a.nimbra-env", "a.NIMBRA-ENV", "x.nimbra-env", "x", "a.Nimbra-Env"}) {
            tasks.emplace_back(manager.createTask(tmp.filePath(name), QString()));
            outputs << tasks.back()->outputPath().mid(tmp.path().size() + 1);
        }
        QCOMPARE(outputs, QStringList({"a", "a(decrypted)", "x(decrypted)", "x(decrypted 2)", "a(decrypted 2)"}));
    }

    void sameNaturalName_data()
    {
        QTest::addColumn<QStringList>("names"); // envelopes made in this order
        QTest::addColumn<int>("threads");
        const QStringList cases{"a.nimbra-env", "a.NIMBRA-ENV"}, plain{"x.nimbra-env", "x"};
        for (int threads : {1, 8}) {
            QTest::addRow("letter case, %d threads", threads) << cases << threads;
            QTest::addRow("without the extension, %d threads", threads) << plain << threads;
        }
    }

    void sameNaturalName()
    {
        QFETCH(QStringList, names);
        QFETCH(int, threads);
        QTemporaryDir tmp;
        QStringList paths;
        QSet<QByteArray> plaintexts;
        for (const QString &name : names) {
            const QByteArray plain = QByteArray(300000, 'p') + name.toUtf8();
            paths << envelope(tmp.filePath(name), plain);
            plaintexts << "file " + plain;
        }
        DecryptManager manager;
        manager.onChangeNumThreads(threads);
        deleting(manager)->addFiles(paths);
        QVERIFY(finishBatch(manager));
        QCOMPARE(manager.finishedCount(), names.size());
        QVERIFY(contents(tmp.path()).contains(plaintexts));
    }

    void permissions_data()
    {
        QTest::addColumn<int>("envelopeMode");
        QTest::addColumn<int>("outputMode"); // under the umask 022
        QTest::newRow("private") << 0600 << 0600;
        QTest::newRow("group may read") << 0640 << 0640;
        QTest::newRow("everyone may read") << 0644 << 0644;
        QTest::newRow("executable") << 0755 << 0644;
        QTest::newRow("open to all") << 0666 << 0644;
    }

    // Never more open than the envelope.
    void permissions()
    {
        QFETCH(int, envelopeMode);
        QFETCH(int, outputMode);
        QTemporaryDir tmp;
        const QString source = envelope(tmp.filePath("p.nimbra-env"), "private");
        QCOMPARE(chmod(QFile::encodeName(source).constData(), mode_t(envelopeMode)), 0);
        DecryptManager manager;
        manager.addFiles({source});
        QVERIFY(finishBatch(manager));
        struct stat st;
        QCOMPARE(stat(QFile::encodeName(tmp.filePath("p")).constData(), &st), 0);
        QCOMPARE(int(st.st_mode & 07777), outputMode);
    }
};

QTEST_GUILESS_MAIN(TestPlacement)
#include "test_placement.moc"
