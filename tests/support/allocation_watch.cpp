// Replaces malloc, calloc, new and delete of a test program by counting ones; the linker's --wrap leads here.
#include "support/allocation_watch.h"

#include <cstddef>
#include <cstdlib>
#include <new>

extern "C" {
void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __wrap_malloc(std::size_t bytes);
void* __wrap_calloc(std::size_t count, std::size_t bytes);
}

namespace {

thread_local int allocations = 0;
thread_local const void* watched = nullptr;
thread_local int times_freed = 0;

void* Allocate(std::size_t bytes)
{
    void* block = __wrap_malloc(bytes == 0 ? 1 : bytes);
    return block == nullptr ? throw std::bad_alloc() : block;
}

void Free(void* block)
{
    if (block != nullptr && block == watched) {
        ++times_freed;
    }
    std::free(block);
}

}  // namespace

void* __wrap_malloc(std::size_t bytes)
{
    ++allocations;
    return __real_malloc(bytes);
}

void* __wrap_calloc(std::size_t count, std::size_t bytes)
{
    ++allocations;
    return __real_calloc(count, bytes);
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
