// The operations themselves, run on the task manager's thread. Each reports
// its outcome through exactly one signal; the decrypt manager guards its own
// lists.
#include <engine/TaskManager.h>

#include <QFileInfo>

#include <engine/ClearStatusTask.h>
#include <engine/DecryptManager.h>
#include <engine/DeleteEncryptedTask.h>
#include <engine/FileLoadTask.h>
#include <engine/FileLoading.h>
#include <engine/ReloadFailedTask.h>

#include <localization/LocaleText.h>

// Progress is reported only for entries that exist. Each entry is made clean
// first, so that the decrypt list sees one path per file. A cancel ends the
// load without a message: onFinished() clears the status line.
void TaskManager::runFileLoad(FileLoadTask *task)
{
    if (!task) {
        emit filesLoaded(NM_TR("Could not load files."));
        return;
    }
    const QStringList entries = task->entries();
    const int count = entries.size();
    if (count == 0) {
        emit filesLoaded(NM_TR("No files found."));
        return;
    }
    const bool onlyEncrypted = task->onlyEncrypted();
    const FileLoading::CancelTest cancelled = [this] { return cancelRequested(); };
    QStringList collected;
    int undecodable = task->undecodable();
    for (int i = 0; i < count; ++i) {
        if (cancelled())
            return;
        const QString entry = FileLoading::cleanPath(entries.at(i).trimmed());
        const QFileInfo info(entry);
        if (entry.isEmpty() || !info.exists())
            continue;
        if (info.isFile()) {
            if (!onlyEncrypted || FileLoading::isEnvelope(entry))
                collected << entry;
        } else if (info.isDir()) {
            collected += FileLoading::walkFolder(entry, QStringLiteral("*"), true,
                                                 onlyEncrypted, cancelled, &undecodable);
        }
        task->setProgress(float(i + 1) / float(count));
    }
    int added = 0;
    if (!cancelled()) {
        task->setProgress(1.0f);
        added = DecryptManager::instance()->addFiles(collected);
    }
    emit filesLoaded(FileLoading::loadSummary(added, collected.size(), undecodable));
}

void TaskManager::runClearStatus(ClearStatusTask *task)
{
    if (!task) {
        emit statusCleared(NM_TR("No files cleared."));
        return;
    }
    DecryptManager *manager = DecryptManager::instance();
    switch (task->clearedStatus()) {
    case Task::Cancelled:
    case Task::Waiting:
        emit started(NM_TR("Clearing pending tasks..."), true);
        emit statusCleared(manager->clearPending()
                               ? NM_TR("All pending tasks cleared.")
                               : NM_TR("Could not clear pending tasks."));
        break;
    case Task::Error:
        emit started(NM_TR("Clearing failed tasks..."), true);
        emit statusCleared(manager->clearFailed() ? NM_TR("All failed tasks cleared.")
                                                  : NM_TR("Could not clear failed tasks."));
        break;
    case Task::Finished:
        emit started(NM_TR("Clearing finished tasks..."), true);
        emit statusCleared(manager->clearFinished()
                               ? NM_TR("All finished tasks cleared.")
                               : NM_TR("Could not clear finished tasks."));
        break;
    case Task::Cleared:
        emit started(NM_TR("Clearing all tasks..."), true);
        emit statusCleared(manager->clearAll() ? NM_TR("All tasks cleared")
                                               : NM_TR("Could not clear all tasks."));
        break;
    default:
        emit statusCleared(NM_TR("No files cleared for unknown status."));
        break;
    }
}

void TaskManager::runReloadFailed(ReloadFailedTask *task)
{
    if (!task) {
        emit statusReloadFailedTask(NM_TR("Failed to reload tasks."));
        return;
    }
    emit started(NM_TR("Reloading failed tasks..."), true);
    DecryptManager *manager = DecryptManager::instance();
    if (!manager->reloadFailed()) {
        emit statusReloadFailedTask(manager->lastMessage());
        return;
    }
    emit statusReloadFailedTask(NM_TR("Failed Tasks reloaded."));
}

void TaskManager::runDeleteEncrypted(DeleteEncryptedTask *task)
{
    if (!task)
        return;
    emit started(NM_TR("Deleting encrypted source files..."), true);
    const bool allDeleted = DecryptManager::instance()->deleteEncrypted();
    emit statusMessage(allDeleted ? NM_TR("Encrypted source files deleted from finished tasks.")
                                  : NM_TR("Not all encrypted files could be deleted."),
                       false);
}
