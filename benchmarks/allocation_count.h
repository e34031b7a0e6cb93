// Counts the allocations of the calling thread, in whatever library they are made.
#ifndef WQZ_BENCHMARKS_ALLOCATION_COUNT_H
#define WQZ_BENCHMARKS_ALLOCATION_COUNT_H

#include <cstdint>

/// @return how often the calling thread has allocated. A program that links this has its own malloc, which libraries
/// call too.
int64_t Allocations();

#endif  // WQZ_BENCHMARKS_ALLOCATION_COUNT_H
