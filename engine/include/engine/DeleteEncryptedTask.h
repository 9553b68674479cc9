// A request to delete the envelopes of the finished tasks.
#pragma once

#include <engine/Task.h>

class DeleteEncryptedTask : public Task
{
    Q_OBJECT
public:
    explicit DeleteEncryptedTask(QObject *parent = nullptr);

    // Any two delete requests are the same request.
    bool isSame(const Task *other) const override;
};
