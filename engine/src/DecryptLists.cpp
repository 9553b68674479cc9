// The guarded list edits, the counts and the copies of the lists.
#include <engine/DecryptManager.h>

#include <localization/LocaleText.h>

#include "PositionIndex.h"

void DecryptManager::reportError(const QString &msg)
{
    {
        QWriteLocker locker(&m_lock);
        m_lastMessage = msg;
    }
    emit error(msg);
}

QString DecryptManager::lastMessage()
{
    QReadLocker locker(&m_lock);
    return m_lastMessage;
}

// List edits are refused while a batch runs: the dispatcher reads the lists
// outside the lock's protection of a whole pass.
bool DecryptManager::guard()
{
    bool busy = isRunning();
    if (!busy) {
        QReadLocker locker(&m_lock);
        busy = !m_busyWorkers.isEmpty();
    }
    if (!busy)
        return true;
    reportError(NM_TR("Cannot perform operations during decryption."));
    return false;
}

bool DecryptManager::editLists(const std::function<void()> &edit)
{
    if (!guard())
        return false;
    {
        QWriteLocker locker(&m_lock);
        edit();
        m_total = m_pending.size() + m_failed.size() + m_finished.size();
    }
    emit statsChanged();
    return true;
}

int DecryptManager::addFiles(const QStringList &paths)
{
    int added = 0;
    editLists([&] {
        m_pending.reserve(m_pending.size() + paths.size());
        const auto pendingAt = [this](int i) -> const QString & { return m_pending.at(i); };
        PositionIndex<decltype(pendingAt)> known(pendingAt);
        known.reserve(m_pending.size() + paths.size());
        for (int i = 0; i < m_pending.size(); ++i)
            known.insert(m_pending.at(i), i);
        for (const QString &path : paths) {
            if (known.insert(path, m_pending.size()) == m_pending.size()) {
                m_pending.append(path);
                ++added;
            }
        }
    });
    return added;
}

void DecryptManager::retire(QList<CryptTask *> &tasks)
{
    for (CryptTask *task : qAsConst(tasks))
        task->deleteLater();
    tasks.clear();
}

bool DecryptManager::clearFinished()
{
    return editLists([this] { retire(m_finished); });
}

bool DecryptManager::clearFailed()
{
    return editLists([this] { retire(m_failed); });
}

bool DecryptManager::clearPending()
{
    return editLists([this] {
        m_pending.clear();
        retire(m_cancelled);
    });
}

bool DecryptManager::clearAll()
{
    return editLists([this] {
        retire(m_finished);
        retire(m_failed);
        retire(m_cancelled);
        m_pending.clear();
    });
}

bool DecryptManager::reloadFailed()
{
    if (!guard())
        return false;
    QStringList paths;
    {
        QReadLocker locker(&m_lock);
        for (CryptTask *task : qAsConst(m_failed))
            paths.append(task->sourcePath());
    }
    if (paths.isEmpty()) {
        reportError(NM_TR("Failed list is empty."));
        return false;
    }
    addFiles(paths);
    clearFailed();
    return true;
}

int DecryptManager::finishedCount()
{
    QReadLocker locker(&m_lock);
    return m_finished.size();
}

int DecryptManager::failedCount()
{
    QReadLocker locker(&m_lock);
    return m_failed.size();
}

int DecryptManager::runningCount()
{
    QReadLocker locker(&m_lock);
    return m_busyWorkers.size();
}

int DecryptManager::pendingCount()
{
    QReadLocker locker(&m_lock);
    return m_pending.size();
}

int DecryptManager::totalCount()
{
    QReadLocker locker(&m_lock);
    return m_total;
}

int DecryptManager::threadsInUse()
{
    QReadLocker locker(&m_lock);
    return m_threadsInUse;
}

QList<CryptTask *> DecryptManager::finishedTasks()
{
    QReadLocker locker(&m_lock);
    return m_finished;
}

QList<CryptTask *> DecryptManager::failedTasks()
{
    QReadLocker locker(&m_lock);
    return m_failed;
}

QList<CryptTask *> DecryptManager::runningTasks()
{
    QReadLocker locker(&m_lock);
    QList<CryptTask *> tasks;
    for (VextDecryptWorker *worker : qAsConst(m_busyWorkers)) {
        if (CryptTask *task = worker->task())
            tasks.append(task);
    }
    return tasks;
}

QStringList DecryptManager::pendingPaths()
{
    QReadLocker locker(&m_lock);
    return m_pending;
}
