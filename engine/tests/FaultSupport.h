// Faults injected into the platform layer's file calls, as a device that
// fails after N bytes would: only for the files whose path ends with the
// plan's target (by default the workers' temporary outputs), so the test's
// own files and the logs are left alone; there, writes come out short (at
// most 100,000 bytes) as a device may make them. Every call is logged.
#pragma once

#include <functional>

#include <QFileInfo>
#include <QMutex>
#include <QStringList>

#include <nmplatform/nmfile.h>
#include <unistd.h>

namespace engine_test {

struct FaultPlan {
    int op;                       // NM_FILE_OP_*; 0: none
    uint32_t error;               // fails the call; a write with 0 moves nothing
    qint64 afterBytes;            // writes: let through first
    QByteArray target;            // the ending of the paths it applies to
    std::function<void()> action; // run, once, where the fault would strike
    FaultPlan(int op = 0, uint32_t error = 0, qint64 afterBytes = 0, QByteArray target = ".nmpart",
              std::function<void()> action = {})
        : op(op), error(error), afterBytes(afterBytes), target(target), action(std::move(action)) {}
};

inline FaultPlan g_fault;
inline qint64 g_faultWritten = 0;
inline QStringList g_calls; // "op name" of every call, in order: "4 f" is a sync of f
inline QMutex g_callsLock;

inline uint32_t injectFault(int op, intptr_t handle, const char *path, size_t *size)
{
    char link[4096];
    const ssize_t n = path ? 0 : readlink(("/proc/self/fd/" + QByteArray::number(qint64(handle))).constData(), link, sizeof link);
    const QByteArray name = path ? QByteArray(path) : QByteArray(link, int(qMax<ssize_t>(n, 0)));
    {
        QMutexLocker locker(&g_callsLock);
        g_calls << QString::number(op) + ' ' + QFileInfo(QFile::decodeName(name)).fileName();
    }
    if (op != g_fault.op || !name.endsWith(g_fault.target))
        return 0;
    if (const std::function<void()> action = std::exchange(g_fault.action, nullptr))
        action();
    if (op != NM_FILE_OP_WRITE)
        return g_fault.error;
    const qint64 allowed = qMin<qint64>(100000, qMax<qint64>(0, g_fault.afterBytes - g_faultWritten));
    if (allowed == 0 && g_fault.error != 0)
        return g_fault.error;
    *size = size_t(qMin<qint64>(qint64(*size), allowed)); // 0: nothing moves
    g_faultWritten += qint64(*size);
    return 0;
}

// Installs plan until the object goes.
struct ScopedFault {
    explicit ScopedFault(FaultPlan plan)
    {
        g_fault = std::move(plan);
        g_faultWritten = 0;
        g_calls.clear();
        nm_file_set_fault_fn(injectFault);
    }
    ~ScopedFault() { nm_file_set_fault_fn(nullptr); }
};

} // namespace engine_test
