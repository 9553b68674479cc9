#include "EnvelopeRemoval.h"

#include <cerrno>

#include <engine/CryptTask.h>
#include <localization/LocaleText.h>
#include <nmplatform/nmstatus.h>

#include "OutputPlacement.h"

namespace envelope_removal {

namespace {

using output_placement::native;

QString systemText(uint32_t error)
{
    char text[256] = "";
    return QString::fromUtf8(nm_status_text(error, text, sizeof text));
}

// L equals the offset of the main record when the trailer is in the
// envelope, or the envelope's size when the trailer is in its side file.
bool lengthAgrees(const nm_crypto_layout_t &layout)
{
    if (layout.trailer_offset == NM_CRYPTO_TRAILER_IN_SIDE_FILE)
        return layout.length == layout.envelope.size;
    return layout.length == layout.trailer_offset;
}

// The file created for the plaintext, still under the task's outputPath,
// regular and exactly L bytes long.
bool plaintextWhole(const CryptTask &task)
{
    const DecryptRecord &record = task.record();
    nm_file_identity_t now;
    return record.placed
           && nm_file_identify_path(native(task.outputPath()).constData(), 0, &now) == 0
           && now.type == NM_FILE_TYPE_REGULAR && now.device == record.outputDevice
           && now.inode == record.outputInode && now.size == record.layout.length;
}

// Why the envelope must stay, or empty when it may go.
QString whyKeep(const CryptTask &task, const nm_file_identity_t &envelope)
{
    const DecryptRecord &record = task.record();
    if (!record.opened || !nm_file_identity_same(&envelope, &record.layout.envelope))
        return NM_TR("It was replaced or changed after it was decrypted.");
    if (!lengthAgrees(record.layout))
        return NM_TR("Its recorded length does not match the file, so its plaintext may be incomplete.");
    if (!plaintextWhole(task)) {
        const QByteArray output = task.outputPath().toUtf8();
        return NM_TR("Its plaintext %s is missing or incomplete.", output.constData());
    }
    return QString();
}

// Brings the plaintext's data, and its folder's names, to stable storage
// unless the worker did so already. 0 or the error.
uint32_t makeDurable(CryptTask &task)
{
    DecryptRecord &record = task.record();
    if (!record.dataSynced) {
        nm_file_t file;
        nm_file_identity_t opened;
        uint32_t rc = nm_file_open_read(native(task.outputPath()).constData(), &file);
        if (rc == 0)
            rc = nm_file_identify(&file, &opened);
        if (rc == 0 && (opened.device != record.outputDevice || opened.inode != record.outputInode))
            rc = ESTALE; // replaced since the check a moment ago
        if (rc == 0)
            rc = nm_file_sync_data(&file);
        nm_file_close(&file);
        if (rc != 0)
            return rc;
        record.dataSynced = true;
    }
    if (!record.folderSynced) {
        if (const uint32_t rc = output_placement::syncFolderOf(task.outputPath()))
            return rc;
        record.folderSynced = true;
    }
    return 0;
}

Result kept(const QString &reason)
{
    return Result{Outcome::Kept, reason};
}

} // namespace

Result removeEnvelope(CryptTask &task)
{
    const QByteArray source = native(task.sourcePath());
    nm_file_identity_t envelope;
    // Through a link, as the decrypter opened it; removing the name then
    // removes the link alone.
    if (const uint32_t rc = nm_file_identify_path(source.constData(), 1, &envelope))
        return rc == ENOENT ? Result{Outcome::Missing, QString()} : kept(systemText(rc));
    const QString why = whyKeep(task, envelope);
    if (!why.isEmpty())
        return kept(why);
    // A failed data sync is final: the system may have dropped the data and
    // would report the next sync as a success. A folder sync is retried.
    DecryptRecord &record = task.record();
    if (record.dataSynced || record.syncError == 0)
        record.syncError = makeDurable(task);
    if (record.syncError != 0)
        return kept(NM_TR("Its plaintext could not be saved to stable storage: %s",
                          systemText(record.syncError).toUtf8().constData()));
    if (const uint32_t rc = nm_file_delete(source.constData()))
        return rc == ENOENT ? Result{Outcome::Missing, QString()} : kept(systemText(rc));
    return Result{Outcome::Removed, QString()};
}

} // namespace envelope_removal
