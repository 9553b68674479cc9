// The output side of a worker run: the plaintext goes into a hidden
// temporary file, which takes the output's name only once it is whole (or,
// after a decrypter failure mid-stream, as the partial output that is kept).
// Any other end removes it: a write fault, a cancel, a failed placement.
#include <engine/VextDecryptWorker.h>

#include <engine/CryptTask.h>
#include <localization/LocaleText.h>

#include "OutputPlacement.h"
#include "OutputWriter.h"

namespace {
// Plaintext moves in pieces of this size; cancellation is seen between two.
constexpr size_t kPieceSize = 1024;
} // namespace

// Never more open than the envelope and never executable; private when the
// envelope's bits are unknown.
uint32_t VextDecryptWorker::outputMode() const
{
    const DecryptRecord &record = m_task.load()->record();
    return record.opened ? (record.layout.envelope.mode & 0666u) : 0600u;
}

// Streams the plaintext into the output. Returns false only when the run was
// cancelled (the output is then removed); every other end sets the result.
bool VextDecryptWorker::copyPlaintext(qint64 sourceSize)
{
    CryptTask *const task = m_task.load();
    OutputWriter output(m_outputPath, kPieceSize);
    // The plaintext is never longer than its envelope.
    if (output.open(sourceSize, outputMode()) != 0) {
        nm_crypto_dec_free(&m_decrypter);
        fail(ResultOutputFailed, QString()); // nothing written, nothing to remove
        return true;
    }
    task->record().outputDevice = output.identity().device;
    task->record().outputInode = output.identity().inode;
    for (;;) {
        uint64_t count = 0;
        const uint32_t read = nm_crypto_dec_read(m_decrypter, output.piece(), kPieceSize, &count);
        if (read != NM_CRYPTO_OK) {
            failDecrypter(read);
            uint32_t notSynced = 0;
            if (output.finish(false, &notSynced) == 0)
                placeOutput(output); // the partial output stays, under the output's name
            return true;
        }
        if (count == 0 || !output.commit(static_cast<qint64>(count)))
            break;
        m_bytesDone += count;
        task->setProgress(fractionDone());
        if (m_cancelRequested)
            break;
    }
    nm_crypto_dec_free(&m_decrypter);
    if (m_cancelRequested)
        return false;
    completeOutput(output);
    return true;
}

// The end of the plaintext: flushed (synced when the envelope is to be
// deleted), closed and placed, or else a write error.
void VextDecryptWorker::completeOutput(OutputWriter &output)
{
    uint32_t syncError = 0;
    if (output.finish(m_syncOutputs, &syncError) != 0 || !placeOutput(output)) {
        fail(ResultWriteFailed, NM_TR("Could not write out to device."));
        return;
    }
    DecryptRecord &record = m_task.load()->record();
    record.dataSynced = m_syncOutputs && syncError == 0;
    if (record.dataSynced)
        syncError = output_placement::syncFolderOf(m_outputPath);
    record.folderSynced = record.dataSynced && syncError == 0;
    record.syncError = syncError;
    fail(ResultOk, QString());
}

// Gives the temporary file the first free name of the task's sequence, from
// the name it was given on. A task made without naming (as in tests) starts
// its sequence at its outputPath.
bool VextDecryptWorker::placeOutput(OutputWriter &output)
{
    CryptTask *const task = m_task.load();
    DecryptRecord &record = task->record();
    if (record.naturalOutput.isEmpty()) {
        record.naturalOutput = m_outputPath;
        record.nameStep = 0;
    }
    QString placed;
    if (output_placement::place(output.temporaryPath(), record.naturalOutput, &record.nameStep,
                                m_names, task, &placed)
        != 0)
        return false;
    output.keep();
    record.placed = true;
    m_outputPath = placed;
    task->setOutputPath(placed);
    task->setOutputSuffixed(record.nameStep > 0);
    return true;
}
