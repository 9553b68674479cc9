// Helpers of the platform tests: the library's log lines captured, and the
// allocations of a thread made to fail. Include from exactly one file of a
// test executable: it replaces the global operator new and delete.
#pragma once

#include <nmplatform/nmlog.h>

#include <QStringList>

#include <new>
#include <stdio.h>
#include <stdlib.h>

// Lines logged since nmtestCaptureLog(), as "<level> <text>".
inline QStringList g_logged;

inline void nmtestKeepLine(uint32_t level, const char *, int, const char *format, va_list args)
{
    char text[512];
    vsnprintf(text, sizeof text, format, args);
    g_logged << QString::number(level) + ' ' + QString::fromUtf8(text);
}

// Every level from here on goes to g_logged, which starts empty.
inline void nmtestCaptureLog()
{
    g_logged.clear();
    nm_log_set_mode(NM_LOG_MODE_CALLBACK);
    nm_log_set_callback(nmtestKeepLine);
    nm_log_set_level(9);
}

// Allocations of the current thread fail while this is set.
inline thread_local bool t_failAllocations = false;

void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    return t_failAllocations ? nullptr : malloc(size ? size : 1);
}
void *operator new(std::size_t size)
{
    if (void *p = operator new(size, std::nothrow))
        return p;
    throw std::bad_alloc();
}
void *operator new[](std::size_t size) { return operator new(size); }
void *operator new[](std::size_t size, const std::nothrow_t &tag) noexcept { return operator new(size, tag); }
void operator delete(void *p) noexcept { free(p); }
void operator delete(void *p, std::size_t) noexcept { free(p); }
void operator delete[](void *p) noexcept { free(p); }
void operator delete[](void *p, std::size_t) noexcept { free(p); }
