/* The library's mutex, with detection of a non-recursive re-acquisition. */
#ifndef NMPLATFORM_NMSYNCHRON_H
#define NMPLATFORM_NMSYNCHRON_H

#include <pthread.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct nm_mutex {
  pthread_mutex_t lock;
  int32_t recursive;  /* 0: non-recursive */
  uint32_t owner;     /* thread number of the owner, 0 when none */
  int32_t use_os_mutex; /* reserved for a named system mutex; always 0 here */
  intptr_t os_handle;
} nm_mutex_t;

#define NM_MUTEX_REACQUIRED 183u
#define NM_MUTEX_NOT_OWNER 1u

/* Called with the owner's thread number when a thread re-acquires a
 * non-recursive mutex it holds, instead of the default (log, back-trace and
 * SIGTRAP); null restores the default. For tests. */
typedef void (*nm_mutex_reacquire_fn)(uint32_t owner);
void nm_mutex_set_reacquire_handler(nm_mutex_reacquire_fn fn);

uint32_t nm_mutex_init(nm_mutex_t *mutex, int recursive);
uint32_t nm_mutex_destroy(nm_mutex_t *mutex);

/* 0, or the system's error number. A thread that already holds a
 * non-recursive mutex has made a programming error: the handler above is
 * called, or else the attempt and a back-trace are logged at level 1 and
 * SIGTRAP is raised (ending the process unless a debugger catches it); 183
 * is returned either way, without taking the lock. */
uint32_t nm_mutex_acquire(nm_mutex_t *mutex);

/* 0; 1 (and still locked) when the caller isn't the owner; the system's
 * error number when unlocking fails (the caller stays the owner). */
uint32_t nm_mutex_release(nm_mutex_t *mutex);

/* The calling thread's number (never 0). */
uint32_t nm_thread_id(void);

#ifdef __cplusplus
}
#endif

#endif
