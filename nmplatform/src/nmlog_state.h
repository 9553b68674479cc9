// Internal state of the log writer, shared by its units.
#pragma once

#include <nmplatform/nmfile.h>
#include <nmplatform/nmlog.h>
#include <nmplatform/nmsynchron.h>

#include <stdarg.h>
#include <stdint.h>

#include <atomic>
#include <string>

#define NM_LOG_SOURCE_SELF "nmplatform/src/nmlog"

namespace nmlog {

constexpr size_t kQueueTextMax = 4096;
constexpr uint32_t kOutOfMemory = 8; // the library's number for exhausted memory

struct QueueEntry {
    uint32_t level;
    QueueEntry *next;
    char text[kQueueTextMax + 1];
};

struct LoggerState {
    LoggerState();

    // Settings: read by every call without a lock.
    std::atomic<int32_t> level;
    std::atomic<int32_t> stderrLevel;
    std::atomic<int> stderrOnly;
    std::atomic<int32_t> mode;
    std::atomic<uint64_t> maxSize;
    std::atomic<nm_log_callback_fn> callback;
    std::atomic<int> queueing;
    int pid;

    // Guarded by lineLock: the repeat test, the files and where they live.
    nm_mutex_t lineLock;
    char previousText[NM_LOG_TEXT_MAX + 1];
    size_t previousLength;
    bool hasPrevious;
    uint32_t repeats;
    uint64_t bytesSinceCheck;
    nm_file_t current;
    nm_file_t previous;
    std::string directory; // where numbered log files live
    std::string baseName;
    std::string currentPath;

    nm_mutex_t changeOverLock;

    nm_mutex_t queueLock;
    QueueEntry *queueHead;
    QueueEntry *queueTail;

    // Back to the defaults; the caller holds lineLock or is the constructor.
    void setDefaults();
};

LoggerState &state();

// Holds an nm_mutex for a scope.
class MutexGuard
{
public:
    explicit MutexGuard(nm_mutex_t *m) : m_(nm_mutex_acquire(m) == 0 ? m : nullptr) {}
    ~MutexGuard()
    {
        if (m_)
            nm_mutex_release(m_);
    }
    explicit operator bool() const { return m_ != nullptr; }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;

private:
    nm_mutex_t *m_;
};

// Holds lineLock for a scope. A thread that logs from inside the writer
// (a failing lock, a warning of the directory listing) gets no lock, so its
// nested line is dropped instead of deadlocking.
class WriterLock
{
public:
    WriterLock();
    ~WriterLock();
    explicit operator bool() const { return held_; }
    WriterLock(const WriterLock &) = delete;
    WriterLock &operator=(const WriterLock &) = delete;

private:
    bool held_ = false;
};

// Opens the next log file if none is open, or changes over to a new one once
// the current file has reached the maximum size. The caller holds lineLock.
uint32_t changeOverCheck();

// Appends a formatted message to the queue; 8 when memory runs out.
uint32_t enqueue(uint32_t level, const char *format, va_list args);

// Empties the queue, handing back its entries oldest first; the caller
// deletes them.
QueueEntry *takeQueue();
void deleteQueue(QueueEntry *head);

} // namespace nmlog

// Thread number shown in log line heads.
unsigned long nm_log_thread_number();
