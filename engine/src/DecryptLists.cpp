// The guarded list edits, the counts and the copies of the lists.
#include <engine/DecryptManager.h>

#include <vector>

#include <localization/LocaleText.h>

namespace {

// The paths of a pending list, found by their text: an open-addressing table
// of positions in the list. A node-based set would take several times the
// memory for a load of many thousands, and its freed nodes would stay
// resident through the batch that follows.
class PendingIndex
{
public:
    // Indexes pending, which holds no path twice, with room for capacity paths.
    PendingIndex(const QStringList &pending, int capacity) : m_pending(pending)
    {
        size_t size = 16;
        while (size < 2 * static_cast<size_t>(capacity))
            size *= 2;
        m_slots.assign(size, -1);
        m_mask = size - 1;
        for (int i = 0; i < pending.size(); ++i)
            add(pending.at(i), i);
    }

    // False when path is indexed already; otherwise indexes it at position
    // index, where the caller puts it before the next call.
    bool add(const QString &path, int index)
    {
        size_t slot = qHash(path) & m_mask;
        for (; m_slots[slot] >= 0; slot = (slot + 1) & m_mask) {
            if (m_pending.at(m_slots[slot]) == path)
                return false;
        }
        m_slots[slot] = index;
        return true;
    }

private:
    const QStringList &m_pending;
    std::vector<int> m_slots;
    size_t m_mask = 0;
};

} // namespace

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
        PendingIndex known(m_pending, m_pending.size() + paths.size());
        for (const QString &path : paths) {
            if (known.add(path, m_pending.size())) {
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
