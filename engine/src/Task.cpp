#include <engine/Task.h>

#include "EngineText.h"

Task::Task(QObject *parent) : QObject(parent) {}

Task::~Task() = default;

Task::STATUS Task::status()
{
    return static_cast<STATUS>(m_status);
}

QString Task::statusText()
{
    switch (m_status) {
    case Decrypting:
        return NM_TEXT("Decrypting");
    case Finished:
        return NM_TEXT("Finished");
    case Error:
        if (m_errorMessage.isEmpty())
            return NM_TEXT("Error");
        return NM_TEXT("Error %s", m_errorMessage.toUtf8().constData());
    case Cancelled:
        return NM_TEXT("Cancelled");
    case Waiting:
        return NM_TEXT("Waiting");
    case Cleared:
        return NM_TEXT("Cleared");
    default:
        return NM_TEXT("Unknown");
    }
}

float Task::progress()
{
    return m_progress;
}

void Task::setProgress(float progress)
{
    m_progress = progress;
}

void Task::setStatus(Task::STATUS status)
{
    m_status = status;
}

QString Task::errorMessage() const
{
    return m_errorMessage;
}
