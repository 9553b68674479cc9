// Owner of everything that is to be, is being or has been decrypted: the
// pending paths, the fixed pool of eight workers and the finished and failed
// tasks. While a batch runs, run() is the dispatcher that turns pending paths
// into tasks and hands them to idle workers, never more at once than the
// thread count allows.
//
// Threads: every slot and public operation runs on the GUI thread (or, for
// the list operations, on the task manager's thread); run() on the
// dispatcher thread; workers on their own. One read-write lock guards the
// lists, the thread count, the stop flag and the passphrase. Every signal to
// the window must be connected queued.
#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include <QList>
#include <QReadWriteLock>
#include <QStringList>
#include <QThread>
#include <QTimer>

#include <engine/CryptTask.h>
#include <engine/VextDecryptWorker.h>

namespace output_naming {
class NameReservations;
}

class DecryptManager : public QThread
{
    Q_OBJECT
public:
    // The process-wide instance, created on first call on the calling thread.
    static DecryptManager *instance();
    // Stops a running batch, deletes the instance and forgets it.
    static void release();

    // The program uses instance(); a separately owned manager serves tests.
    explicit DecryptManager(QObject *parent = nullptr);
    ~DecryptManager() override;

    // Whether the envelope of a finished task is deleted right after its
    // success; asked at that moment, and when a batch starts (the workers
    // then sync each plaintext to stable storage). Default: never.
    void setDeleteEncryptedProvider(std::function<bool()> provider);

    // Keeps a copy of passphrase until the batch ends (allFinished()), then
    // overwrites it; each task's copy is overwritten when the task ends.
    void start(const QString &passphrase);
    void stop();
    bool isBusy();

    // Guarded list edits: refused with "Cannot perform operations during
    // decryption." while a batch runs, changing nothing.
    int addFiles(const QStringList &paths);
    bool clearFinished();
    bool clearFailed();
    bool clearPending();
    bool clearAll();
    bool reloadFailed();
    bool deleteEncrypted();

    int finishedCount();
    int failedCount();
    int runningCount();
    int pendingCount();
    int totalCount();
    QList<CryptTask *> finishedTasks();
    QList<CryptTask *> failedTasks();
    QList<CryptTask *> runningTasks();
    QStringList pendingPaths();
    int threadsInUse();
    QString lastMessage();

    // Stores msg as the last message and emits error(msg).
    void reportError(const QString &msg);

    // A Waiting task for path with its output named; owned by the caller.
    // passphrase empty: the batch passphrase. Null when allocation fails.
    CryptTask *createTask(const QString &path, const QString &passphrase);

signals:
    void statsChanged(const CryptTask *task);
    void statsChanged();
    void statusMemssage(QString msg); // declared for listeners, never emitted
    void loaded(bool hasTasks);       // declared for listeners, never emitted
    void error(QString msg);
    void started(int pendingCount);
    // Once per batch that start() began: the dispatcher has ended and no
    // worker is busy any more.
    void allFinished();

public slots:
    void onChangeNumThreads(int num);
    void onCompleted(VextDecryptWorker *worker);
    void onFailed(VextDecryptWorker *worker);
    void onStart(VextDecryptWorker *worker);
    void onProgress(VextDecryptWorker *worker);
    void onFinished();
    void onProgressTimer();

protected:
    void run() override;

private:
    bool guard();
    // Runs edit on the lists under the write lock unless a batch runs, then
    // recounts the total and announces the change.
    bool editLists(const std::function<void()> &edit);
    bool dispatchOne();
    CryptTask *returnWorker(VextDecryptWorker *worker,
                            const std::function<void(CryptTask *)> &fileTask);
    void finishBatchIfIdle();
    // Tells the dispatcher that a dispatch may have become possible or that
    // it must stop. Called with the write lock held, after the edit.
    void noteChange();
    void completeOutput(CryptTask *task);
    void renamePlainInput(CryptTask *task);
    void deleteAfterSuccess(CryptTask *task);
    void retire(QList<CryptTask *> &tasks);

    QReadWriteLock m_lock;
    QStringList m_pending;
    QList<VextDecryptWorker *> m_busyWorkers;
    QList<VextDecryptWorker *> m_idleWorkers;
    QList<CryptTask *> m_finished;
    QList<CryptTask *> m_failed;
    int m_maxWorkers = 8;
    int m_threadsInUse = 1;
    int m_reserved = 10; // set at construction; no operation reads it
    int m_total = 0;
    bool m_stopRequested = false;
    // The batch's passphrase, in characters of its own (each task takes its
    // own copy); overwritten when the batch ends.
    QString m_passphrase;
    QString m_lastMessage;
    QTimer m_timer;
    // Cancelled tasks belong to no list; kept alive until the lists are
    // cleared so that pointers already sent in statsChanged stay valid.
    QList<CryptTask *> m_cancelled;
    std::function<bool()> m_deleteEncrypted;
    // A batch was started and its allFinished() is still owed. GUI thread only.
    bool m_batchActive = false;
    // Counts the edits that may let the dispatcher go on (a worker back, a
    // new thread count, a stop), so that it can spin without the lock.
    std::atomic<unsigned> m_changes{0};
    // Output names chosen in the current batch; cleared when one starts.
    std::unique_ptr<output_naming::NameReservations> m_names;
    // The delete setting as the batch started: the workers sync outputs.
    bool m_syncOutputs = false;
};
