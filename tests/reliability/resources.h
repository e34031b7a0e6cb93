// What this process holds of the system: memory, descriptors, mappings.
#ifndef WQZ_TESTS_RELIABILITY_RESOURCES_H
#define WQZ_TESTS_RELIABILITY_RESOURCES_H

#include <string>

struct Resources {
    long resident_kilobytes;
    long descriptors;
    long mappings;
};

/// Reads them from /proc/self, after unused heap memory was given back to the system.
Resources Present_Resources();

/// @return "3120 kB, 7 descriptors, 61 mappings"
std::string Text(const Resources& resources);

/// @return whether nothing grew but memory by a little, which the heap's fragments account for
bool Is_Flat(const Resources& before, const Resources& after);

#endif  // WQZ_TESTS_RELIABILITY_RESOURCES_H
