#include <nmplatform/nmdir.h>

#include <nmplatform/nmlog.h>
#include <nmplatform/nmstatus.h>
#include <nmplatform/nmstring.h>

#include <dirent.h>
#include <errno.h>
#include <string.h>

#define NM_LOG_SOURCE "nmplatform/src/nmdir"

namespace {

bool isDotEntry(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Next entry other than "." and ".." into dir->raw: 0, 28678 at the end, or
// readdir's error.
uint32_t nextEntry(nm_dir_t *dir)
{
    DIR *d = static_cast<DIR *>(dir->handle);
    for (;;) {
        errno = 0;
        const dirent *e = readdir(d);
        if (!e)
            return errno ? static_cast<uint32_t>(errno) : static_cast<uint32_t>(NM_E_END_OF_DIRECTORY);
        if (isDotEntry(e->d_name))
            continue;
        nm_strlcat(dir->raw.name, e->d_name, sizeof dir->raw.name, nullptr);
        dir->raw.attributes = e->d_type;
        return 0;
    }
}

} // namespace

extern "C" uint32_t nm_dir_open(const char *path, nm_dir_t *dir)
{
    if (!dir)
        return EINVAL;
    memset(dir, 0, sizeof *dir);
    dir->state = NM_DIR_SEARCHING;
    if (!path || strchr(path, '\n'))
        return EINVAL;
    if (strlen(path) > NM_DIR_PATH_MAX)
        return 122; // name too long for the search pattern
    DIR *d = opendir(path);
    if (!d)
        return static_cast<uint32_t>(errno);
    dir->handle = d;
    const uint32_t rc = nextEntry(dir);
    if (rc == 0) {
        dir->state = NM_DIR_HELD;
        return 0;
    }
    closedir(d);
    dir->handle = nullptr;
    if (rc == NM_E_END_OF_DIRECTORY) {
        dir->state = NM_DIR_EMPTY;
        return 0;
    }
    return rc;
}

extern "C" uint32_t nm_dir_read(nm_dir_t *dir, nm_dir_entry_t *entry)
{
    if (!dir || !entry)
        return EINVAL;
    entry->name[0] = '\0';
    entry->raw = &dir->raw;
    if (dir->state == NM_DIR_EMPTY)
        return NM_E_END_OF_DIRECTORY;
    if (!dir->handle)
        return EINVAL;
    if (dir->state == NM_DIR_HELD) {
        dir->state = NM_DIR_SEARCHING;
    } else if (const uint32_t rc = nextEntry(dir)) {
        return rc;
    }
    nm_strlcat(entry->name, dir->raw.name, sizeof entry->name, nullptr);
    return 0;
}

extern "C" uint32_t nm_dir_close(nm_dir_t *dir)
{
    if (!dir)
        return EINVAL;
    if (dir->state == NM_DIR_EMPTY) {
        dir->state = NM_DIR_SEARCHING; // a second close reports the closed cursor
        return 0;
    }
    if (!dir->handle)
        return EINVAL;
    closedir(static_cast<DIR *>(dir->handle));
    dir->handle = nullptr;
    return 0;
}
