#include <nmplatform/nmsynchron.h>

#include <nmplatform/nmlog.h>

#include <atomic>
#include <errno.h>
#include <execinfo.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <unistd.h>

#define NM_LOG_SOURCE "nmplatform/src/nmsynchron"

namespace {

std::atomic<nm_mutex_reacquire_fn> g_reacquireHandler{nullptr};

void logBacktrace()
{
    void *frames[64];
    const int n = backtrace(frames, 64);
    char **symbols = n > 0 ? backtrace_symbols(frames, n) : nullptr;
    if (!symbols) {
        NM_LOG(NM_LOG_ERR, "Backtrace unavailable.");
        return;
    }
    for (int i = 0; i < n; ++i)
        NM_LOG(NM_LOG_ERR, "  %s", symbols[i]);
    free(symbols);
}

// A re-acquisition would deadlock: stop where the debugger can show the
// caller, or, without one, end the process with a clear cause.
void reportReacquisition(uint32_t owner)
{
    if (nm_mutex_reacquire_fn handler = g_reacquireHandler.load()) {
        handler(owner);
        return;
    }
    NM_LOG(NM_LOG_ERR, "nm_mutex_acquire: attempt to reacquire non-recursive mutex.  Aborting.");
    logBacktrace();
    raise(SIGTRAP);
}

} // namespace

extern "C" uint32_t nm_thread_id(void)
{
    static thread_local uint32_t id = static_cast<uint32_t>(syscall(SYS_gettid));
    return id;
}

extern "C" void nm_mutex_set_reacquire_handler(nm_mutex_reacquire_fn fn)
{
    g_reacquireHandler.store(fn);
}

extern "C" uint32_t nm_mutex_init(nm_mutex_t *m, int recursive)
{
    if (!m)
        return EINVAL;
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    // Error-checking, so that an unlock the owner record got wrong fails
    // instead of corrupting the lock.
    pthread_mutexattr_settype(&attr, recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_ERRORCHECK);
    const int rc = pthread_mutex_init(&m->lock, &attr);
    pthread_mutexattr_destroy(&attr);
    m->recursive = recursive ? 1 : 0;
    m->owner = 0;
    m->use_os_mutex = 0;
    m->os_handle = 0;
    return static_cast<uint32_t>(rc);
}

extern "C" uint32_t nm_mutex_destroy(nm_mutex_t *m)
{
    if (!m)
        return EINVAL;
    return static_cast<uint32_t>(pthread_mutex_destroy(&m->lock));
}

extern "C" uint32_t nm_mutex_acquire(nm_mutex_t *m)
{
    if (!m)
        return EINVAL;
    const uint32_t self = nm_thread_id();
    // Only the owner itself can match its own number, so this unlocked read
    // is enough to detect a re-acquisition.
    if (!m->recursive && __atomic_load_n(&m->owner, __ATOMIC_RELAXED) == self) {
        reportReacquisition(self);
        return NM_MUTEX_REACQUIRED;
    }
    const int rc = pthread_mutex_lock(&m->lock);
    if (rc != 0) {
        NM_LOG(NM_LOG_WARN, "nm_mutex_acquire failed, err=%d", rc);
        return static_cast<uint32_t>(rc);
    }
    __atomic_store_n(&m->owner, self, __ATOMIC_RELAXED);
    return 0;
}

extern "C" uint32_t nm_mutex_release(nm_mutex_t *m)
{
    if (!m)
        return EINVAL;
    const uint32_t self = nm_thread_id();
    if (__atomic_load_n(&m->owner, __ATOMIC_RELAXED) != self) {
        NM_LOG(NM_LOG_WARN, "Attempt to release mutex by non-owner thread");
        return NM_MUTEX_NOT_OWNER;
    }
    if (!m->recursive)
        __atomic_store_n(&m->owner, 0u, __ATOMIC_RELAXED);
    const int rc = pthread_mutex_unlock(&m->lock);
    if (rc != 0) {
        __atomic_store_n(&m->owner, self, __ATOMIC_RELAXED);
        // %p would print its own "0x".
        NM_LOG(NM_LOG_WARN, "nm_mutex_release failed. err=%d &m->mutex=0x%llx, m->mutex=0x%llx", rc,
               (unsigned long long)(uintptr_t)&m->lock, (unsigned long long)m->os_handle);
        return static_cast<uint32_t>(rc);
    }
    return 0;
}
