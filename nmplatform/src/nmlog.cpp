#include <nmplatform/nmlog.h>

#include "nmlog_state.h"

#include <nmplatform/nmstatus.h>

#include <errno.h>
#include <new>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace nmlog {

LoggerState &state()
{
    // Never destroyed, so that logging from other objects' destructors at
    // exit still finds it.
    static LoggerState *s = new LoggerState;
    return *s;
}

namespace {

thread_local bool t_inWriter = false;

const char *levelPrefix(uint32_t level)
{
    static const char *const prefixes[] = {"ERR", "ERR", "LOG", "LOG", "DBG"};
    return level < 5 ? prefixes[level] : "TR";
}

// "<prefix> <message>" cut to NM_LOG_TEXT_MAX characters into text (room for
// NM_LOG_TEXT_MAX + 8); false when the message can't be formatted.
bool formatText(uint32_t level, const char *format, va_list args, char *text, size_t *length)
{
    const int n = snprintf(text, 6, "%s ", levelPrefix(level));
    if (n < 0)
        return false;
    va_list copy;
    va_copy(copy, args);
    const int m = vsnprintf(text + n, 4091, format, copy);
    va_end(copy);
    if (m < 0)
        return false;
    *length = strnlen(text, NM_LOG_TEXT_MAX);
    text[*length] = '\0';
    return true;
}

// The line head; after repeats it starts with the repeat notice. Both forms
// take the same arguments: the leading "%.*d" prints nothing for a count of 0.
int formatHead(char *head, size_t size, uint32_t repeats)
{
    timeval tv;
    gettimeofday(&tv, nullptr);
    tm local;
    const time_t secs = tv.tv_sec;
    localtime_r(&secs, &local);
    const int ms = static_cast<int>(tv.tv_usec / 1000);
    const unsigned pid = static_cast<unsigned>(state().pid);
    const unsigned long tid = nm_log_thread_number();
    if (repeats == 0)
        return snprintf(head, size, "%.*d%04d-%02d-%02d %02d:%02d:%02d.%03d [%x-%08lx] ", 0, 0,
                        local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                        local.tm_min, local.tm_sec, ms, pid, tid);
    return snprintf(head, size,
                    "Last message repeated %.*d times\r\n%04d-%02d-%02d %02d:%02d:%02d.%03d [%x-%lx] ",
                    0, static_cast<int>(repeats), local.tm_year + 1900, local.tm_mon + 1,
                    local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, ms, pid, tid);
}

uint32_t writeAll(nm_file_t *file, const char *data, size_t size, uint64_t *written)
{
    while (size > 0) {
        size_t n = 0;
        if (const uint32_t rc = nm_file_write(file, data, size, &n))
            return rc;
        if (n == 0)
            return EIO;
        data += n;
        size -= n;
        *written += n;
    }
    return 0;
}

// One line to the log file (and standard error), counting repeats. The whole
// line is written under lineLock so that lines never interleave and the
// repeat test sees one previous line.
uint32_t writeLine(uint32_t level, const char *format, va_list args)
{
    LoggerState &s = state();
    WriterLock lock;
    if (!lock)
        return NM_E_LOG_FAILED;
    const bool stderrOnly = s.stderrOnly.load();
    if (!nm_file_is_open(&s.current) && !stderrOnly)
        return EINVAL;
    char text[NM_LOG_TEXT_MAX + 8];
    size_t length = 0;
    if (!formatText(level, format, args, text, &length))
        return NM_E_LOG_FAILED;
    if (s.hasPrevious && length == s.previousLength && memcmp(text, s.previousText, length) == 0) {
        ++s.repeats;
        return 0;
    }
    memcpy(s.previousText, text, length + 1);
    s.previousLength = length;
    s.hasPrevious = true;
    memcpy(text + length, "\r\n", 3);
    length += 2;
    if (stderrOnly || s.stderrLevel.load() >= static_cast<int64_t>(level))
        fwrite(text, 1, length, stderr);
    if (stderrOnly)
        return 0;
    char head[257];
    const int n = formatHead(head, sizeof head, s.repeats);
    if (n < 0 || n > 256)
        return NM_E_LOG_FAILED;
    uint64_t written = 0;
    uint32_t rc = writeAll(&s.current, head, static_cast<size_t>(n), &written);
    if (rc == 0)
        rc = writeAll(&s.current, text, length, &written);
    s.bytesSinceCheck += written;
    s.repeats = 0;
    if (s.bytesSinceCheck >= 65536) {
        s.bytesSinceCheck = 0;
        changeOverCheck();
    }
    return rc;
}

bool passesThreshold(uint32_t level, bool queueing)
{
    const int32_t threshold = state().level.load();
    return threshold != -1 && (threshold < 0 || static_cast<int64_t>(level) <= threshold || queueing);
}

uint32_t deliver(uint32_t level, const char *source, int line, const char *format, va_list args)
{
    LoggerState &s = state();
    switch (s.mode.load()) {
    case NM_LOG_MODE_QUEUE:
        return s.queueing.load() ? enqueue(level, format, args) : EINVAL;
    case NM_LOG_MODE_FILE:
    case NM_LOG_MODE_FILE2:
        return writeLine(level, format, args);
    case NM_LOG_MODE_CALLBACK:
        if (nm_log_callback_fn callback = s.callback.load()) {
            callback(level, source, line, format, args);
            return 0;
        }
        return EINVAL;
    default:
        return EINVAL;
    }
}

uint32_t deliverf(uint32_t level, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const uint32_t rc = deliver(level, NM_LOG_SOURCE_SELF, 0, format, args);
    va_end(args);
    return rc;
}

} // namespace

WriterLock::WriterLock()
{
    if (t_inWriter)
        return;
    t_inWriter = true;
    held_ = nm_mutex_acquire(&state().lineLock) == 0;
    t_inWriter = held_;
}

WriterLock::~WriterLock()
{
    if (!held_)
        return;
    nm_mutex_release(&state().lineLock);
    t_inWriter = false;
}

} // namespace nmlog

using namespace nmlog;

extern "C" uint32_t nm_logv(uint32_t level, const char *source, int line, const char *format,
                            va_list args)
{
    if (!passesThreshold(level, state().queueing.load()))
        return 0;
    if (!format)
        return EINVAL;
    const int savedErrno = errno;
    uint32_t rc;
    try {
        rc = deliver(level, source, line, format, args);
    } catch (const std::bad_alloc &) {
        rc = kOutOfMemory;
    } catch (...) {
        rc = NM_E_LOG_FAILED;
    }
    errno = savedErrno;
    return rc;
}

extern "C" uint32_t nm_log(uint32_t level, const char *source, int line, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const uint32_t rc = nm_logv(level, source, line, format, args);
    va_end(args);
    return rc;
}

extern "C" uint32_t nm_log_flush_queue(void)
{
    if (state().mode.load() == NM_LOG_MODE_QUEUE)
        return EINVAL; // nowhere to flush to yet
    const int savedErrno = errno;
    QueueEntry *entries = takeQueue();
    uint32_t rc = 0;
    for (QueueEntry *e = entries; e; e = e->next) {
        if (!passesThreshold(e->level, false))
            continue;
        try {
            if (const uint32_t r = deliverf(e->level, "%s", e->text))
                rc = r;
        } catch (const std::bad_alloc &) {
            rc = kOutOfMemory;
        } catch (...) {
            rc = NM_E_LOG_FAILED;
        }
    }
    deleteQueue(entries);
    errno = savedErrno;
    return rc;
}
