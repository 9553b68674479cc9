// Log writer settings, numbered log files, change-over and the queue.
#include "nmlog_state.h"

#include <nmplatform/nmdir.h>
#include <nmplatform/nmstatus.h>
#include <nmplatform/nmstring.h>

#include <errno.h>
#include <new>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#define NM_LOG_SOURCE NM_LOG_SOURCE_SELF

unsigned long nm_log_thread_number() { return nm_thread_id(); }

namespace nmlog {

LoggerState::LoggerState()
{
    nm_file_init(&current);
    nm_file_init(&previous);
    nm_mutex_init(&lineLock, 0);
    nm_mutex_init(&changeOverLock, 0);
    nm_mutex_init(&queueLock, 0);
    queueHead = queueTail = nullptr;
    setDefaults();
}

void LoggerState::setDefaults()
{
    level = 3;
    stderrLevel = -1;
    stderrOnly = 0;
    mode = NM_LOG_MODE_FILE;
    maxSize = NM_LOG_DEFAULT_MAX_SIZE;
    callback = nullptr;
    queueing = 0;
    pid = static_cast<int>(getpid());
    previousText[0] = '\0';
    previousLength = 0;
    hasPrevious = false;
    repeats = 0;
    bytesSinceCheck = 0;
}

namespace {

// Highest n of the files "<n><base>" in dir; 0 when there is none.
int highestNumber(const std::string &dir, const std::string &base)
{
    nm_dir_t cursor;
    if (nm_dir_open(dir.c_str(), &cursor) != 0)
        return 0;
    int highest = 0;
    nm_dir_entry_t *entry = new (std::nothrow) nm_dir_entry_t;
    while (entry && nm_dir_read(&cursor, entry) == 0) {
        char *end = nullptr;
        const long n = strtol(entry->name, &end, 10);
        if (end != entry->name && n > highest && n < 1000000 && base == end)
            highest = static_cast<int>(n);
    }
    delete entry;
    nm_dir_close(&cursor);
    return highest;
}

uint32_t openNumbered(LoggerState &s, int number, nm_file_t *file)
{
    char name[16];
    snprintf(name, sizeof name, "%d", number);
    std::string path = s.directory + "/" + name + s.baseName;
    const uint32_t rc = nm_file_open_append(path.c_str(), file);
    if (rc == 0)
        s.currentPath.swap(path); // cannot throw once the file is open
    return rc;
}

} // namespace

uint32_t changeOverCheck()
{
    LoggerState &s = state();
    if (s.directory.empty())
        return EINVAL;
    MutexGuard lock(&s.changeOverLock);
    if (!lock)
        return NM_E_LOG_FAILED;
    if (!nm_file_is_open(&s.current)) {
        // Carry on in the newest file of an earlier run.
        const int newest = highestNumber(s.directory, s.baseName);
        return openNumbered(s, newest > 0 ? newest : 1, &s.current);
    }
    nm_file_stat_t st;
    if (nm_file_stat(&s.current, &st) != 0 || st.size < s.maxSize.load())
        return 0;
    nm_file_t next;
    const uint32_t rc = openNumbered(s, highestNumber(s.directory, s.baseName) + 1, &next);
    if (rc != 0)
        return rc;
    if (nm_file_is_open(&s.previous)) {
        nm_file_flush(&s.previous);
        nm_file_close(&s.previous);
    }
    s.previous = s.current; // kept open until the next change-over
    s.current = next;
    return 0;
}

uint32_t enqueue(uint32_t level, const char *format, va_list args)
{
    LoggerState &s = state();
    QueueEntry *e = new (std::nothrow) QueueEntry;
    if (!e)
        return kOutOfMemory; // the message is dropped
    va_list copy;
    va_copy(copy, args);
    const int n = vsnprintf(e->text, sizeof e->text, format, copy);
    va_end(copy);
    if (n < 0) {
        delete e;
        return NM_E_LOG_FAILED;
    }
    e->level = level;
    e->next = nullptr;
    MutexGuard lock(&s.queueLock);
    (s.queueTail ? s.queueTail->next : s.queueHead) = e;
    s.queueTail = e;
    return 0;
}

QueueEntry *takeQueue()
{
    LoggerState &s = state();
    MutexGuard lock(&s.queueLock);
    QueueEntry *head = s.queueHead;
    s.queueHead = s.queueTail = nullptr;
    return head;
}

void deleteQueue(QueueEntry *head)
{
    while (head) {
        QueueEntry *next = head->next;
        delete head;
        head = next;
    }
}

} // namespace nmlog

using nmlog::state;

extern "C" void nm_log_set_level(int32_t level) { state().level = level; }
extern "C" int32_t nm_log_level(void) { return state().level; }
extern "C" void nm_log_set_stderr_level(int32_t level) { state().stderrLevel = level; }
extern "C" void nm_log_set_stderr_only(int on) { state().stderrOnly = on ? 1 : 0; }
extern "C" void nm_log_set_callback(nm_log_callback_fn fn) { state().callback = fn; }
extern "C" void nm_log_set_max_size(uint64_t bytes) { state().maxSize = bytes; }
extern "C" void nm_log_set_queueing(int on) { state().queueing = on ? 1 : 0; }

extern "C" uint32_t nm_log_set_mode(int32_t mode)
{
    state().mode = mode;
    return mode >= NM_LOG_MODE_QUEUE && mode <= NM_LOG_MODE_CALLBACK ? 0 : EINVAL;
}

extern "C" uint32_t nm_log_file_path(char *buffer, size_t size)
{
    if (!buffer || size == 0)
        return EINVAL;
    nmlog::WriterLock lock;
    if (!lock)
        return NM_E_LOG_FAILED;
    return nm_strlcat(buffer, state().currentPath.c_str(), size, nullptr);
}

extern "C" uint32_t nm_log_open(const char *directory, const char *base_name)
{
    nmlog::LoggerState &s = state();
    if (!directory || !base_name || !*base_name)
        return EINVAL;
    nmlog::WriterLock lock;
    if (!lock)
        return NM_E_LOG_FAILED;
    nm_file_close(&s.current);
    nm_file_close(&s.previous);
    s.currentPath.clear();
    s.bytesSinceCheck = 0;
    try {
        s.directory = directory;
        s.baseName = base_name;
        return nmlog::changeOverCheck();
    } catch (...) {
        s.directory.clear(); // no log file rather than a half-set one
        return nmlog::kOutOfMemory;
    }
}

extern "C" void nm_log_reset(void)
{
    nmlog::LoggerState &s = state();
    nmlog::deleteQueue(nmlog::takeQueue());
    nmlog::WriterLock lock;
    nm_file_close(&s.current);
    nm_file_close(&s.previous);
    s.directory.clear();
    s.baseName.clear();
    s.currentPath.clear();
    s.setDefaults();
}
