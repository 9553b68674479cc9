// One entry of the decrypt list as the table, the statistics and the list
// operations see it. The status numbers are stored, compared and passed
// through the meta-object system as plain integers, so they never change.
#pragma once

#include <atomic>

#include <QMetaType>
#include <QObject>
#include <QString>

class Task : public QObject
{
    Q_OBJECT
public:
    enum STATUS : quint32 {
        Decrypting = 0,
        Finished = 1,
        Error = 2,
        Cancelled = 3,
        Waiting = 4, // shown to the user as "pending"
        Cleared = 5  // selector of the clear-all command, never a task's state
    };

    // Registers Task::STATUS with the meta-type system (once per process).
    explicit Task(QObject *parent = nullptr);
    ~Task() override;

    virtual STATUS status() const;
    // The single place where a status becomes a (looked-up) word.
    virtual QString statusText() const;
    virtual float progress() const;
    virtual void setProgress(float progress);
    virtual void setStatus(Task::STATUS status);
    virtual QString errorMessage() const;
    virtual bool isSame(const Task *other) const = 0;

    int workerIndex() const { return m_workerIndex; }

protected:
    // Written by the worker thread that runs the task, read by the GUI thread
    // only to redraw, without a lock. Status and progress change while the
    // GUI may read them, so they are atomic; the worker stores the final
    // status last (release), so a reader that sees it (acquire) also sees
    // the errorMessage and progress written before it.
    std::atomic<quint32> m_status{Waiting};
    QString m_errorMessage;
    std::atomic<float> m_progress{0.0f};
    int m_workerIndex = -1;
};

// Queued and by-name connections may carry a status (TaskManager::clearStatus).
Q_DECLARE_METATYPE(Task::STATUS)
