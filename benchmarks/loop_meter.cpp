// Replaces usleep, memcpy and memmove to measure the capture loop of a session.
#include "loop_meter.h"

#include <sys/resource.h>
#include <unistd.h>
#include <cerrno>
#include <cstddef>
#include <ctime>

namespace {

thread_local Loop_Meter* meter = nullptr;
thread_local uint64_t bytes_copied = 0;

double Seconds(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace

uint64_t Bytes_Copied()
{
    return bytes_copied;
}

Loop_Meter::Loop_Meter(int warm_up_frames, int frames)
    : first_sleep(warm_up_frames * 2), last_sleep((warm_up_frames + frames) * 2)
{
}

void Loop_Meter::Attach()
{
    meter = this;
}

Loop_Meter::Moment Loop_Meter::Now()
{
    return {Seconds(CLOCK_MONOTONIC), Seconds(CLOCK_THREAD_CPUTIME_ID)};
}

void Loop_Meter::Mark(int sign)
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    totals.page_faults += sign * usage.ru_minflt;
    totals.bytes_copied += sign > 0 ? bytes_copied : -bytes_copied;
}

void Loop_Meter::Sleep_Begins()
{
    fell_asleep = Now();
    if (sleeps > first_sleep && sleeps <= last_sleep) {
        totals.awake_wall += fell_asleep.wall - woke_up.wall;
        totals.awake_cpu += fell_asleep.cpu - woke_up.cpu;
    }
    if (sleeps == first_sleep) {
        Mark(-1);
    } else if (sleeps == last_sleep) {
        Mark(1);
        done = true;
    }
    ++sleeps;
}

void Loop_Meter::Sleep_Ends()
{
    woke_up = Now();
    if (sleeps > first_sleep && sleeps <= last_sleep) {
        totals.asleep_wall += woke_up.wall - fell_asleep.wall;
        totals.asleep_cpu += woke_up.cpu - fell_asleep.cpu;
    }
}

// The program's own usleep takes the place of libc's.
extern "C" int usleep(useconds_t microseconds)
{
    const timespec time{static_cast<time_t>(microseconds / 1'000'000),
                        static_cast<long>(microseconds % 1'000'000) * 1000};
    if (meter == nullptr) {
        return nanosleep(&time, nullptr);
    }
    meter->Sleep_Begins();
    const int result = nanosleep(&time, nullptr);
    meter->Sleep_Ends();
    return result;
}

// With --wrap the linker sends every call of memcpy and memmove in the program's objects here.
extern "C" void* __real_memcpy(void* target, const void* source, size_t size);
extern "C" void* __real_memmove(void* target, const void* source, size_t size);

extern "C" void* __wrap_memcpy(void* target, const void* source, size_t size)
{
    bytes_copied += size;
    return __real_memcpy(target, source, size);
}

extern "C" void* __wrap_memmove(void* target, const void* source, size_t size)
{
    bytes_copied += size;
    return __real_memmove(target, source, size);
}
