// Makes chosen system calls, requests, libudev calls and allocations of the library fail. The linker's --wrap brings
// the library's calls here; calls of the test program, of the virtual camera and of other libraries pass through.
#ifndef WQZ_TESTS_RELIABILITY_FAULT_INJECTION_H
#define WQZ_TESTS_RELIABILITY_FAULT_INJECTION_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace faults {

/// A request by its VIDIOC_ code, or a call by its place in the table of names.
using Site = uint32_t;

/// Every allocation, whichever function makes it.
constexpr Site Allocation = 1;

/// @return "VIDIOC_QBUF", "mmap", "allocation", ...
std::string Name_Of(Site site);

/// One failing call.
struct Fault {
    Site site = 0;
    int occurrence = 0;  ///< from 1, counted over the calls of this site
    int error = 0;       ///< errno; an allocation fails with ENOMEM
};

std::string Text_Of(const Fault& fault);

/// Forgets all counts and plans these failures.
void Plan(const std::vector<Fault>& failures);

/// Lets no further call fail, and keeps the counts.
void End();

/// @return how often the library made each call since Plan
std::map<Site, int> Counts();

/// This thread's calls count and fail while one of these lives: it surrounds each use of the library.
class In_Library {
public:
    In_Library();
    ~In_Library();
    In_Library(const In_Library&) = delete;
    In_Library& operator=(const In_Library&) = delete;
};

}  // namespace faults

#endif  // WQZ_TESTS_RELIABILITY_FAULT_INJECTION_H
