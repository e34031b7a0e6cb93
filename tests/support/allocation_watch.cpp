// Counts allocations and deletions of a test program, to whose objects the linker's --wrap presents these functions.
#include "support/allocation_watch.h"

#include <cstddef>

// The linker's name of operator new, which has the type of its argument in it.
#if defined(__LP64__)
#define WQZ_NEW(prefix) prefix##__Znwm
#else
#define WQZ_NEW(prefix) prefix##__Znwj
#endif

extern "C" {
void* __real_malloc(std::size_t bytes);
void* __wrap_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __wrap_calloc(std::size_t count, std::size_t bytes);
void* WQZ_NEW(__real)(std::size_t bytes);
void* WQZ_NEW(__wrap)(std::size_t bytes);
void __real__ZdaPv(void* block);  // operator delete[]
void __wrap__ZdaPv(void* block);
}

namespace {

thread_local int allocations = 0;
thread_local const void* watched = nullptr;
thread_local int times_deleted = 0;

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

void* WQZ_NEW(__wrap)(std::size_t bytes)
{
    ++allocations;
    return WQZ_NEW(__real)(bytes);
}

void __wrap__ZdaPv(void* block)
{
    times_deleted += block != nullptr && block == watched ? 1 : 0;
    __real__ZdaPv(block);
}

int allocation_watch::Allocations()
{
    return allocations;
}

void allocation_watch::Watch(const void* block)
{
    watched = block;
    times_deleted = 0;
}

int allocation_watch::Times_Deleted()
{
    return times_deleted;
}
