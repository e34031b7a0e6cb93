// Replaces malloc, calloc and realloc by ones that count and then ask libc's.
#include "allocation_count.h"

#include <cstddef>

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* block, size_t size);

namespace {

thread_local int64_t allocations = 0;

}  // namespace

int64_t Allocations()
{
    return allocations;
}

extern "C" void* malloc(size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size)
{
    ++allocations;
    return __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, size_t size)
{
    ++allocations;
    return __libc_realloc(block, size);
}
