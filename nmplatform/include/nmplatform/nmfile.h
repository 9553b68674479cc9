/* File access layer: one file object, one set of open flags, UTF-8 paths and
 * one error convention for every file the libraries touch.
 *
 * Every call returns 0 or an error number: the system's errno value, 22
 * (EINVAL) for a null argument or an invalid flag set. Nothing throws. A file
 * object belongs to one thread at a time. */
#ifndef NMPLATFORM_NMFILE_H
#define NMPLATFORM_NMFILE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Open flags, a bit set. */
enum {
  NM_FILE_READ = 1,
  NM_FILE_WRITE = 2,
  NM_FILE_APPEND = 4,        /* append-data only; replaces read and write */
  NM_FILE_SHARE_READ = 16,
  NM_FILE_SHARE_WRITE = 32,
  NM_FILE_SHARE_DELETE = 64,
  NM_FILE_OPEN_ALWAYS = 256, /* create if missing; without it the file must exist */
  NM_FILE_TRUNCATE = 512,    /* to zero length after opening */
  NM_FILE_NO_BUFFERING = 1024,
  NM_FILE_WRITE_THROUGH = 2048
};

#define NM_FILE_FLAGS_READ (NM_FILE_READ | NM_FILE_SHARE_READ) /* 17 */
#define NM_FILE_FLAGS_APPEND                                                          \
  (NM_FILE_WRITE | NM_FILE_APPEND | NM_FILE_SHARE_READ | NM_FILE_SHARE_WRITE |        \
   NM_FILE_OPEN_ALWAYS) /* 310 */

/* File types of nm_file_stat_t.type. */
enum {
  NM_FILE_TYPE_DIRECTORY = 1,
  NM_FILE_TYPE_REGULAR = 2,
  NM_FILE_TYPE_CHARACTER = 3,
  NM_FILE_TYPE_OTHER = 65535
};

/* One operating-system handle; -1 means closed. */
typedef struct nm_file {
  intptr_t handle;
} nm_file_t;

#define NM_FILE_CLOSED ((intptr_t)-1)

typedef struct nm_file_stat {
  uint64_t id;        /* file identity (inode) */
  uint64_t size;      /* bytes */
  uint64_t reserved;  /* 0 */
  uint32_t type;      /* NM_FILE_TYPE_* */
  uint32_t mode;
  uint32_t uid;
  uint32_t gid;
  int64_t ctime;      /* seconds since 1970 */
  int64_t mtime;
  int64_t atime;
  uint32_t nlink;
  uint32_t reserved2[2]; /* 0 */
} nm_file_stat_t;

/* Sets the object to closed. */
uint32_t nm_file_init(nm_file_t *file);

/* Opens path (UTF-8, any length) with the flags above. Neither read, write
 * nor append gives 22 without touching the file system; so does a path that
 * holds a line feed. With NM_FILE_TRUNCATE a failed truncation closes the
 * file again. On failure the object is left closed. */
uint32_t nm_file_open(const char *path, nm_file_t *file, uint32_t flags);
uint32_t nm_file_open_read(const char *path, nm_file_t *file);   /* flags 17 */
uint32_t nm_file_open_append(const char *path, nm_file_t *file); /* flags 310 */
/* nm_file_open_read that also fills *status, from the status call the open
 * makes anyway (one system call fewer than open and nm_file_stat). */
uint32_t nm_file_open_read_stat(const char *path, nm_file_t *file, nm_file_stat_t *status);

/* One read of up to size bytes; *count is set to 0 first, then to what was
 * read. End of file is success with *count 0; a closed object gives 9 (EBADF). Transient shortages (ENOMEM,
 * ENOBUFS, EAGAIN) are retried up to 10 times after the delays 0,0,0,0,0,
 * 10,10,10,10,10 ms, each retry logged; EINTR is retried at once. */
uint32_t nm_file_read(nm_file_t *file, void *buffer, size_t size, size_t *count);

/* nm_file_read from offset on, in one positioned read; the file position
 * afterwards is unspecified. */
uint32_t nm_file_read_at(nm_file_t *file, uint64_t offset, void *buffer, size_t size,
                         size_t *count);

/* One write call; *count receives what was written (may be short). A closed
 * object gives 9 (EBADF). */
uint32_t nm_file_write(nm_file_t *file, const void *buffer, size_t size, size_t *count);

/* origin: 0 start, 1 current, 2 end. Failures are logged. */
uint32_t nm_file_seek(nm_file_t *file, int64_t offset, int origin);

uint32_t nm_file_stat(nm_file_t *file, nm_file_stat_t *status);
uint32_t nm_file_flush(nm_file_t *file); /* 22 when closed */

/* Closing a closed object succeeds; afterwards the object is closed. */
uint32_t nm_file_close(nm_file_t *file);

/* Non-zero when open; 0 for null. */
int nm_file_is_open(const nm_file_t *file);

uint32_t nm_file_delete(const char *path);
uint32_t nm_file_link(const char *existing_path, const char *new_path);

/* Test seam: replaces the system read (same contract as read(2), errno on
 * failure); null restores it. nm_file_read_at then seeks and reads through
 * it. Not for production code. */
typedef long (*nm_file_read_fn)(intptr_t handle, void *buffer, size_t size);
void nm_file_set_read_fn(nm_file_read_fn fn);

/* Test seam for faults: fn is asked before the system call of each seek,
 * status, write, data sync, close, exclusive creation and placement of this
 * layer (and of nmplace.h), with the handle (NM_FILE_CLOSED for calls that
 * take a path), the path (null for calls that take a handle) and, for a
 * write, the byte count, which fn may lower to make the write short. A
 * non-zero result fails that call with this error number as if the system
 * had; a failed close still closes. Null removes it. Not for production code. */
enum {
  NM_FILE_OP_SEEK = 1,
  NM_FILE_OP_STAT = 2,
  NM_FILE_OP_WRITE = 3,
  NM_FILE_OP_SYNC = 4,
  NM_FILE_OP_CLOSE = 5,
  NM_FILE_OP_CREATE = 6,
  NM_FILE_OP_PLACE = 7
};
typedef uint32_t (*nm_file_fault_fn)(int op, intptr_t handle, const char *path, size_t *size);
void nm_file_set_fault_fn(nm_file_fault_fn fn);

#ifdef __cplusplus
}
#endif

#endif
