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

private slots:
    void initTestCase() { umask(022); }

    void takenNames_data()
    {
        QTest::addColumn<QByteArray>("target"); // of a link
        for (const char *kind : {"FIFO without a reader", "FIFO with a reader", "folder", "file of one's own",
                                 "a crashed run's temporary file"})
            QTest::newRow(kind) << QByteArray();
        QTest::newRow("link to /dev/null") << QByteArray("/dev/null");
        QTest::newRow("link to a file elsewhere") << QFile::encodeName(elsewhere.filePath("victim"));
        QTest::newRow("dangling link") << QByteArray("nowhere");
    }

    // "x" is the person's own file, so the plaintext of x.nimbra-env would go
    // to "x(decrypted)", which something holds already.
    void takenNames()
    {
        QFETCH(QByteArray, target);
        const QByteArray kind = QTest::currentDataTag();
        QTemporaryDir tmp;
        const QString source = envelope(tmp.filePath("x.nimbra-env"), "secret plaintext");
        const QByteArray taken = QFile::encodeName(tmp.filePath("x(decrypted)"));
        writeFile(tmp.filePath("x"), "mine");
        writeFile(elsewhere.filePath("victim"), "victim");
        QVERIFY(!kind.startsWith("FIFO") || mkfifo(taken.constData(), 0600) == 0);
        const int reader = kind.endsWith("reader") ? open(taken.constData(), O_RDONLY | O_NONBLOCK) : -1;
        QVERIFY(target.isEmpty() || symlink(target.constData(), taken.constData()) == 0);
        QVERIFY(kind != "folder" || mkdir(taken.constData(), 0700) == 0);
        if (kind.startsWith("file") || kind.startsWith("a crashed"))
            writeFile(QFile::decodeName(taken), "also mine");
        if (kind.startsWith("a crashed"))
            writeFile(tmp.filePath(".x(decrypted).nmpart"), "left over");
        QMap<QString, QByteArray> before = snapshot(tmp.path());
        before.remove("x.nimbra-env");

        DecryptManager manager;
        manager.setDeleteEncryptedProvider([] { return true; });
        manager.addFiles({source});
        QVERIFY(finishBatch(manager));
        const CryptTask *task = manager.finishedTasks().value(0);
        QVERIFY(task && task->isSourceDeleted()); // its plaintext is whole:
        QCOMPARE(task->outputPath(), tmp.filePath("x(decrypted 2)"));
        struct stat st; // as open as its envelope, which the umask 022 made 0644
        QVERIFY(stat(QFile::encodeName(task->outputPath()).constData(), &st) == 0 && (st.st_mode & 07777) == 0644);
        QMap<QString, QByteArray> after = snapshot(tmp.path());
        QCOMPARE(after.take("x(decrypted 2)"), QByteArray("file secret plaintext"));
        QCOMPARE(after, before);
        QCOMPARE(readFile(elsewhere.filePath("victim")), QByteArray("victim"));
        char byte;
        QVERIFY(reader < 0 || read(reader, &byte, 1) <= 0); // nothing went into the pipe
        close(reader);
    }

    // Names chosen for one batch count as taken for every other task of it,
    // before any is placed, however many names the batch holds.
    void namesReservedInABatch()
    {
        QTemporaryDir tmp;
        writeFile(tmp.filePath("x"), "an envelope without the extension");
        DecryptManager manager;
        QStringList names{"a.nimbra-env", "a.NIMBRA-ENV", "x.nimbra-env", "x", "a.Nimbra-Env"};
        for (int i = 0; i < 100; ++i)
            names.insert(1, QStringLiteral("f%1.nimbra-env").arg(i));
        QStringList outputs;
        std::vector<std::unique_ptr<CryptTask>> tasks; // alive, as a batch's tasks are
        for (const QString &name : names) {
            tasks.emplace_back(manager.createTask(tmp.filePath(name), QString()));
            if (!name.startsWith('f'))
                outputs << QFileInfo(tasks.back()->outputPath()).fileName();
        }
        QCOMPARE(outputs, QStringList({"a", "a(decrypted)", "x(decrypted)", "x(decrypted 2)", "a(decrypted 2)"}));
    }

    void sameNaturalName_data()
    {
        QTest::addColumn<QStringList>("names"); // envelopes made in this order
        QTest::addColumn<int>("threads");
        for (int threads : {1, 8}) {
            QTest::addRow("letter case, %d threads", threads) << QStringList{"a.nimbra-env", "a.NIMBRA-ENV"} << threads;
            QTest::addRow("without the extension, %d threads", threads) << QStringList{"x.nimbra-env", "x"} << threads;
        }
    }

    // Every plaintext is whole somewhere, never more open than its envelope
    // (the first one private, the second executable) and never executable.
    void sameNaturalName()
    {
        QFETCH(QStringList, names);
        QFETCH(int, threads);
        QTemporaryDir tmp;
        QStringList paths;
        QList<QByteArray> plaintexts;
        for (const QString &name : names) {
            plaintexts << QByteArray(300000, 'p') + name.toUtf8();
            paths << envelope(tmp.filePath(name), plaintexts.last());
            QCOMPARE(chmod(QFile::encodeName(paths.last()).constData(), paths.size() == 1 ? 0600 : 0755), 0);
        }
        DecryptManager manager;
        manager.onChangeNumThreads(threads);
        manager.setDeleteEncryptedProvider([] { return true; });
        manager.addFiles(paths);
        QVERIFY(finishBatch(manager));
        QCOMPARE(manager.finishedCount(), names.size());
        QMap<QByteArray, int> modeOf; // by content
        for (const QString &name : QDir(tmp.path()).entryList(QDir::Files | QDir::Hidden)) {
            struct stat st;
            QCOMPARE(stat(QFile::encodeName(tmp.filePath(name)).constData(), &st), 0);
            modeOf[readFile(tmp.filePath(name))] = int(st.st_mode & 07777);
        }
        QCOMPARE(modeOf.value(plaintexts[0]), 0600);
        QCOMPARE(modeOf.value(plaintexts[1]), 0644); // under the umask 022
    }
};

QTEST_GUILESS_MAIN(TestPlacement)
#include "test_placement.moc"
