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
    explicit TaskManagerRecorder(TaskManager *tm)
    {
        using TM = TaskManager;
        auto text = [this](const char *name) {
            return [this, name](const QString &msg) { add(name + (':' + msg)); };
        };
        auto flagged = [this](const char *name) {
            return [this, name](const QString &msg, bool flag) {
                add(QStringLiteral("%1:%2:%3").arg(QLatin1String(name), msg).arg(int(flag)));
            };
        };
        const auto direct = Qt::DirectConnection;
        connect(tm, &TM::filesLoaded, this, [this](const QString &msg) {
            add("filesLoaded:" + msg);
            if (m_gated)
                m_gate.acquire();
        }, direct);
        connect(tm, &TM::statusCleared, this, text("statusCleared"), direct);
        connect(tm, &TM::statusReloadFailedTask, this, text("reloaded"), direct);
        connect(tm, &TM::error, this, text("error"), direct);
        connect(tm, &TM::statusMessage, this, flagged("statusMessage"), direct);
        connect(tm, &TM::started, this, flagged("started"), direct);
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
