// Waits that give way to signals, and what is owned by the process that opened it.
#include "waiting.h"

#include <pthread.h>
#include <pybind11/pybind11.h>

#include <algorithm>
#include <atomic>
#include <cmath>

namespace py = pybind11;

namespace {

constexpr int64_t Slice_Ms = 100;               // a person does not notice this delay of a Ctrl-C
constexpr double Longest_Seconds = 1e9;         // thirty years; the clock holds no time much later
std::atomic<unsigned> forks_behind_process{0};  // how often this process was forked from one with this module

}  // namespace

Time_Limit::Time_Limit(std::optional<double> seconds)
{
    if (seconds && !(*seconds >= 0)) {
        throw py::value_error(
            "timeout must be a number of seconds that is not negative, or None to wait without limit");
    }
    endless = !seconds || *seconds > Longest_Seconds;
    if (!endless) {
        end = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*seconds));
    }
}

bool Time_Limit::Has_Passed() const
{
    return !endless && Clock::now() >= end;
}

int32_t Time_Limit::Slice() const
{
    if (endless) {
        return Slice_Ms;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<int32_t>(std::clamp<int64_t>(left, 0, Slice_Ms));
}

void Handle_Signals()
{
    if (PyErr_CheckSignals() != 0) {
        throw py::error_already_set();
    }
}

Home_Process::Home_Process() : forks(forks_behind_process)
{
    static const int registered = pthread_atfork(nullptr, nullptr, [] { ++forks_behind_process; });
    (void)registered;  // fails only without memory
}

bool Home_Process::Is_Here() const
{
    return forks == forks_behind_process;
}

void Home_Process::Check() const
{
    if (!Is_Here()) {
        throw py::value_error("this was opened before the process was forked: use it in the parent, or open it here");
    }
}
