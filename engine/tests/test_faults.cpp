#include <cerrno>
#include <climits>
#include <cstdio>

#include <QRegularExpression>
#include <QTemporaryDir>

#include "EngineTestSupport.h"
#include "FaultSupport.h"

using namespace engine_test;
Q_DECLARE_METATYPE(FaultPlan)

// One envelope meets a fault of the disk, or a change of itself or of its
// plaintext, with "delete encrypted files when finished" on or before the
// Delete Encrypted command. Whatever happens, the envelope goes only when
// its plaintext is whole and durable and it is still the file decrypted,
// and no partial plaintext is left under an output name except by the
// decrypter-error rule.
class TestFaults : public QObject
{
    Q_OBJECT
    const QByteArray plain = QByteArray::fromStdString(envelope_writer::patternString(0, (1 << 20) + 5000));

    enum Change {
        None, NotDeleting, PlainInput, InSideFile, WrongLength, WrongLengthInSideFile, // before the run
        ShrinkSource, RemoveSource, ReplaceSource, TruncateSource, // where the fault plan strikes
        Command, EnvelopeReplaced, PlaintextRemoved, PlaintextShortened, PlaintextCopied // then the command
    };
    enum Output { NoOutput, Whole, Partial };

private slots:
    void oneEnvelope_data()
    {
        QTest::addColumn<FaultPlan>("plan"); // target "": the folder
        QTest::addColumn<int>("change");
        QTest::addColumn<int>("output");
        QTest::addColumn<QString>("message");   // the task's; empty: Finished
        QTest::addColumn<QString>("report");    // the last; %1: the envelope, %2: the plaintext
        QTest::addColumn<QStringList>("calls"); // syncs (4) and placements (7) if given; "dir": the folder
        const QString writeError = "(Could not write out to device. Code: -5)";
        const QString kept = "Could not remove file %1. ";
        const QString unsynced = kept + "Its plaintext could not be saved to stable storage: Input/output error";
        const QString replaced = kept + "It was replaced or changed after it was decrypted.";
        const QString length = kept + "Its recorded length does not match the file, so its plaintext may be incomplete.";
        const QString missing = kept + "Its plaintext %2 is missing or incomplete.";
        auto row = [](const char *name, FaultPlan plan, int change, int output, const QString &message,
                      const QString &report = QString(), const QStringList &calls = {}) {
            QTest::newRow(name) << plan << change << output << message << report << calls;
        };
        row("ENOSPC at the first byte", {NM_FILE_OP_WRITE, ENOSPC}, None, NoOutput, writeError);
        row("ENOSPC after a short write", {NM_FILE_OP_WRITE, ENOSPC, 300000}, None, NoOutput, writeError);
        row("EDQUOT mid-file", {NM_FILE_OP_WRITE, EDQUOT, 600000}, None, NoOutput, writeError);
        row("EIO between two writes", {NM_FILE_OP_WRITE, EIO, 262144}, None, NoOutput, writeError);
        row("a write that moves nothing", {NM_FILE_OP_WRITE, 0, 100000}, None, NoOutput, writeError);
        row("close fails, EIO", {NM_FILE_OP_CLOSE, EIO}, None, NoOutput, writeError);
        row("read-only folder", {NM_FILE_OP_CREATE, EROFS}, None, NoOutput, "(Could not write to destination. Code: -1)");
        row("folder read-only before placing", {NM_FILE_OP_PLACE, EROFS, 0, "/f"}, None, NoOutput, writeError);
        row("data sync before delete fails", {NM_FILE_OP_SYNC, EIO}, None, Whole, "", unsynced);
        row("folder sync before delete fails", {NM_FILE_OP_SYNC, EIO, 0, ""}, None, Whole, "", unsynced);
        row("source shrinks mid-read", {NM_FILE_OP_WRITE, 0, LLONG_MAX}, ShrinkSource, Partial, "(Read failed Code: 3)");
        row("source vanishes mid-read", {NM_FILE_OP_WRITE, 0, LLONG_MAX}, RemoveSource, Whole, "",
            "Could not remove file %1. Does not exist");
        row("source replaced during its run", {NM_FILE_OP_CLOSE}, ReplaceSource, Whole, "", replaced);
        row("source truncated during its run", {NM_FILE_OP_CLOSE}, TruncateSource, Whole, "", replaced);
        row("deleted", {}, None, Whole, "", "", {"4 .f.nmpart", "7 f", "4 dir"});
        row("nothing deleted, nothing synced", {}, NotDeleting, Whole, "", "", {"7 f"});
        row("without the extension, deleted", {}, PlainInput, Whole, "", "",
            {"4 .f(decrypted).nmpart", "7 f(decrypted)", "4 dir", "7 f.nimbra-env", "7 f", "4 dir"});
        row("trailer in the side file", {}, InSideFile, Whole, "");
        row("wrong L", {}, WrongLength, Partial, "", length);
        row("wrong L in the side file", {}, WrongLengthInSideFile, Partial, "", length);
        row("command", {}, Command, Whole, "");
        row("command: envelope replaced", {}, EnvelopeReplaced, Whole, "", replaced);
        row("command: plaintext removed", {}, PlaintextRemoved, NoOutput, "", missing);
        row("command: plaintext shortened", {}, PlaintextShortened, Partial, "", missing);
        row("command: plaintext replaced by a copy", {}, PlaintextCopied, Whole, "", missing);
    }

    void oneEnvelope()
    {
        QFETCH(FaultPlan, plan);
        QFETCH(int, change);
        QFETCH(int, output);
        QFETCH(QString, message);
        QFETCH(QString, report);
        QFETCH(QStringList, calls);
        QTemporaryDir tmp;
        const QString source = tmp.filePath(change == PlainInput ? "f" : "f.nimbra-env"), out = tmp.filePath("f");
        const bool sideFile = change == InSideFile || change == WrongLengthInSideFile;
        envelope_writer::EnvelopeOptions options;
        options.sideFile = sideFile;
        QVERIFY(envelope_writer::writeEnvelope(QFile::encodeName(source).toStdString(), plain.toStdString(),
                                               kPassphrase, options));
        if (change == WrongLength || change == WrongLengthInSideFile) { // a trailer with L 4,096 bytes short
            QFile trailer(sideFile ? source + ".nmb-meta" : source);
            const std::string bytes = envelope_writer::buildTrailer(plain.size() - 4096, kPassphrase);
            QVERIFY(trailer.resize(sideFile ? 0 : plain.size()) && trailer.open(QIODevice::Append));
            QVERIFY(trailer.write(bytes.data(), qint64(bytes.size())) == qint64(bytes.size()));
        }
        QByteArray after = readFile(source); // the envelope, as long as it stays
        // The change, made where the plan strikes, or after the run for the command.
        plan.target = plan.target.isEmpty() ? QFile::encodeName(tmp.path()) : plan.target;
        plan.action = [&] {
            const QString other = tmp.filePath("other"); // to be put in place in one rename
            if (change == ShrinkSource || change == TruncateSource)
                after.truncate(change == ShrinkSource ? 100000 : after.size() - 1), QFile::resize(source, after.size());
            if (change == RemoveSource)
                after = "<missing>", QFile::remove(source);
            if (change == PlaintextRemoved)
                QFile::remove(out);
            if (change == ReplaceSource || change == EnvelopeReplaced)
                after = readFile(envelope(other, "other")), std::rename(qPrintable(other), qPrintable(source));
            if (change == PlaintextShortened)
                QFile::resize(out, 100);
            if (change == PlaintextCopied) // a whole file of one's own
                writeFile(other, plain), std::rename(qPrintable(other), qPrintable(out));
        };
        DecryptManager manager;
        manager.setDeleteEncryptedProvider([=] { return change < Command && change != NotDeleting; });
        manager.addFiles({source});
        {
            ScopedFault fault(plan);
            QVERIFY(finishBatch(manager));
        }
        const QList<CryptTask *> tasks = manager.finishedTasks() + manager.failedTasks();
        QCOMPARE(tasks.size(), 1);
        QCOMPARE(tasks.first()->status(), message.isEmpty() ? Task::Finished : Task::Error);
        QCOMPARE(tasks.first()->errorMessage(), message);
        if (change > Command)
            plan.action();
        const bool deleted = message.isEmpty() && report.isEmpty() && change != NotDeleting;
        QVERIFY(change < Command || manager.deleteEncrypted() == deleted);
        QCOMPARE(manager.lastMessage(), report.replace("%1", source).replace("%2", out));
        QCOMPARE(tasks.first()->isSourceDeleted(), deleted);
        QCOMPARE(readFile(tasks.first()->sourcePath()), deleted ? "<missing>" : after);
        const QByteArray written = readFile(out);
        QCOMPARE(written == "<missing>", output == NoOutput);
        QCOMPARE(written == plain, output == Whole);
        QVERIFY(output != Partial || (!written.isEmpty() && plain.startsWith(written)));
        QCOMPARE(QDir(tmp.path()).entryList({"*.nmpart"}, QDir::Files | QDir::Hidden), QStringList());
        const QRegularExpression folder(" " + QRegularExpression::escape(QFileInfo(tmp.path()).fileName()) + "$");
        if (!calls.isEmpty())
            QCOMPARE(g_calls.filter(QRegularExpression("^[47] ")).replaceInStrings(folder, " dir"), calls);
    }
};

QTEST_GUILESS_MAIN(TestFaults)
#include "test_faults.moc"
