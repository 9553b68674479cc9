#include <engine/TaskManager.h>

#include <QReadLocker>
#include <QWriteLocker>

#include <engine/ClearStatusTask.h>
#include <engine/DecryptManager.h>
#include <engine/DeleteEncryptedTask.h>
#include <engine/FileLoadTask.h>
#include <engine/FileLoading.h>
#include <engine/ReloadFailedTask.h>

#include <localization/LocaleText.h>

namespace {
TaskManager *s_instance = nullptr;
}

TaskManager *TaskManager::instance()
{
    if (!s_instance)
        s_instance = new TaskManager();
    return s_instance;
}

void TaskManager::release()
{
    if (!s_instance)
        return;
    if (s_instance->isRunning())
        s_instance->cancel();
    delete s_instance;
    s_instance = nullptr;
}

TaskManager::TaskManager() : QThread(nullptr), m_lock(new QReadWriteLock())
{
    // The routines reach the decrypt manager from this manager's thread; it
    // must already live in the user-interface thread, with its timer.
    DecryptManager::instance();
    connect(this, &QThread::finished, this, &TaskManager::onFinished);
}

TaskManager::~TaskManager()
{
    // Destroying a running thread aborts the process; a cancelled operation
    // stops at its next item, so this wait is short.
    wait();
    if (m_current)
        m_current->deleteLater();
    m_current = nullptr;
    delete m_lock;
}

void TaskManager::loadFiles(QStringList files, bool onlyEncrypted)
{
    if (refuseWhenBusy())
        return;
    emit started(NM_TR("Loading files..."), true);
    startOperation(new FileLoadTask(files, onlyEncrypted));
}

void TaskManager::loadUrls(QList<QUrl> files, bool onlyEncrypted)
{
    if (refuseWhenBusy())
        return;
    emit started(NM_TR("Loading files..."), true);
    startOperation(new FileLoadTask(files, onlyEncrypted));
}

bool TaskManager::loadFromFile(QString path, bool onlyEncrypted)
{
    if (refuseWhenBusy())
        return false;
    emit started(NM_TR("Loading files..."), true);
    QStringList entries;
    QString reason;
    int undecodable = 0;
    if (!FileLoading::readListFile(path, &entries, &reason, &undecodable)) {
        emit error(NM_TR("Could not open file %1$s, for reading. %2$s",
                         path.toUtf8().constData(), reason.toUtf8().constData()));
        return false;
    }
    auto *load = new FileLoadTask(entries, onlyEncrypted);
    load->setUndecodable(undecodable);
    startOperation(load);
    return true;
}

void TaskManager::clearStatus(Task::STATUS status)
{
    if (!refuseWhenBusy())
        startOperation(new ClearStatusTask(status));
}

void TaskManager::reloadFailed()
{
    if (!refuseWhenBusy())
        startOperation(new ReloadFailedTask());
}

void TaskManager::deleteEncrypted()
{
    if (!refuseWhenBusy())
        startOperation(new DeleteEncryptedTask());
}

// Emits its two signals with the lock held. run() clears m_operationRunning
// under the same lock as its last step, so an announcement made here is always
// queued before the thread's finished(), which closes the busy dialog; a
// cancel that comes later belongs to an operation that has ended and is
// ignored, so it can neither reopen the dialog nor stop the next operation.
void TaskManager::cancel()
{
    QWriteLocker locker(m_lock);
    if (!m_operationRunning)
        return;
    m_cancelRequested = true;
    emit statusMessage(QStringLiteral("Cancelling..."), true);
    emit started(QStringLiteral("Cancelling..."), false);
}

void TaskManager::onFinished()
{
    if (--m_unfinished > 0)
        return;
    bool wasCancelled = false;
    {
        QWriteLocker locker(m_lock);
        if (m_current)
            m_current->deleteLater();
        m_current = nullptr;
        wasCancelled = m_cancelRequested;
        m_cancelRequested = false;
    }
    if (wasCancelled)
        emit statusMessage(QString(), false);
}

// Requests come from the user-interface thread only, so the running test and
// the start that follows cannot race.
bool TaskManager::refuseWhenBusy()
{
    if (!isRunning())
        return false;
    emit error(NM_TR("A task is in progress, try again later."));
    return true;
}

void TaskManager::startOperation(Task *operation)
{
    {
        QWriteLocker locker(m_lock);
        // Deleted by this thread's event loop, never by the worker thread.
        if (m_current)
            m_current->deleteLater();
        m_current = operation;
        m_operationRunning = true;
    }
    ++m_unfinished;
    start(QThread::LowPriority);
}

bool TaskManager::cancelRequested()
{
    QReadLocker locker(m_lock);
    return m_cancelRequested;
}

void TaskManager::run()
{
    runOperation();
    QWriteLocker locker(m_lock);
    m_operationRunning = false;
}

void TaskManager::runOperation()
{
    Task *operation = nullptr;
    {
        QReadLocker locker(m_lock);
        operation = m_current;
    }
    if (!operation)
        return;
    if (auto *load = qobject_cast<FileLoadTask *>(operation))
        runFileLoad(load);
    if (auto *clear = qobject_cast<ClearStatusTask *>(operation))
        runClearStatus(clear);
    if (auto *reload = qobject_cast<ReloadFailedTask *>(operation))
        runReloadFailed(reload);
    if (auto *removal = qobject_cast<DeleteEncryptedTask *>(operation))
        runDeleteEncrypted(removal);
}
