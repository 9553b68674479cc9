#include <cstdio>

#include <QTemporaryDir>

#include "EngineTestSupport.h"
#include "FaultSupport.h"

using namespace engine_test;

// An envelope goes only while it is the file that was decrypted, its L
// agrees with its layout and its plaintext is whole under its name: after
// success and by the Delete Encrypted command alike. Otherwise it stays,
// exactly as it is, with the reason reported.
class TestRemoval : public QObject
{
    Q_OBJECT
    QTemporaryDir elsewhere;
    QByteArray replacement; // the bytes that replace() put at the source

    enum Change {
        ReplacedDuringRun,
        TruncatedDuringRun,
        WrongLength,
        WrongLengthInSideFile,
        EnvelopeReplaced,
        PlaintextRemoved,
        PlaintextShortened
    };

    static void flipLengthBit(const QString &file, qint64 mainRecord)
    {
        QFile f(file);
        char byte = 0;
        // 5,000 is 0x1388; bit 12 off makes 904.
        if (!f.open(QIODevice::ReadWrite) || !f.seek(mainRecord + 6) || !f.getChar(&byte)
            || !f.seek(mainRecord + 6) || !f.putChar(char(byte ^ 0x10)))
            qFatal("cannot change %s", qPrintable(file));
    }

    // Puts the other envelope at source in one rename, as an editor would.
    void replace(const QString &source)
    {
        const QString other = envelope(elsewhere.filePath("other.nimbra-env"), "other");
        replacement = readFile(other);
        if (std::rename(QFile::encodeName(other).constData(), QFile::encodeName(source).constData()) != 0)
            qFatal("cannot replace %s", qPrintable(source));
    }

    // What happens after the batch, before the Delete Encrypted command.
    void changeAfter(int change, const QString &source, const QString &output)
    {
        if (change == EnvelopeReplaced)
            replace(source);
        if (change == PlaintextRemoved)
            QFile::remove(output);
        if (change == PlaintextShortened)
            QFile::resize(output, 100);
    }

private slots:
    void cleanup() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    void changed_data()
    {
        QTest::addColumn<int>("change");
        QTest::addColumn<QString>("reason"); // %1: the plaintext's path
        const QString replaced = "It was replaced or changed after it was decrypted.";
        const QString length = "Its recorded length does not match the file, so its plaintext may be incomplete.";
        const QString missing = "Its plaintext %1 is missing or incomplete.";
        QTest::newRow("replaced during its run") << int(ReplacedDuringRun) << replaced;
        QTest::newRow("truncated during its run") << int(TruncatedDuringRun) << replaced;
        QTest::newRow("wrong L") << int(WrongLength) << length;
        QTest::newRow("wrong L in the side file") << int(WrongLengthInSideFile) << length;
        QTest::newRow("command: envelope replaced") << int(EnvelopeReplaced) << replaced;
        QTest::newRow("command: plaintext removed") << int(PlaintextRemoved) << missing;
        QTest::newRow("command: plaintext shortened") << int(PlaintextShortened) << missing;
    }

    void changed()
    {
        QFETCH(int, change);
        QFETCH(QString, reason);
        QTemporaryDir tmp;
        const QString source = tmp.filePath("e.nimbra-env"), output = tmp.filePath("e");
        const QByteArray plain = QByteArray::fromStdString(envelope_writer::patternString(0, 5000));
        envelope_writer::EnvelopeOptions options;
        options.sideFile = change == WrongLengthInSideFile;
        QVERIFY(envelope_writer::writeEnvelope(QFile::encodeName(source).toStdString(), plain.toStdString(),
                                               kPassphrase, options));
        if (change == WrongLength)
            flipLengthBit(source, plain.size());
        if (change == WrongLengthInSideFile)
            flipLengthBit(source + ".nmb-meta", 0);
        const QByteArray original = readFile(source);
        FaultPlan plan{NM_FILE_OP_CLOSE, 0, 0, ".nmpart", {}};
        if (change == ReplacedDuringRun)
            plan.action = [&] { replace(source); };
        if (change == TruncatedDuringRun)
            plan.action = [&] { QFile::resize(source, QFileInfo(source).size() - 1); };

        const bool command = change >= EnvelopeReplaced;
        DecryptManager manager;
        manager.setDeleteEncryptedProvider([&] { return !command; });
        manager.addFiles({source});
        {
            ScopedFault fault(plan);
            QVERIFY(finishBatch(manager));
        }
        QCOMPARE(manager.finishedCount(), 1); // decrypting itself is unchanged
        QCOMPARE(readFile(output), plain.left(change == WrongLength || change == WrongLengthInSideFile ? 904 : 5000));
        changeAfter(change, source, output);
        QVERIFY(!command || !manager.deleteEncrypted());
        QCOMPARE(manager.lastMessage(), "Could not remove file " + source + ". " + reason.arg(output));
        const bool replaced = change == ReplacedDuringRun || change == EnvelopeReplaced;
        QCOMPARE(readFile(source), replaced ? replacement : original.left(original.size() - (change == TruncatedDuringRun)));
        QVERIFY(!manager.finishedTasks().first()->isSourceDeleted());
    }
};

QTEST_GUILESS_MAIN(TestRemoval)
#include "test_removal.moc"
