/* Process-wide log writer of the platform and crypto libraries.
 *
 * Lines go to a log file (changed over to a new numbered file once it reaches
 * the maximum size), optionally echoed to standard error, to a callback, or
 * into an in-memory queue until the logger is set up. Logging never throws
 * and never changes errno; callers ignore its result. Every call may come
 * from any thread: a line is written whole, and the repeat count sees the
 * lines in the order they were written. */
#ifndef NMPLATFORM_NMLOG_H
#define NMPLATFORM_NMLOG_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Levels used by the libraries: 1 failures, 3 warnings, 5 programming errors. */
enum { NM_LOG_ERR = 1, NM_LOG_WARN = 3, NM_LOG_DBG = 4, NM_LOG_TRACE = 5 };

/* Destination modes. */
enum { NM_LOG_MODE_QUEUE = 0, NM_LOG_MODE_FILE = 1, NM_LOG_MODE_FILE2 = 2, NM_LOG_MODE_CALLBACK = 3 };

#define NM_LOG_DEFAULT_MAX_SIZE 10485760u
#define NM_LOG_TEXT_MAX 4093 /* characters of a line's text, prefix included */

typedef void (*nm_log_callback_fn)(uint32_t level, const char *source, int line,
                                   const char *format, va_list args);

#if defined(__GNUC__)
#define NM_PRINTF_LIKE(f, a) __attribute__((format(printf, f, a)))
#else
#define NM_PRINTF_LIKE(f, a)
#endif

/* The one entry point. Returns 0, 22 (no destination or unknown mode), 28686
 * (formatting failed, or a line logged from inside the writer itself, which
 * is dropped), 8 (memory exhausted) or a write's error. */
uint32_t nm_log(uint32_t level, const char *source, int line, const char *format, ...)
    NM_PRINTF_LIKE(4, 5);
uint32_t nm_logv(uint32_t level, const char *source, int line, const char *format, va_list args);

/* Each unit defines NM_LOG_SOURCE ("nmplatform/src/nmfile", ...) before use. */
#define NM_LOG(level, ...) nm_log((level), NM_LOG_SOURCE, __LINE__, __VA_ARGS__)

/* Settings; the defaults are level 3, standard-error level -1 (no echo),
 * standard-error-only off, mode NM_LOG_MODE_FILE, no callback, 10 MiB. */
void nm_log_set_level(int32_t level);          /* -1 switches logging off */
int32_t nm_log_level(void);
void nm_log_set_stderr_level(int32_t level);   /* echo levels up to this */
void nm_log_set_stderr_only(int on);
uint32_t nm_log_set_mode(int32_t mode);        /* any mode is kept; unknown ones make nm_log fail with 22 */
void nm_log_set_callback(nm_log_callback_fn fn);
void nm_log_set_max_size(uint64_t bytes);
void nm_log_set_queueing(int on);

/* Opens the log file "<n><base_name>" in directory for appending, n the
 * highest number already there, so a new run carries on in the newest file
 * (1 when there is none). Each change-over opens the file numbered one
 * higher than the highest. Returns 0, 22 for a null or empty argument, 8 or
 * the open's error. */
uint32_t nm_log_open(const char *directory, const char *base_name);

/* Writes the queued messages to the current destination, oldest first, and
 * empties the queue. */
uint32_t nm_log_flush_queue(void);

/* Closes the current and previous log files and empties the queue; every
 * setting returns to its default. */
void nm_log_reset(void);

/* Copies the path of the current log file ("" when none) into buffer:
 * 0, 28677 when it had to be cut, 22 for a null or empty buffer. */
uint32_t nm_log_file_path(char *buffer, size_t size);

#ifdef __cplusplus
}
#endif

#endif
