#include <nmplatform/nmwipe.h>

#include <string.h>

extern "C" void nm_wipe(void *buffer, size_t size)
{
    if (buffer)
        explicit_bzero(buffer, size);
}

// Not inlined, so its array lies below the caller's frame, where the callees
// of the caller lived; explicit_bzero cannot be left out as a dead store.
extern "C" __attribute__((noinline)) void nm_wipe_stack(void)
{
    unsigned char area[NM_WIPE_STACK_BYTES];
    explicit_bzero(area, sizeof area);
    __asm__ __volatile__("" : : "r"(area) : "memory");
}
