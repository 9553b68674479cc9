// POSIX (Linux) side of nmplace.h.
#include <nmplatform/nmplace.h>

#include "nmfile_fault.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint32_t kInvalid = EINVAL;

uint32_t lastError() { return errno ? static_cast<uint32_t>(errno) : kInvalid; }

bool badPath(const char *path) { return !path || strchr(path, '\n'); }

int fd(const nm_file_t *file) { return static_cast<int>(file->handle); }

void fill(const struct stat &st, nm_file_identity_t *id)
{
    id->device = static_cast<uint64_t>(st.st_dev);
    id->inode = static_cast<uint64_t>(st.st_ino);
    id->size = static_cast<uint64_t>(st.st_size);
    id->mtime_ns = static_cast<int64_t>(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
    id->type = S_ISDIR(st.st_mode) ? NM_FILE_TYPE_DIRECTORY
               : S_ISREG(st.st_mode) ? NM_FILE_TYPE_REGULAR
               : S_ISCHR(st.st_mode) ? NM_FILE_TYPE_CHARACTER
                                     : NM_FILE_TYPE_OTHER;
    id->mode = static_cast<uint32_t>(st.st_mode & 07777);
}

// The file system has no exclusive rename (or no hard links).
bool unsupported(int err)
{
    return err == EINVAL || err == ENOSYS || err == ENOTSUP || err == EOPNOTSUPP;
}

// Hard link then removal of the old name; 0, EEXIST, or why not.
int linkThenUnlink(const char *from, const char *to)
{
    if (::link(from, to) != 0)
        return errno;
    // The file already has its new name; an old name left behind is a second
    // name of the same file, never a loss.
    (void)::unlink(from);
    return 0;
}

int syncRetrying(int handle, bool dataOnly)
{
    int rc;
    do {
        rc = dataOnly ? ::fdatasync(handle) : ::fsync(handle);
    } while (rc != 0 && errno == EINTR);
    return rc == 0 ? 0 : errno;
}

} // namespace

extern "C" uint32_t nm_file_identify(const nm_file_t *file, nm_file_identity_t *id)
{
    if (!id)
        return kInvalid;
    memset(id, 0, sizeof *id);
    struct stat st;
    if (!nm_file_is_open(file))
        return kInvalid;
    if (::fstat(fd(file), &st) != 0)
        return lastError();
    fill(st, id);
    return 0;
}

extern "C" uint32_t nm_file_identify_path(const char *path, int follow, nm_file_identity_t *id)
{
    if (!id)
        return kInvalid;
    memset(id, 0, sizeof *id);
    struct stat st;
    if (badPath(path))
        return kInvalid;
    if ((follow ? ::stat(path, &st) : ::lstat(path, &st)) != 0)
        return lastError();
    fill(st, id);
    return 0;
}

extern "C" int nm_file_identity_same(const nm_file_identity_t *a, const nm_file_identity_t *b)
{
    return a && b && a->device == b->device && a->inode == b->inode && a->size == b->size
           && a->mtime_ns == b->mtime_ns;
}

extern "C" uint32_t nm_file_create_new(const char *path, uint32_t mode, nm_file_t *file)
{
    if (!file)
        return kInvalid;
    file->handle = NM_FILE_CLOSED;
    if (badPath(path))
        return kInvalid;
    if (const uint32_t fault = nm_file_fault(NM_FILE_OP_CREATE, NM_FILE_CLOSED, path, nullptr))
        return fault;
    // O_EXCL with O_CREAT fails on any existing entry, a link included, so
    // nothing is ever written through; O_NONBLOCK is for the regular file
    // that this always is, which ignores it.
    const int flags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    int handle;
    do {
        handle = ::open(path, flags, static_cast<mode_t>(mode & 07777));
    } while (handle < 0 && errno == EINTR);
    if (handle < 0)
        return lastError();
    file->handle = handle;
    return 0;
}

extern "C" uint32_t nm_file_place(const char *from, const char *to)
{
    if (badPath(from) || badPath(to))
        return kInvalid;
    if (const uint32_t fault = nm_file_fault(NM_FILE_OP_PLACE, NM_FILE_CLOSED, to, nullptr))
        return fault;
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return 0;
    int err = errno;
    if (!unsupported(err))
        return static_cast<uint32_t>(err);
    err = linkThenUnlink(from, to);
    if (err != EPERM && !unsupported(err))
        return static_cast<uint32_t>(err);
    struct stat st;
    if (::lstat(to, &st) == 0)
        return EEXIST;
    if (errno != ENOENT)
        return lastError();
    return ::rename(from, to) == 0 ? 0 : lastError();
}

extern "C" uint32_t nm_file_sync_data(nm_file_t *file)
{
    if (!nm_file_is_open(file))
        return kInvalid;
    if (const uint32_t fault = nm_file_fault(NM_FILE_OP_SYNC, file->handle, nullptr, nullptr))
        return fault;
    return static_cast<uint32_t>(syncRetrying(fd(file), true));
}

extern "C" uint32_t nm_dir_sync(const char *folder)
{
    if (badPath(folder))
        return kInvalid;
    const int handle = ::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0)
        return lastError();
    int err = static_cast<int>(nm_file_fault(NM_FILE_OP_SYNC, handle, folder, nullptr));
    if (err == 0)
        err = syncRetrying(handle, false);
    ::close(handle);
    return unsupported(err) ? 0 : static_cast<uint32_t>(err);
}

extern "C" uint32_t nm_file_reserve(nm_file_t *file, uint64_t size)
{
    if (!nm_file_is_open(file))
        return kInvalid;
    return ::fallocate(fd(file), FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(size)) == 0
               ? 0
               : lastError();
}

extern "C" uint32_t nm_file_truncate(nm_file_t *file, uint64_t size)
{
    if (!nm_file_is_open(file))
        return kInvalid;
    return ::ftruncate(fd(file), static_cast<off_t>(size)) == 0 ? 0 : lastError();
}
