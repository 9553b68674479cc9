#include <cerrno>
#include <climits>

#include <QTemporaryDir>

#include "EngineTestSupport.h"
#include "FaultSupport.h"

using namespace engine_test;

// A batch of one envelope, with "delete encrypted files when finished" on,
// meets one fault of the disk or of its source. Whatever happens, the
// envelope stays as it was unless its plaintext is whole, and no partial
// plaintext is left under an output name except by the decrypter-error rule.
class TestFaults : public QObject
{
    Q_OBJECT

    enum Action { None, ShrinkSource, RemoveSource };
    enum Output { NoOutput, Whole, Partial };

private slots:
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void faults_data()
    {
        QTest::addColumn<int>("op");
        QTest::addColumn<uint>("error");
        QTest::addColumn<qlonglong>("afterBytes");
        QTest::addColumn<QByteArray>("target"); // the fault strikes paths with this ending; "": the folder
        QTest::addColumn<int>("action");
        QTest::addColumn<int>("output");
        QTest::addColumn<QString>("message"); // the task's; empty: Finished
        QTest::addColumn<QString>("removal"); // the last report; %1: the envelope
        const QString writeError = "(Could not write out to device. Code: -5)";
        const QString unsynced = "Could not remove file %1. Its plaintext could not be saved to "
                                 "stable storage: Input/output error";
        const qlonglong all = LLONG_MAX;
        auto row = [](const char *name, int op, uint error, qlonglong after, QByteArray target, int action,
                      int output, const QString &message, const QString &removal) {
            QTest::newRow(name) << op << error << after << target << action << output << message << removal;
        };
        row("ENOSPC at the first byte", NM_FILE_OP_WRITE, ENOSPC, 0, ".nmpart", None, NoOutput, writeError, "");
        row("ENOSPC after a short write", NM_FILE_OP_WRITE, ENOSPC, 300000, ".nmpart", None, NoOutput, writeError, "");
        row("EDQUOT mid-file", NM_FILE_OP_WRITE, EDQUOT, 600000, ".nmpart", None, NoOutput, writeError, "");
        row("EIO between two writes", NM_FILE_OP_WRITE, EIO, 262144, ".nmpart", None, NoOutput, writeError, "");
        row("a write that moves nothing", NM_FILE_OP_WRITE, 0, 100000, ".nmpart", None, NoOutput, writeError, "");
        row("close fails, EIO", NM_FILE_OP_CLOSE, EIO, 0, ".nmpart", None, NoOutput, writeError, "");
        row("read-only folder", NM_FILE_OP_CREATE, EROFS, 0, ".nmpart", None, NoOutput,
            "(Could not write to destination. Code: -1)", "");
        row("folder read-only before placing", NM_FILE_OP_PLACE, EROFS, 0, "/f", None, NoOutput, writeError, "");
        row("data sync before delete fails", NM_FILE_OP_SYNC, EIO, 0, ".nmpart", None, Whole, "", unsynced);
        row("folder sync before delete fails", NM_FILE_OP_SYNC, EIO, 0, "", None, Whole, "", unsynced);
        row("source shrinks mid-read", NM_FILE_OP_WRITE, 0, all, ".nmpart", ShrinkSource, Partial,
            "(Read failed Code: 3)", "");
        row("source vanishes mid-read", NM_FILE_OP_WRITE, 0, all, ".nmpart", RemoveSource, Whole, "",
            "Could not remove file %1. Does not exist");
    }

    void faults()
    {
        QFETCH(int, op);
        QFETCH(uint, error);
        QFETCH(qlonglong, afterBytes);
        QFETCH(QByteArray, target);
        QFETCH(int, action);
        QFETCH(int, output);
        QFETCH(QString, message);
        QFETCH(QString, removal);
        QTemporaryDir tmp;
        const QByteArray plain = QByteArray::fromStdString(envelope_writer::patternString(0, 1 << 20));
        const QString source = envelope(tmp.filePath("f.nimbra-env"), plain);
        const QByteArray before = readFile(source);
        FaultPlan plan{op, error, afterBytes, target.isEmpty() ? QFile::encodeName(tmp.path()) : target, {}};
        if (action == ShrinkSource)
            plan.action = [&] { QFile::resize(source, 100000); };
        if (action == RemoveSource)
            plan.action = [&] { QFile::remove(source); };

        DecryptManager manager;
        manager.setDeleteEncryptedProvider([] { return true; });
        manager.addFiles({source});
        {
            ScopedFault fault(plan);
            QVERIFY(finishBatch(manager));
        }
        const QList<CryptTask *> tasks = manager.finishedTasks() + manager.failedTasks();
        QCOMPARE(tasks.size(), 1);
        QCOMPARE(tasks.first()->status(), message.isEmpty() ? Task::Finished : Task::Error);
        QCOMPARE(tasks.first()->errorMessage(), message);
        QCOMPARE(manager.lastMessage(), removal.arg(source));
        const QByteArray written = readFile(tmp.filePath("f"));
        QCOMPARE(written == "<missing>", output == NoOutput);
        QCOMPARE(written == plain, output == Whole);
        QVERIFY(output != Partial || (!written.isEmpty() && plain.startsWith(written)));
        if (action == None)
            QCOMPARE(readFile(source), before);
        QCOMPARE(QFile::exists(source), action != RemoveSource);
        QCOMPARE(QDir(tmp.path()).entryList({"*.nmpart"}, QDir::Files | QDir::Hidden), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestFaults)
#include "test_faults.moc"
