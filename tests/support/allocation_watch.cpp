// Replaces the operators new and delete of a test program by counting ones.
#include "support/allocation_watch.h"

#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

thread_local int allocations = 0;
thread_local const void* watched = nullptr;
thread_local int times_freed = 0;
thread_local int errno_on_delete = 0;

void* Allocate(std::size_t bytes)
{
    ++allocations;
    void* block = std::malloc(bytes == 0 ? 1 : bytes);
    return block == nullptr ? throw std::bad_alloc() : block;
}

void Free(void* block)
{
    if (block != nullptr && block == watched) {
        ++times_freed;
    }
    std::free(block);
    if (errno_on_delete != 0) {
        errno = errno_on_delete;
    }
}

}  // namespace

void allocation_watch::Set_Errno_On_Delete(int error)
{
    errno_on_delete = error;
}

int allocation_watch::Allocations()
{
    return allocations;
}

void allocation_watch::Watch(const void* block)
{
    watched = block;
    times_freed = 0;
}

int allocation_watch::Times_Freed()
{
    return times_freed;
}

void* operator new(std::size_t bytes)
{
    return Allocate(bytes);
}

void* operator new[](std::size_t bytes)
{
    return Allocate(bytes);
}

void operator delete(void* block) noexcept
{
    Free(block);
}

void operator delete[](void* block) noexcept
{
    Free(block);
}

void operator delete(void* block, std::size_t /*bytes*/) noexcept
{
    Free(block);
}

void operator delete[](void* block, std::size_t /*bytes*/) noexcept
{
    Free(block);
}
