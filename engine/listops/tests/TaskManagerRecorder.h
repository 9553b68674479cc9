// Records every signal of the task manager, in order, as "signal:text[:flag]"
// lines, at the moment it is emitted (on whichever thread). With the gate
// closed, the thread that reports a load's summary waits until the test opens
// it, so the test can act while the operation is certainly still running.
#pragma once

#include <atomic>

#include <QMutex>
#include <QSemaphore>
#include <QStringList>

#include <engine/TaskManager.h>

namespace listops_test {

class TaskManagerRecorder : public QObject
{
public:
    explicit TaskManagerRecorder(TaskManager *manager)
    {
        const auto direct = Qt::DirectConnection;
        connect(manager, &TaskManager::filesLoaded, this, [this](const QString &msg) {
            add(QStringLiteral("filesLoaded:") + msg);
            if (m_gated)
                m_gate.acquire();
        }, direct);
        connect(manager, &TaskManager::statusCleared, this,
                [this](const QString &msg) { add(QStringLiteral("statusCleared:") + msg); }, direct);
        connect(manager, &TaskManager::statusReloadFailedTask, this,
                [this](const QString &msg) { add(QStringLiteral("reloaded:") + msg); }, direct);
        connect(manager, &TaskManager::statusMessage, this, [this](const QString &msg, bool keep) {
            add(QStringLiteral("statusMessage:%1:%2").arg(msg).arg(int(keep)));
        }, direct);
        connect(manager, &TaskManager::started, this, [this](const QString &msg, bool cancel) {
            add(QStringLiteral("started:%1:%2").arg(msg).arg(int(cancel)));
        }, direct);
        connect(manager, &TaskManager::error, this,
                [this](const QString &msg) { add(QStringLiteral("error:") + msg); }, direct);
    }

    QStringList lines()
    {
        QMutexLocker locker(&m_mutex);
        return m_lines;
    }

    void closeGate() { m_gated = true; }
    void openGate()
    {
        m_gated = false;
        m_gate.release();
    }

private:
    void add(const QString &line)
    {
        QMutexLocker locker(&m_mutex);
        m_lines << line;
    }

    QMutex m_mutex;
    QStringList m_lines;
    std::atomic<bool> m_gated{false};
    QSemaphore m_gate;
};

} // namespace listops_test
