// The guarded list edits, the counts and the copies of the lists.
#include <engine/DecryptManager.h>

#include <QSet>

#include <localization/LocaleText.h>

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

int DecryptManager::addFiles(const QStringList &paths)
{
    if (!guard())
        return 0;
    int added = 0;
    {
        QWriteLocker locker(&m_lock);
        QSet<QString> known(m_pending.cbegin(), m_pending.cend());
        for (const QString &path : paths) {
            if (known.contains(path))
                continue;
            known.insert(path);
            m_pending.append(path);
            ++added;
        }
        m_total = m_pending.size() + m_failed.size() + m_finished.size();
    }
    emit statsChanged();
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
    if (!guard())
        return false;
    {
        QWriteLocker locker(&m_lock);
        retire(m_finished);
        m_total = m_failed.size() + m_pending.size();
    }
    emit statsChanged();
    return true;
}

bool DecryptManager::clearFailed()
{
    if (!guard())
        return false;
    {
        QWriteLocker locker(&m_lock);
        retire(m_failed);
        m_total = m_finished.size() + m_pending.size();
    }
    emit statsChanged();
    return true;
}

bool DecryptManager::clearPending()
{
    if (!guard())
        return false;
    {
        QWriteLocker locker(&m_lock);
        m_pending.clear();
        retire(m_cancelled);
        m_total = m_failed.size() + m_finished.size();
    }
    emit statsChanged();
    return true;
}

bool DecryptManager::clearAll()
{
    if (!guard())
        return false;
    {
        QWriteLocker locker(&m_lock);
        retire(m_finished);
        retire(m_failed);
        retire(m_cancelled);
        m_pending.clear();
        m_total = 0;
    }
    emit statsChanged();
    return true;
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
