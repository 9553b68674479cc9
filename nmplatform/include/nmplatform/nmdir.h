/* Directory listing with a cursor. Entries "." and ".." are not listed. */
#ifndef NMPLATFORM_NMDIR_H
#define NMPLATFORM_NMDIR_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
  NM_DIR_SEARCHING = 5, /* handle open, next entry still to be asked for */
  NM_DIR_HELD = 6,      /* first entry held but not yet returned */
  NM_DIR_EMPTY = 7      /* empty directory: no search handle */
};

#define NM_DIR_NAME_MAX 8192
#define NM_DIR_PATH_MAX 8189

/* The system's raw record of the last search step. */
typedef struct nm_dir_raw {
  char name[256];
  uint32_t attributes; /* the entry's type as the system reports it */
} nm_dir_raw_t;

typedef struct nm_dir {
  void *handle; /* null when closed */
  nm_dir_raw_t raw;
  uint32_t state;
} nm_dir_t;

typedef struct nm_dir_entry {
  char name[NM_DIR_NAME_MAX]; /* UTF-8 */
  const nm_dir_raw_t *raw;    /* valid until the next step */
} nm_dir_entry_t;

/* 0, or an error number; 122 when path exceeds 8,189 characters. An
 * existing empty directory opens in state NM_DIR_EMPTY. */
uint32_t nm_dir_open(const char *path, nm_dir_t *dir);

/* 0 with the next entry; NM_E_END_OF_DIRECTORY (28678) at the end. */
uint32_t nm_dir_read(nm_dir_t *dir, nm_dir_entry_t *entry);

/* 0; 22 when already closed. */
uint32_t nm_dir_close(nm_dir_t *dir);

#ifdef __cplusplus
}
#endif

#endif
