// Counts allocations and deletions of a test program, to whose objects the linker's --wrap presents these functions.
#include "support/allocation_watch.h"

#include <atomic>
#include <cstdint>
#include <new>

// The linker's names of operator new and operator new[], which have the type of their argument in them.
#if defined(__LP64__)
#define WQZ_NEW(prefix) prefix##__Znwm
#define WQZ_NEW_ARRAY(prefix) prefix##__Znam
#else
#define WQZ_NEW(prefix) prefix##__Znwj
#define WQZ_NEW_ARRAY(prefix) prefix##__Znaj
#endif

extern "C" {
void* __real_malloc(std::size_t bytes);
void* __wrap_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __wrap_calloc(std::size_t count, std::size_t bytes);
void* WQZ_NEW(__real)(std::size_t bytes);
void* WQZ_NEW(__wrap)(std::size_t bytes);
void* WQZ_NEW_ARRAY(__real)(std::size_t bytes);
void* WQZ_NEW_ARRAY(__wrap)(std::size_t bytes);
void __real__ZdaPv(void* block);  // operator delete[]
void __wrap__ZdaPv(void* block);
}

namespace {

thread_local int allocations = 0;
thread_local const void* watched = nullptr;
thread_local int times_deleted = 0;
std::atomic<std::size_t> refused_from{SIZE_MAX};

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

void* WQZ_NEW_ARRAY(__wrap)(std::size_t bytes)
{
    if (bytes >= refused_from) {
        throw std::bad_alloc();
    }
    ++allocations;
    return WQZ_NEW_ARRAY(__real)(bytes);
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

void allocation_watch::Refuse_Arrays_From(std::size_t bytes)
{
    refused_from = bytes;
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
