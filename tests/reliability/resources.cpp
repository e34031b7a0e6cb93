// What this process holds of the system: memory, descriptors, mappings.
#include "reliability/resources.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

// What the heap keeps differs from turn to turn, because frames of the two formats differ in size.
constexpr long Heap_Fragments_Kilobytes = 4096;

long Lines_Of(const char* path)
{
    std::ifstream file(path);
    return std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n');
}

}  // namespace

Resources Present_Resources()
{
    (void)malloc_trim(0);
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return {resident * (sysconf(_SC_PAGESIZE) / 1024), std::distance(begin(descriptors), end(descriptors)),
            Lines_Of("/proc/self/maps")};
}

std::string Text(const Resources& resources)
{
    return std::to_string(resources.resident_kilobytes) + " kB, " + std::to_string(resources.descriptors) +
           " descriptors, " + std::to_string(resources.mappings) + " mappings";
}

bool Is_Flat(const Resources& before, const Resources& after)
{
    return after.resident_kilobytes <= before.resident_kilobytes + Heap_Fragments_Kilobytes &&
           after.descriptors <= before.descriptors && after.mappings <= before.mappings;
}
