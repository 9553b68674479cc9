// A request to put the failed tasks back among the pending ones.
#pragma once

#include <engine/Task.h>

class ReloadFailedTask : public Task
{
    Q_OBJECT
public:
    explicit ReloadFailedTask(QObject *parent = nullptr);

    // Any two reload requests are the same request.
    bool isSame(const Task *other) const override;
};
