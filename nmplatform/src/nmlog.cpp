#include <nmplatform/nmlog.h>

#include "nmlog_state.h"

#include <nmplatform/nmstatus.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace nmlog {

LoggerState &state()
{
    static LoggerState s;
    return s;
}

namespace {

const char *levelPrefix(uint32_t level)
{
    static const char *const prefixes[] = {"ERR", "ERR", "LOG", "LOG", "DBG"};
    return level < 5 ? prefixes[level] : "TR";
}

// "<prefix> <message>" cut to NM_LOG_TEXT_MAX characters; false when the
// message can't be formatted.
bool formatText(uint32_t level, const char *format, va_list args, std::string *text)
{
    char buf[NM_LOG_TEXT_MAX + 8];
    int n = snprintf(buf, 6, "%s ", levelPrefix(level));
    if (n < 0)
        return false;
    va_list copy;
    va_copy(copy, args);
    const int m = vsnprintf(buf + n, 4091, format, copy);
    va_end(copy);
    if (m < 0)
        return false;
    text->assign(buf, strnlen(buf, NM_LOG_TEXT_MAX));
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

uint32_t writeLine(uint32_t level, const char *format, va_list args)
{
    LoggerState &s = state();
    if (!nm_file_is_open(&s.current) && !s.stderrOnly)
        return EINVAL;
    std::string text;
    if (!formatText(level, format, args, &text))
        return NM_E_LOG_FAILED;
    if (s.hasPrevious && text == s.previousText) {
        ++s.repeats;
        return 0;
    }
    s.previousText = text;
    s.hasPrevious = true;
    text += "\r\n";
    if (s.stderrOnly || s.stderrLevel >= static_cast<int64_t>(level))
        fwrite(text.data(), 1, text.size(), stderr);
    if (s.stderrOnly)
        return 0;
    char head[257];
    const int n = formatHead(head, sizeof head, s.repeats);
    if (n < 0 || n > 256)
        return NM_E_LOG_FAILED;
    uint64_t written = 0;
    uint32_t rc = writeAll(&s.current, head, static_cast<size_t>(n), &written);
    if (rc == 0)
        rc = writeAll(&s.current, text.data(), text.size(), &written);
    s.bytesSinceCheck += written;
    s.repeats = 0;
    if (s.bytesSinceCheck >= 65536) {
        s.bytesSinceCheck = 0;
        changeOverCheck();
    }
    return rc;
}

} // namespace
} // namespace nmlog

using namespace nmlog;

extern "C" uint32_t nm_logv(uint32_t level, const char *source, int line, const char *format,
                            va_list args)
{
    LoggerState &s = state();
    const int32_t threshold = s.level;
    if (threshold == -1 || (threshold >= 0 && static_cast<int64_t>(level) > threshold && !s.queueing))
        return 0;
    if (!format)
        return EINVAL;
    const int savedErrno = errno;
    uint32_t rc;
    switch (s.mode) {
    case NM_LOG_MODE_QUEUE:
        rc = s.queueing ? enqueue(level, format, args) : EINVAL;
        break;
    case NM_LOG_MODE_FILE:
    case NM_LOG_MODE_FILE2:
        rc = writeLine(level, format, args);
        break;
    case NM_LOG_MODE_CALLBACK:
        rc = s.callback ? (s.callback(level, source, line, format, args), 0u) : EINVAL;
        break;
    default:
        rc = EINVAL;
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
    LoggerState &s = state();
    std::vector<QueueEntry> entries = takeQueue();
    const bool queueing = s.queueing;
    s.queueing = 0; // so the entries go to the real destination, filtered by level
    uint32_t rc = 0;
    for (const QueueEntry &e : entries) {
        if (const uint32_t r = nm_log(e.level, NM_LOG_SOURCE_SELF, 0, "%s", e.text.c_str()))
            rc = r;
    }
    s.queueing = queueing;
    return rc;
}
