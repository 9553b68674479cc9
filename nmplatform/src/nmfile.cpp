// POSIX file layer. Paths go to the kernel unchanged: the Windows path
// conversion lives in nmpath and is only needed on that platform.
#include <nmplatform/nmfile.h>

#include <nmplatform/nmlog.h>

#include "nmfile_fault.h"

#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#define NM_LOG_SOURCE "nmplatform/src/nmfile"

namespace {

constexpr uint32_t kInvalid = EINVAL;
constexpr int kMaxRetries = 10;
// Delay before retry 1..10: the first five retries are immediate on purpose.
constexpr int kRetryDelayMs[kMaxRetries] = {0, 0, 0, 0, 0, 10, 10, 10, 10, 10};

long systemRead(intptr_t handle, void *buffer, size_t size)
{
    return static_cast<long>(::read(static_cast<int>(handle), buffer, size));
}

std::atomic<nm_file_read_fn> g_readFn{systemRead};
std::atomic<nm_file_fault_fn> g_faultFn{nullptr};

uint32_t lastError() { return errno ? static_cast<uint32_t>(errno) : kInvalid; }

int fd(const nm_file_t *file) { return static_cast<int>(file->handle); }

bool isTransient(int err) { return err == ENOMEM || err == ENOBUFS || err == EAGAIN; }

void sleepMs(int ms)
{
    if (ms <= 0)
        return;
    timespec ts{ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

int openFlags(uint32_t flags)
{
    // Non-blocking so that opening or reading a FIFO or device can never hang
    // the caller; regular files ignore the flag.
    int oflags = O_CLOEXEC | O_NONBLOCK;
    if (flags & NM_FILE_APPEND)
        oflags |= O_WRONLY | O_APPEND;
    else if ((flags & NM_FILE_READ) && (flags & NM_FILE_WRITE))
        oflags |= O_RDWR;
    else if (flags & NM_FILE_WRITE)
        oflags |= O_WRONLY;
    else
        oflags |= O_RDONLY;
    if (flags & NM_FILE_OPEN_ALWAYS)
        oflags |= O_CREAT;
    if (flags & NM_FILE_WRITE_THROUGH)
        oflags |= O_DSYNC;
    return oflags;
}

uint32_t fileType(mode_t mode)
{
    if (S_ISDIR(mode)) return NM_FILE_TYPE_DIRECTORY;
    if (S_ISREG(mode)) return NM_FILE_TYPE_REGULAR;
    if (S_ISCHR(mode)) return NM_FILE_TYPE_CHARACTER;
    return NM_FILE_TYPE_OTHER;
}

void fillStatus(const struct stat &st, nm_file_stat_t *status)
{
    memset(status, 0, sizeof *status);
    status->id = static_cast<uint64_t>(st.st_ino);
    status->size = static_cast<uint64_t>(st.st_size);
    status->type = fileType(st.st_mode);
    status->mode = static_cast<uint32_t>(st.st_mode);
    status->uid = static_cast<uint32_t>(st.st_uid);
    status->gid = static_cast<uint32_t>(st.st_gid);
    status->ctime = static_cast<int64_t>(st.st_ctime);
    status->mtime = static_cast<int64_t>(st.st_mtime);
    status->atime = static_cast<int64_t>(st.st_atime);
    status->nlink = static_cast<uint32_t>(st.st_nlink);
}

// The open of nm_file_open; st receives the status it checks the file with.
uint32_t openFile(const char *path, nm_file_t *file, uint32_t flags, struct stat *st)
{
    if (!path || !file)
        return kInvalid;
    file->handle = NM_FILE_CLOSED;
    if (!(flags & (NM_FILE_READ | NM_FILE_WRITE | NM_FILE_APPEND)) || strchr(path, '\n'))
        return kInvalid;
    int handle;
    do {
        handle = ::open(path, openFlags(flags), 0666);
    } while (handle < 0 && errno == EINTR);
    if (handle < 0)
        return lastError();
    // Directories open on POSIX but not as files elsewhere; refuse them here
    // so every caller sees the same "is a directory" failure at open.
    uint32_t err = 0;
    if (::fstat(handle, st) != 0)
        err = lastError();
    else if (S_ISDIR(st->st_mode))
        err = EISDIR;
    else if ((flags & NM_FILE_TRUNCATE) && ::ftruncate(handle, 0) != 0)
        err = lastError();
    if (err) {
        ::close(handle);
        return err;
    }
    file->handle = handle;
    return 0;
}

// The read rule of nm_file_read around one system read, readOnce().
template <typename Read>
uint32_t readRetrying(const Read &readOnce, size_t *count)
{
    int retries = 0;
    for (;;) {
        const long n = readOnce();
        if (n >= 0) {
            *count += static_cast<size_t>(n);
            return 0;
        }
        const int err = errno;
        if (err == EINTR)
            continue;
        if (err == EPIPE) // the writer went away: end of input
            return 0;
        if (isTransient(err) && retries < kMaxRetries) {
            const int delay = kRetryDelayMs[retries++];
            NM_LOG(NM_LOG_ERR, "nm_fileread: resource error %d, retrying after %d ms", err, delay);
            sleepMs(delay);
            continue;
        }
        NM_LOG(NM_LOG_ERR, "nm_fileread: ReadFile failed. error=%d", err);
        return static_cast<uint32_t>(err);
    }
}

// The argument checks of the reads; 0 lets the read go ahead.
uint32_t readRefusal(nm_file_t *file, void *buffer, size_t *count)
{
    if (count)
        *count = 0;
    if (!file || !buffer || !count)
        return kInvalid;
    if (file->handle == NM_FILE_CLOSED) {
        NM_LOG(NM_LOG_ERR, "nm_fileread: ReadFile failed. error=%d", EBADF);
        return EBADF;
    }
    return 0;
}

} // namespace

extern "C" void nm_file_set_read_fn(nm_file_read_fn fn) { g_readFn.store(fn ? fn : systemRead); }
extern "C" void nm_file_set_fault_fn(nm_file_fault_fn fn) { g_faultFn.store(fn); }

// The error a test asks op to fail with, 0 to go ahead.
uint32_t nm_file_fault(int op, intptr_t handle, const char *path, size_t *size)
{
    const nm_file_fault_fn fn = g_faultFn.load();
    return fn ? fn(op, handle, path, size) : 0;
}

extern "C" uint32_t nm_file_init(nm_file_t *file)
{
    if (!file)
        return kInvalid;
    file->handle = NM_FILE_CLOSED;
    return 0;
}

extern "C" uint32_t nm_file_open(const char *path, nm_file_t *file, uint32_t flags)
{
    struct stat st;
    return openFile(path, file, flags, &st);
}

extern "C" uint32_t nm_file_open_read_stat(const char *path, nm_file_t *file,
                                           nm_file_stat_t *status)
{
    if (!status)
        return kInvalid;
    struct stat st;
    const uint32_t err = openFile(path, file, NM_FILE_FLAGS_READ, &st);
    if (err == 0)
        fillStatus(st, status);
    return err;
}

extern "C" uint32_t nm_file_open_read(const char *path, nm_file_t *file)
{
    return nm_file_open(path, file, NM_FILE_FLAGS_READ);
}

extern "C" uint32_t nm_file_open_append(const char *path, nm_file_t *file)
{
    return nm_file_open(path, file, NM_FILE_FLAGS_APPEND);
}

extern "C" uint32_t nm_file_read(nm_file_t *file, void *buffer, size_t size, size_t *count)
{
    if (const uint32_t err = readRefusal(file, buffer, count))
        return err;
    return readRetrying([&] { return g_readFn.load()(file->handle, buffer, size); }, count);
}

extern "C" uint32_t nm_file_read_at(nm_file_t *file, uint64_t offset, void *buffer, size_t size,
                                    size_t *count)
{
    if (const uint32_t err = readRefusal(file, buffer, count))
        return err;
    const nm_file_read_fn seam = g_readFn.load();
    if (seam != systemRead) {
        const uint32_t err = nm_file_seek(file, static_cast<int64_t>(offset), 0);
        return err ? err : readRetrying([&] { return seam(file->handle, buffer, size); }, count);
    }
    return readRetrying(
        [&] {
            return static_cast<long>(::pread(fd(file), buffer, size, static_cast<off_t>(offset)));
        },
        count);
}

extern "C" uint32_t nm_file_write(nm_file_t *file, const void *buffer, size_t size, size_t *count)
{
    if (count)
        *count = 0;
    if (!file || !buffer || !count)
        return kInvalid;
    if (!nm_file_is_open(file))
        return EBADF;
    if (const uint32_t fault = nm_file_fault(NM_FILE_OP_WRITE, file->handle, nullptr, &size))
        return fault;
    ssize_t n;
    do {
        n = ::write(fd(file), buffer, size);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
        return lastError();
    *count = static_cast<size_t>(n);
    return 0;
}

extern "C" uint32_t nm_file_seek(nm_file_t *file, int64_t offset, int origin)
{
    if (!file)
        return kInvalid;
    static const int whence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    // An unknown origin is a failed seek like any other, logged.
    uint32_t err = origin < 0 || origin > 2
                       ? kInvalid
                       : nm_file_fault(NM_FILE_OP_SEEK, file->handle, nullptr, nullptr);
    if (err == 0 && ::lseek(fd(file), static_cast<off_t>(offset), whence[origin]) < 0)
        err = lastError();
    if (err != 0) {
        NM_LOG(NM_LOG_ERR, "nm_file_seek: SetFilePointerEx failed, error=%d", static_cast<int>(err));
        return err;
    }
    return 0;
}

extern "C" uint32_t nm_file_stat(nm_file_t *file, nm_file_stat_t *status)
{
    if (!status) {
        NM_LOG(NM_LOG_TRACE, "nm_file_setstat called with null pointer.");
        return kInvalid;
    }
    memset(status, 0, sizeof *status);
    if (!file)
        return kInvalid;
    if (const uint32_t err = nm_file_fault(NM_FILE_OP_STAT, file->handle, nullptr, nullptr))
        return err;
    struct stat st;
    if (::fstat(fd(file), &st) != 0)
        return lastError();
    fillStatus(st, status);
    return 0;
}

extern "C" uint32_t nm_file_flush(nm_file_t *file)
{
    if (!nm_file_is_open(file))
        return kInvalid;
    return ::fsync(fd(file)) == 0 ? 0 : lastError();
}

extern "C" uint32_t nm_file_close(nm_file_t *file)
{
    if (!file)
        return kInvalid;
    if (file->handle == NM_FILE_CLOSED)
        return 0;
    const uint32_t fault = nm_file_fault(NM_FILE_OP_CLOSE, file->handle, nullptr, nullptr);
    const int rc = ::close(fd(file));
    file->handle = NM_FILE_CLOSED; // closed either way: retrying close(2) is unsafe
    if (fault)
        return fault;
    return rc == 0 || errno == EINTR ? 0 : lastError();
}

extern "C" int nm_file_is_open(const nm_file_t *file)
{
    return file && file->handle != NM_FILE_CLOSED;
}

extern "C" uint32_t nm_file_delete(const char *path)
{
    if (!path || strchr(path, '\n'))
        return kInvalid;
    return ::unlink(path) == 0 ? 0 : lastError();
}

extern "C" uint32_t nm_file_link(const char *existing_path, const char *new_path)
{
    if (!existing_path || !new_path || strchr(existing_path, '\n') || strchr(new_path, '\n'))
        return kInvalid;
    return ::link(existing_path, new_path) == 0 ? 0 : lastError();
}
