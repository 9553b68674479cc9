// Task creation with its output name, and what happens to the names on disk
// once a file has been decrypted.
#include <engine/DecryptManager.h>

#include <new>

#include <QFile>
#include <QFileInfo>

#include <localization/LocaleText.h>

#include "OutputNaming.h"

namespace {
QByteArray utf8(const QString &text)
{
    return text.toUtf8();
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

    const output_naming::OutputName output = output_naming::outputFor(path);
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
    if (!QFile::rename(formerSource, envelope)) {
        reportError(NM_TR("Could not rename input %1$s to %2$s", utf8(formerSource).constData(),
                          utf8(envelope).constData()));
        task->setPlainInput(false);
        return;
    }
    task->setSourcePath(envelope);
    if (QFile::rename(task->outputPath(), formerSource)) {
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
    const QString source = task->sourcePath();
    if (!QFileInfo::exists(source)) {
        reportError(NM_TR("Could not remove file %s. Does not exist", utf8(source).constData()));
    } else if (QFile::remove(source)) {
        task->setSourceDeleted(true);
    } else {
        reportError(NM_TR("Could not remove file %s", utf8(source).constData()));
    }
}

bool DecryptManager::deleteEncrypted()
{
    if (!guard())
        return false;
    // The guard keeps the list still; no lock is held while signalling.
    const QList<CryptTask *> tasks = finishedTasks();
    bool allRemoved = true;
    for (CryptTask *task : tasks) {
        const QString source = task->sourcePath();
        if (!QFileInfo::exists(source)) {
            reportError(NM_TR("Could not remove file %s. file does not exist.",
                              utf8(source).constData()));
            allRemoved = false;
        } else if (QFile::remove(source)) {
            task->setSourceDeleted(true);
            emit statsChanged(task);
        } else {
            reportError(NM_TR("Could not remove file %s", utf8(source).constData()));
            allRemoved = false;
        }
    }
    return allRemoved;
}
