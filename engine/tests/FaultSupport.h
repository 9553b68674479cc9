// Faults injected into the platform layer's file calls, as a device that
// fails after N bytes would: only for the files whose path ends with the
// plan's target (by default the workers' temporary outputs), so the test's
// own files and the logs are left alone.
#pragma once

#include <functional>

#include <QByteArray>
#include <QFile>
#include <QHash>

#include <nmplatform/nmfile.h>
#include <unistd.h>

namespace engine_test {

struct FaultPlan {
    int op = 0;                     // NM_FILE_OP_*; 0: none
    uint32_t error = 0;             // fails the call; a write with 0 moves nothing
    qint64 afterBytes = 0;          // writes: let through first (the last one short)
    QByteArray target = ".nmpart";  // the ending of the paths it applies to
    std::function<void()> action;   // run, once, where the fault would strike
};

inline FaultPlan g_fault;
inline qint64 g_faultWritten = 0;

inline QByteArray pathOf(intptr_t handle, const char *path)
{
    if (path)
        return path;
    char link[4096];
    const ssize_t n = readlink(QByteArray("/proc/self/fd/" + QByteArray::number(qint64(handle))).constData(),
                               link, sizeof link);
    return n > 0 ? QByteArray(link, int(n)) : QByteArray();
}

inline uint32_t injectFault(int op, intptr_t handle, const char *path, size_t *size)
{
    if (op != g_fault.op || !pathOf(handle, path).endsWith(g_fault.target))
        return 0;
    if (g_fault.action) {
        const std::function<void()> action = std::move(g_fault.action);
        g_fault.action = nullptr;
        action();
    }
    if (op != NM_FILE_OP_WRITE)
        return g_fault.error;
    const qint64 allowed = qMax<qint64>(0, g_fault.afterBytes - g_faultWritten);
    if (qint64(*size) <= allowed) {
        g_faultWritten += qint64(*size);
        return 0;
    }
    if (allowed > 0 || g_fault.error == 0) { // the short write first, or nothing moves
        *size = size_t(allowed);
        g_faultWritten += allowed;
        return 0;
    }
    return g_fault.error;
}

// Installs plan until the object goes.
struct ScopedFault {
    explicit ScopedFault(FaultPlan plan)
    {
        g_fault = std::move(plan);
        g_faultWritten = 0;
        nm_file_set_fault_fn(injectFault);
    }
    ~ScopedFault()
    {
        nm_file_set_fault_fn(nullptr);
        g_fault = FaultPlan();
    }
};

} // namespace engine_test
