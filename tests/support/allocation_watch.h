// Watches allocations of the test program that this is linked into (CMake target wqz_allocation_watch).
#ifndef WQZ_TESTS_SUPPORT_ALLOCATION_WATCH_H
#define WQZ_TESTS_SUPPORT_ALLOCATION_WATCH_H

#include <cstddef>

namespace allocation_watch {

/// @return how often this thread has called malloc, calloc or operator new
int Allocations();

/// Refuses arrays of this size and larger with std::bad_alloc, from now on and in all threads.
void Refuse_Arrays_From(std::size_t bytes);

/// Counts how often this thread deletes an array, from now on.
void Watch(const void* block);

/// @return how often the watched array was deleted
int Times_Deleted();

}  // namespace allocation_watch

#endif  // WQZ_TESTS_SUPPORT_ALLOCATION_WATCH_H
