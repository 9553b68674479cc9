#include <engine/DecryptManager.h>

#include <engine/SecretText.h>
#include <localization/LocaleText.h>

#include "OutputNaming.h"

namespace {
DecryptManager *s_instance = nullptr;
} // namespace

DecryptManager *DecryptManager::instance()
{
    if (!s_instance)
        s_instance = new DecryptManager();
    return s_instance;
}

void DecryptManager::release()
{
    delete s_instance;
    s_instance = nullptr;
}

DecryptManager::DecryptManager(QObject *parent)
    : QThread(parent), m_names(new output_naming::NameReservations)
{
    qRegisterMetaType<CryptTask>("CryptTask");
    qRegisterMetaType<const CryptTask *>("const CryptTask*");
    qRegisterMetaType<VextDecryptWorker *>("VextDecryptWorker*");
    qRegisterMetaType<Task::STATUS>("Task::STATUS");
    for (int i = 0; i < m_maxWorkers; ++i) {
        auto *worker = new VextDecryptWorker(static_cast<unsigned>(i), this);
        worker->setNameReservations(m_names.get());
        m_idleWorkers.append(worker);
        connect(worker, &VextDecryptWorker::started, this, &DecryptManager::onStart,
                Qt::QueuedConnection);
        connect(worker, &VextDecryptWorker::failed, this, &DecryptManager::onFailed,
                Qt::QueuedConnection);
        connect(worker, &VextDecryptWorker::completed, this, &DecryptManager::onCompleted,
                Qt::QueuedConnection);
        connect(worker, &VextDecryptWorker::progress, this, &DecryptManager::onProgress,
                Qt::QueuedConnection);
    }
    connect(this, &QThread::finished, this, &DecryptManager::onFinished);
    connect(&m_timer, &QTimer::timeout, this, &DecryptManager::onProgressTimer);
    m_timer.setSingleShot(false);
    m_timer.setInterval(1000);
    m_timer.start();
}

DecryptManager::~DecryptManager()
{
    m_timer.stop();
    if (isBusy())
        stop();
    wait();
    // Their reports can no longer be delivered: wait for every run to end
    // before the tasks they borrow go away.
    QList<CryptTask *> orphans;
    for (VextDecryptWorker *worker : qAsConst(m_busyWorkers)) {
        worker->wait();
        if (worker->task())
            orphans.append(worker->task());
    }
    qDeleteAll(orphans);
    qDeleteAll(m_finished);
    qDeleteAll(m_failed);
    qDeleteAll(m_cancelled);
    secret_text::wipe(m_passphrase);
}

void DecryptManager::setDeleteEncryptedProvider(std::function<bool()> provider)
{
    m_deleteEncrypted = std::move(provider);
}

bool DecryptManager::isBusy()
{
    return isRunning() || runningCount() > 0;
}

void DecryptManager::start(const QString &passphrase)
{
    if (isBusy()) {
        reportError(NM_TR("Decryption already in progress."));
        return;
    }
    int count = 0;
    {
        QWriteLocker locker(&m_lock);
        if (m_pending.isEmpty())
            return;
        m_stopRequested = false;
        secret_text::wipe(m_passphrase);
        m_passphrase = secret_text::ownedCopy(passphrase);
        count = m_pending.size();
    }
    // The previous batch is over, but the report of its dispatcher's end has
    // not been served yet: its allFinished() is owed before this one starts.
    if (m_batchActive)
        emit allFinished();
    m_batchActive = true;
    m_names->clear();
    m_syncOutputs = m_deleteEncrypted && m_deleteEncrypted();
    emit started(count);
    QThread::start(QThread::LowPriority);
}

void DecryptManager::stop()
{
    QList<VextDecryptWorker *> busy;
    {
        // Under the lock, so that no worker can join the busy list unseen.
        QWriteLocker locker(&m_lock);
        m_stopRequested = true;
        busy = m_busyWorkers;
        noteChange();
    }
    for (VextDecryptWorker *worker : qAsConst(busy))
        worker->cancel();
    wait(5);
}

// The dispatcher. It never sleeps or waits, so a returning worker gets its
// next path at once. While every allowed worker is busy it spins on the
// change count alone, without the lock, and gives the processor up on each
// pass, which keeps a core free for the workers and never holds up the
// writers of the lists.
void DecryptManager::run()
{
    for (;;) {
        const unsigned seen = m_changes.load(std::memory_order_acquire);
        bool mayDispatch = false;
        {
            QReadLocker locker(&m_lock);
            if (m_stopRequested || m_pending.isEmpty())
                return;
            mayDispatch = m_busyWorkers.size() < m_threadsInUse && !m_idleWorkers.isEmpty();
        }
        if (mayDispatch && dispatchOne())
            continue;
        while (m_changes.load(std::memory_order_acquire) == seen)
            QThread::yieldCurrentThread();
    }
}

// Hands the first pending path to the first idle worker. The worker, the path
// and the passphrase are taken in one write-locked step together with the
// stop flag, so stop() cancels every worker that will run.
bool DecryptManager::dispatchOne()
{
    VextDecryptWorker *worker = nullptr;
    QString path;
    QString passphrase;
    {
        QWriteLocker locker(&m_lock);
        if (m_stopRequested || m_pending.isEmpty() || m_idleWorkers.isEmpty()
            || m_busyWorkers.size() >= m_threadsInUse)
            return false;
        worker = m_idleWorkers.takeFirst();
        path = m_pending.takeFirst();
        passphrase = m_passphrase;
        m_busyWorkers.append(worker);
    }
    CryptTask *task = createTask(path, passphrase);
    if (!task) {
        // Allocation is the only cause; the worker leaves the pool for good.
        {
            QWriteLocker locker(&m_lock);
            m_busyWorkers.removeOne(worker);
        }
        reportError(NM_TR("Task could not be created for %s", path.toUtf8().constData()));
        return true;
    }
    worker->setSyncOutputs(m_syncOutputs);
    worker->startTask(task);
    return true;
}

// Takes worker's task out of it, hands the worker back to the front of the
// idle list (so the lowest-numbered workers do most of the work) and files the
// task with fileTask, all in one locked step. Null when the report is stale.
CryptTask *DecryptManager::returnWorker(VextDecryptWorker *worker,
                                        const std::function<void(CryptTask *)> &fileTask)
{
    QWriteLocker locker(&m_lock);
    if (!m_busyWorkers.contains(worker))
        return nullptr;
    CryptTask *task = worker->task();
    if (task) {
        fileTask(task);
        task->clearPassphrase();
    }
    m_busyWorkers.removeOne(worker);
    worker->reset();
    m_idleWorkers.prepend(worker);
    noteChange();
    return task;
}

// The end of a batch: the dispatcher has ended (isRunning() turns false
// before its finished() is sent) and no worker is busy. Both the last
// worker's report and the dispatcher's end report ask; whichever comes second
// in the event queue finds the batch already announced, so the window hears
// allFinished() exactly once per batch.
void DecryptManager::finishBatchIfIdle()
{
    if (!m_batchActive || isRunning())
        return;
    {
        QWriteLocker locker(&m_lock);
        if (!m_busyWorkers.isEmpty())
            return;
        // Every task has its own copy by now, and has wiped it.
        secret_text::wipe(m_passphrase);
    }
    m_batchActive = false;
    emit allFinished();
}

void DecryptManager::onCompleted(VextDecryptWorker *worker)
{
    CryptTask *task = returnWorker(worker, [this](CryptTask *t) { m_finished.append(t); });
    if (!task)
        return;
    finishBatchIfIdle();
    completeOutput(task);
    emit statsChanged(task);
}

void DecryptManager::onFailed(VextDecryptWorker *worker)
{
    CryptTask *task = returnWorker(worker, [this](CryptTask *t) {
        if (t->status() == Task::Error) {
            m_failed.append(t);
        } else {
            // Cancelled: the file runs first next time.
            m_pending.prepend(t->sourcePath());
            m_cancelled.append(t);
        }
    });
    if (!task)
        return;
    finishBatchIfIdle();
    emit statsChanged(task);
}

void DecryptManager::onStart(VextDecryptWorker *worker)
{
    if (CryptTask *task = worker->task())
        emit statsChanged(task);
}

void DecryptManager::onProgress(VextDecryptWorker *worker)
{
    onStart(worker);
}

// The dispatcher thread ended. When a later batch has started meanwhile
// (isRunning() again), only that batch's own end may announce it.
void DecryptManager::onFinished()
{
    emit statsChanged();
    finishBatchIfIdle();
}

// The only way a running task's progress reaches the window. Emitting under
// the read lock is safe because every connection to the window is queued.
void DecryptManager::onProgressTimer()
{
    QReadLocker locker(&m_lock);
    for (VextDecryptWorker *worker : qAsConst(m_busyWorkers)) {
        if (CryptTask *task = worker->task())
            emit statsChanged(task);
    }
}

void DecryptManager::onChangeNumThreads(int num)
{
    QWriteLocker locker(&m_lock);
    m_threadsInUse = (num >= 1 && num <= m_maxWorkers) ? num : 1;
    noteChange();
}

void DecryptManager::noteChange()
{
    m_changes.fetch_add(1, std::memory_order_release);
}
