#include <engine/Task.h>

#include <localization/LocaleText.h>

Task::Task(QObject *parent) : QObject(parent)
{
    static const int statusType = qRegisterMetaType<Task::STATUS>("Task::STATUS");
    Q_UNUSED(statusType);
}

Task::~Task() = default;

Task::STATUS Task::status() const
{
    return static_cast<STATUS>(m_status.load(std::memory_order_acquire));
}

QString Task::statusText() const
{
    switch (status()) {
    case Decrypting:
        return NM_TR("Decrypting");
    case Finished:
        return NM_TR("Finished");
    case Error:
        if (m_errorMessage.isEmpty())
            return NM_TR("Error");
        return NM_TR("Error %s", m_errorMessage.toUtf8().constData());
    case Cancelled:
        return NM_TR("Cancelled");
    case Waiting:
        return NM_TR("Waiting");
    case Cleared:
        return NM_TR("Cleared");
    default:
        return NM_TR("Unknown");
    }
}

float Task::progress() const
{
    return m_progress.load(std::memory_order_relaxed);
}

void Task::setProgress(float progress)
{
    m_progress.store(progress, std::memory_order_relaxed);
}

void Task::setStatus(Task::STATUS status)
{
    m_status.store(status, std::memory_order_release);
}

QString Task::errorMessage() const
{
    return m_errorMessage;
}
