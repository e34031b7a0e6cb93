// A driver and a libudev whose answers come from the input of a fuzzer. The linker's --wrap brings the library's calls
// here. The kernel itself is trusted: addresses, and answers that only the kernel makes, are left alone.
#ifndef WQZ_TESTS_FUZZ_HOSTILE_SYSTEM_H
#define WQZ_TESTS_FUZZ_HOSTILE_SYSTEM_H

#include "fuzz/fuzz_input.h"

/// Thrown out of a request when the library has made thousands for one input.
struct Too_Many_Requests {};

/// Answers from `input` while it lives, and honestly when the input is used up.
class Hostile_System {
public:
    explicit Hostile_System(Fuzz_Input& input);
    ~Hostile_System();
    Hostile_System(const Hostile_System&) = delete;
    Hostile_System& operator=(const Hostile_System&) = delete;
};

#endif  // WQZ_TESTS_FUZZ_HOSTILE_SYSTEM_H
