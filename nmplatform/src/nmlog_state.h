// Internal state of the log writer, shared by its units.
#pragma once

#include <nmplatform/nmfile.h>
#include <nmplatform/nmlog.h>
#include <nmplatform/nmsynchron.h>

#include <stdarg.h>
#include <stdint.h>

#include <string>
#include <vector>

#define NM_LOG_SOURCE_SELF "nmplatform/src/nmlog"

namespace nmlog {

struct QueueEntry {
    uint32_t level;
    std::string text;
    QueueEntry *next = nullptr;
};

struct LoggerState {
    LoggerState();

    int32_t level;
    int32_t stderrLevel;
    int stderrOnly;
    int32_t mode;
    nm_file_t current;
    nm_file_t previous;
    uint64_t maxSize;
    uint64_t bytesSinceCheck;
    std::string previousText; // repeat detection; unlocked on purpose
    bool hasPrevious;
    uint32_t repeats;
    int pid;
    nm_log_callback_fn callback;
    std::string directory; // where numbered log files live
    std::string baseName;
    std::string currentPath;

    nm_mutex_t changeOverLock;
    nm_mutex_t queueLock;
    QueueEntry *queueHead;
    QueueEntry *queueTail;
    int queueing;

    void setDefaults();
};

LoggerState &state();

// Opens the next log file if none is open, or changes over to a new one once
// the current file has reached the maximum size.
uint32_t changeOverCheck();

// Appends a formatted message to the queue; 8 when memory runs out.
uint32_t enqueue(uint32_t level, const char *format, va_list args);

// Empties the queue, handing back its entries oldest first.
std::vector<QueueEntry> takeQueue();

} // namespace nmlog

// Thread number shown in log line heads.
unsigned long nm_log_thread_number();
