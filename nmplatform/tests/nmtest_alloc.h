// Lets a test make the allocations of its own thread fail, to show that a C
// interface turns exhausted memory into an error number instead of throwing.
// Include from exactly one file of a test executable: it replaces the global
// operator new and delete.
#pragma once

#include <new>
#include <stdlib.h>

// Allocations of the current thread fail while this is set.
inline thread_local bool t_failAllocations = false;

void *operator new(std::size_t size)
{
    void *p = t_failAllocations ? nullptr : malloc(size ? size : 1);
    if (!p)
        throw std::bad_alloc();
    return p;
}
void *operator new[](std::size_t size) { return operator new(size); }
void *operator new(std::size_t size, const std::nothrow_t &) noexcept
{
    return t_failAllocations ? nullptr : malloc(size ? size : 1);
}
void *operator new[](std::size_t size, const std::nothrow_t &tag) noexcept { return operator new(size, tag); }
void operator delete(void *p) noexcept { free(p); }
void operator delete(void *p, std::size_t) noexcept { free(p); }
void operator delete(void *p, const std::nothrow_t &) noexcept { free(p); }
void operator delete[](void *p) noexcept { free(p); }
void operator delete[](void *p, std::size_t) noexcept { free(p); }
void operator delete[](void *p, const std::nothrow_t &) noexcept { free(p); }
