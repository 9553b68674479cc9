// Task creation with its output name, and what happens to the names on disk
// once a file has been decrypted.
#include <engine/DecryptManager.h>

#include <new>

#include <localization/LocaleText.h>
#include <nmplatform/nmplace.h>

#include "EnvelopeRemoval.h"
#include "OutputNaming.h"
#include "OutputPlacement.h"

namespace {
QByteArray utf8(const QString &text)
{
    return text.toUtf8();
}

// A rename that never replaces anything.
bool renameFree(const QString &from, const QString &to)
{
    return nm_file_place(output_placement::native(from).constData(),
                         output_placement::native(to).constData())
           == 0;
}

QString keptText(const QString &source, const QString &reason)
{
    return NM_TR("Could not remove file %s", utf8(source).constData()) + QLatin1String(". ")
           + reason;
}
} // namespace

CryptTask *DecryptManager::createTask(const QString &path, const QString &passphrase)
{
    CryptTask *task = new (std::nothrow) CryptTask(path, nullptr);
    if (!task) {
        reportError(NM_TR("Error: could not allocate memory for task %s ", utf8(path).constData()));
        return nullptr;
    }
    // Made on the dispatcher thread, which ends with the batch; the task must
    // live where deferred deletion is served.
    if (task->thread() != thread())
        task->moveToThread(thread());

    const output_naming::OutputName output = output_naming::outputFor(path, m_names.get(), task);
    task->record().naturalOutput = output.natural;
    task->record().nameStep = output.step;
    task->setPlainInput(output.plainInput);
    task->setOutputSuffixed(output.suffixed);
    task->setOutputPath(output.path);
    if (!passphrase.isEmpty()) {
        task->setPassphrase(passphrase);
    } else {
        QReadLocker locker(&m_lock);
        task->setPassphrase(m_passphrase);
    }
    return task;
}

void DecryptManager::completeOutput(CryptTask *task)
{
    if (task->isPlainInput())
        renamePlainInput(task);
    if (m_deleteEncrypted && m_deleteEncrypted())
        deleteAfterSuccess(task);
}

// A source without the envelope extension gets it, and the plaintext, first
// written under a marked name, takes the source's former name.
void DecryptManager::renamePlainInput(CryptTask *task)
{
    const QString formerSource = task->sourcePath();
    const QString envelope =
        formerSource + QLatin1Char('.') + QLatin1String(output_naming::kEnvelopeExtension);
    if (!renameFree(formerSource, envelope)) {
        reportError(NM_TR("Could not rename input %1$s to %2$s", utf8(formerSource).constData(),
                          utf8(envelope).constData()));
        task->setPlainInput(false);
        return;
    }
    task->setSourcePath(envelope);
    task->record().folderSynced = false; // its names changed
    if (renameFree(task->outputPath(), formerSource)) {
        task->setOutputSuffixed(false);
        task->setOutputPath(formerSource);
    } else {
        reportError(NM_TR("Could not rename output %1$s to %2$s",
                          utf8(task->outputPath()).constData(), utf8(formerSource).constData()));
        task->setOutputSuffixed(true);
    }
}

void DecryptManager::deleteAfterSuccess(CryptTask *task)
{
    const envelope_removal::Result removal = envelope_removal::removeEnvelope(*task);
    const QString source = task->sourcePath();
    if (removal.outcome == envelope_removal::Outcome::Removed)
        task->setSourceDeleted(true);
    else if (removal.outcome == envelope_removal::Outcome::Missing)
        reportError(NM_TR("Could not remove file %s. Does not exist", utf8(source).constData()));
    else
        reportError(keptText(source, removal.reason));
}

bool DecryptManager::deleteEncrypted()
{
    if (!guard())
        return false;
    // The guard keeps the list still; no lock is held while signalling.
    const QList<CryptTask *> tasks = finishedTasks();
    bool allRemoved = true;
    for (CryptTask *task : tasks) {
        const envelope_removal::Result removal = envelope_removal::removeEnvelope(*task);
        const QString source = task->sourcePath();
        if (removal.outcome == envelope_removal::Outcome::Removed) {
            task->setSourceDeleted(true);
            emit statsChanged(task);
            continue;
        }
        allRemoved = false;
        if (removal.outcome == envelope_removal::Outcome::Missing)
            reportError(NM_TR("Could not remove file %s. file does not exist.",
                              utf8(source).constData()));
        else
            reportError(keptText(source, removal.reason));
    }
    return allRemoved;
}
