#include <QTemporaryDir>

#include "EngineTestSupport.h"

using namespace engine_test;

class TestNaming : public QObject
{
    Q_OBJECT

    // Runs one envelope through a batch and returns its finished task.
    static CryptTask *decryptOne(DecryptManager &manager, const QString &path)
    {
        runBatch(manager, {path});
        const QList<CryptTask *> done = manager.finishedTasks();
        return done.isEmpty() ? nullptr : done.last();
    }

private slots:
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void outputName_data()
    {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QStringList>("existing");
        QTest::addColumn<QString>("output");
        QTest::addColumn<bool>("suffixed");
        QTest::addColumn<bool>("plain");
        QTest::newRow("free") << "x.nimbra-env" << QStringList() << "x" << false << false;
        QTest::newRow("upper case extension") << "a.NIMBRA-ENV" << QStringList() << "a" << false
                                              << false;
        QTest::newRow("inner extension") << "r.pdf.nimbra-env" << QStringList() << "r.pdf"
                                         << false << false;
        QTest::newRow("taken") << "x.nimbra-env" << QStringList("x") << "x(decrypted)" << true
                               << false;
        QTest::newRow("taken by a folder") << "x.nimbra-env" << QStringList("x/") << "x(decrypted)"
                                           << true << false;
        QTest::newRow("marked name taken") << "x(decrypted).nimbra-env"
                                           << QStringList("x(decrypted)") << "x(decrypted 2)"
                                           << true << false;
        QTest::newRow("mark before last extension") << "a.b.nimbra-env" << QStringList("a.b")
                                                    << "a(decrypted).b" << true << false;
        QTest::newRow("checked once") << "x.nimbra-env" << QStringList({"x", "x(decrypted)"})
                                      << "x(decrypted)" << true << false;
        QTest::newRow("plain input") << "photo.JPG" << QStringList() << "photo(decrypted).JPG"
                                     << true << true;
        QTest::newRow("plain without extension") << "notes" << QStringList() << "notes(decrypted)"
                                                 << true << true;
    }

    void outputName()
    {
        QFETCH(QString, source);
        QFETCH(QStringList, existing);
        QFETCH(QString, output);
        QFETCH(bool, suffixed);
        QFETCH(bool, plain);
        QTemporaryDir dir;
        writeFile(dir.filePath(source), "envelope");
        for (const QString &name : existing) {
            if (name.endsWith(QLatin1Char('/')))
                QDir(dir.path()).mkdir(name);
            else
                writeFile(dir.filePath(name), "already here");
        }
        DecryptManager manager;
        QScopedPointer<CryptTask> task(manager.createTask(dir.filePath(source), "given"));
        QCOMPARE(task->outputPath(), dir.filePath(output));
        QCOMPARE(task->isOutputSuffixed(), suffixed);
        QCOMPARE(task->isPlainInput(), plain);
        QCOMPARE(task->status(), Task::Waiting);
        QCOMPARE(task->passphrase(), QStringLiteral("given"));
    }

    void plainInputTakesBackItsName()
    {
        QTemporaryDir dir;
        const QString source = envelope(dir.filePath("photo.JPG"), "pixels");
        DecryptManager manager;
        CryptTask *task = decryptOne(manager, source);
        QVERIFY(task);
        QCOMPARE(task->sourcePath(), source + ".nimbra-env");
        QCOMPARE(task->addedPath(), source);
        QCOMPARE(task->outputPath(), source);
        QVERIFY(!task->isOutputSuffixed());
        QCOMPARE(readFile(source), QByteArray("pixels"));
        QVERIFY(QFile::exists(source + ".nimbra-env"));
        QVERIFY(!QFile::exists(dir.filePath("photo(decrypted).JPG")));
    }

    void plainInputWhoseRenameFails()
    {
        QTemporaryDir dir;
        const QString source = envelope(dir.filePath("notes.txt"), "words");
        writeFile(source + ".nimbra-env", "in the way");
        DecryptManager manager;
        QSignalSpy error(&manager, &DecryptManager::error);
        CryptTask *task = decryptOne(manager, source);
        QVERIFY(task);
        QCOMPARE(task->status(), Task::Finished);
        QCOMPARE(error.count(), 1);
        QCOMPARE(error.first().first().toString(),
                 "Could not rename input " + source + " to " + source + ".nimbra-env");
        QVERIFY(!task->isPlainInput());
        QVERIFY(task->isOutputSuffixed());
        QCOMPARE(task->sourcePath(), source);
        QCOMPARE(readFile(dir.filePath("notes(decrypted).txt")), QByteArray("words"));
        QCOMPARE(readFile(source + ".nimbra-env"), QByteArray("in the way"));
        QVERIFY(readFile(source) != QByteArray("words"));
    }

    void deleteAfterSuccess_data()
    {
        QTest::addColumn<int>("setting"); // 0 off, 1 on, 2 on but the file vanished
        QTest::addColumn<bool>("exists");
        QTest::addColumn<QString>("message");
        QTest::newRow("off") << 0 << true << QString();
        QTest::newRow("on") << 1 << false << QString();
        QTest::newRow("vanished") << 2 << false << "Could not remove file %1. Does not exist";
    }

    void deleteAfterSuccess()
    {
        QFETCH(int, setting);
        QFETCH(bool, exists);
        QFETCH(QString, message);
        QTemporaryDir dir;
        const QString source = envelope(dir.filePath("a.nimbra-env"), "plain");
        DecryptManager manager;
        manager.setDeleteEncryptedProvider([&] {
            if (setting == 2)
                QFile::remove(source);
            return setting != 0;
        });
        QSignalSpy error(&manager, &DecryptManager::error);
        CryptTask *task = decryptOne(manager, source);
        QVERIFY(task);
        QCOMPARE(QFile::exists(source), exists);
        QCOMPARE(task->isSourceDeleted(), setting == 1);
        QCOMPARE(task->status(), Task::Finished);
        QCOMPARE(readFile(dir.filePath("a")), QByteArray("plain"));
        QCOMPARE(error.count(), message.isEmpty() ? 0 : 1);
        if (!message.isEmpty())
            QCOMPARE(error.first().first().toString(), message.arg(source));
    }

    void deleteEncryptedTwice()
    {
        QTemporaryDir dir;
        const QStringList sources = {envelope(dir.filePath("1.nimbra-env"), "1"),
                                     envelope(dir.filePath("2.nimbra-env"), "2")};
        DecryptManager manager;
        runBatch(manager, sources);
        QSignalSpy error(&manager, &DecryptManager::error);
        QVERIFY(manager.deleteEncrypted());
        for (CryptTask *task : manager.finishedTasks())
            QVERIFY(task->isSourceDeleted() && !QFile::exists(task->sourcePath()));
        QCOMPARE(error.count(), 0);
        QVERIFY(!manager.deleteEncrypted());
        QCOMPARE(error.count(), 2);
        QCOMPARE(manager.lastMessage(),
                 "Could not remove file " + manager.finishedTasks().last()->sourcePath()
                     + ". file does not exist.");
        QCOMPARE(readFile(dir.filePath("2")), QByteArray("2"));
    }
};

QTEST_GUILESS_MAIN(TestNaming)
#include "test_naming.moc"
