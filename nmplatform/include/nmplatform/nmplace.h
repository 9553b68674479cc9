/* Files that never replace or write through anything already there: created
 * only under a free name, given their final name only if that name is free,
 * made durable before anything that depends on them is destroyed, and told
 * apart by identity so that a name can be checked to still hold the same file.
 *
 * Every call returns 0 or an error number (the system's errno; 22 for a null
 * argument or a path that holds a line feed). 17 (EEXIST) always means that
 * the name was taken, by an entry of any kind. Nothing throws. */
#ifndef NMPLATFORM_NMPLACE_H
#define NMPLATFORM_NMPLACE_H

#include <nmplatform/nmfile.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What tells one file from another, and whether it changed. */
typedef struct nm_file_identity {
  uint64_t device;
  uint64_t inode;
  uint64_t size;
  int64_t mtime_ns; /* modification time, nanoseconds since 1970 */
  uint32_t type;    /* NM_FILE_TYPE_*; a symbolic link is NM_FILE_TYPE_OTHER */
  uint32_t mode;    /* permission bits (07777) */
} nm_file_identity_t;

/* The identity of an open file. */
uint32_t nm_file_identify(const nm_file_t *file, nm_file_identity_t *id);

/* The identity of the file named path: with follow 0 the entry itself (a
 * link is not followed), otherwise the file that links lead to. */
uint32_t nm_file_identify_path(const char *path, int follow, nm_file_identity_t *id);

/* Non-zero when both name the same file, unchanged: device, inode, size and
 * modification time agree. */
int nm_file_identity_same(const nm_file_identity_t *a, const nm_file_identity_t *b);

/* Creates path and opens it for writing only if nothing has that name: a
 * link is never followed and a FIFO never opened (17 for either). mode: the
 * permission bits, which the umask narrows further. On failure the object is
 * left closed. */
uint32_t nm_file_create_new(const char *path, uint32_t mode, nm_file_t *file);

/* Gives the file named from the name to, only if nothing has that name (17
 * otherwise; from keeps its name then). One atomic step where the file
 * system offers it (renameat2 with RENAME_NOREPLACE); else a hard link then
 * the removal of from; on a file system with neither, a check for the name
 * then a rename, which only a racing creator of the same name can defeat. */
uint32_t nm_file_place(const char *from, const char *to);

/* Writes the file's data (and the metadata needed to read it back) to
 * stable storage. */
uint32_t nm_file_sync_data(nm_file_t *file);

/* Makes the entries of folder durable: names created, renamed or removed in
 * it survive a power cut once this returned 0. A file system that cannot
 * sync folders counts as success. */
uint32_t nm_dir_sync(const char *folder);

/* Best effort: allocates size bytes for the file without changing its size. */
uint32_t nm_file_reserve(nm_file_t *file, uint64_t size);

/* Sets the file's size, giving back what was reserved beyond it. */
uint32_t nm_file_truncate(nm_file_t *file, uint64_t size);

#ifdef __cplusplus
}
#endif

#endif
