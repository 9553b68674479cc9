// Runs the long operations on the task list away from the user interface:
// loading files, folders and list files, clearing tasks of one status,
// reloading failed tasks and deleting the envelopes of finished tasks. One
// background thread, one operation at a time: a request while one runs is
// refused with "A task is in progress, try again later.", never queued.
//
// Threads: the object lives in the user-interface thread, which makes every
// request and runs cancel() and onFinished(); run() executes the operation on
// the manager's own thread. Connect to the signals queued. A cancel() counts
// only while an operation's thread body runs; one that arrives after it
// returned (a Cancel pressed as the operation ended) is ignored. The cancel
// flag is reset in onFinished().
#pragma once

#include <QList>
#include <QReadWriteLock>
#include <QStringList>
#include <QThread>
#include <QUrl>

#include <engine/Task.h>

class FileLoadTask;
class ClearStatusTask;
class ReloadFailedTask;
class DeleteEncryptedTask;

class TaskManager : public QThread
{
    Q_OBJECT
public:
    // The process-wide instance, created on first call in the calling thread.
    static TaskManager *instance();
    // Cancels a running operation, lets it reach its next stop and destroys
    // the instance.
    static void release();

    ~TaskManager() override;

signals:
    void filesLoaded(QString msg);
    void statusCleared(QString msg);
    void statusReloadFailedTask(QString msg);
    void statusMessage(QString msg, bool persist);
    void started(QString msg, bool showCancelButton);
    void error(QString msg);
    void cancelled(); // declared for listeners; no operation emits it

public slots:
    void loadFiles(QStringList files, bool onlyEncrypted = true);
    void loadUrls(QList<QUrl> files, bool onlyEncrypted = true);
    // False when busy or when the list file cannot be read (error says why).
    bool loadFromFile(QString path, bool onlyEncrypted = true);
    void clearStatus(Task::STATUS status);
    void reloadFailed();
    void deleteEncrypted();
    void cancel();

private slots:
    void onFinished();

protected:
    void run() override;

private:
    TaskManager();

    bool refuseWhenBusy();
    void startOperation(Task *operation);
    bool cancelRequested();
    void runOperation();

    void runFileLoad(FileLoadTask *task);
    void runClearStatus(ClearStatusTask *task);
    void runReloadFailed(ReloadFailedTask *task);
    void runDeleteEncrypted(DeleteEncryptedTask *task);

    QReadWriteLock *m_lock; // guards m_current, m_cancelRequested, m_operationRunning
    Task *m_current = nullptr;
    bool m_cancelRequested = false;
    // An operation was started and its thread body has not returned yet.
    bool m_operationRunning = false;
    // Started operations whose onFinished() has not run yet (user-interface
    // thread only). A request may start a new operation after the thread
    // ended but before its queued onFinished(); that late call must leave the
    // new operation alone.
    int m_unfinished = 0;
};
