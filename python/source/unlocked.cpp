// Calls without the interpreter's lock.
#include "unlocked.h"

#include <cxxabi.h>
#include <unistd.h>

void Unlocked::Lock_Again() noexcept
{
    try {
        PyEval_RestoreThread(state);
    } catch (abi::__forced_unwind&) {
        for (;;) {
            (void)pause();
        }
    }
}
