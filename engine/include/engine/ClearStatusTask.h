// A request to clear the tasks of one status. Cleared stands for "all",
// Cancelled and Waiting both for "pending".
#pragma once

#include <engine/Task.h>

class ClearStatusTask : public Task
{
    Q_OBJECT
public:
    explicit ClearStatusTask(Task::STATUS status, QObject *parent = nullptr);

    Task::STATUS clearedStatus() const { return m_clearedStatus; }

    // Same when both carry the same status.
    bool isSame(const Task *other) const override;

private:
    Task::STATUS m_clearedStatus;
};
