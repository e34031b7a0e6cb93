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

double Process_Cpu()
{
    return Seconds(CLOCK_PROCESS_CPUTIME_ID);
}

uint64_t Bytes_Copied()
{
    return bytes_copied;
}

Loop_Meter::Loop_Meter(int warm_up_frames, int frames)
    : first_sleep_(warm_up_frames * 2), last_sleep_((warm_up_frames + frames) * 2)
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
    totals_.page_faults += sign * usage.ru_minflt;
    totals_.bytes_copied += sign > 0 ? bytes_copied : -bytes_copied;
}

void Loop_Meter::Sleep_Begins()
{
    fell_asleep_ = Now();
    if (sleeps_ > first_sleep_ && sleeps_ <= last_sleep_) {
        totals_.awake_wall += fell_asleep_.wall - woke_up_.wall;
        totals_.awake_cpu += fell_asleep_.cpu - woke_up_.cpu;
    }
    if (sleeps_ == first_sleep_) {
        Mark(-1);
    } else if (sleeps_ == last_sleep_) {
        Mark(1);
        done_ = true;
    }
    ++sleeps_;
}

void Loop_Meter::Sleep_Ends()
{
    woke_up_ = Now();
    if (sleeps_ > first_sleep_ && sleeps_ <= last_sleep_) {
        totals_.asleep_wall += woke_up_.wall - fell_asleep_.wall;
        totals_.asleep_cpu += woke_up_.cpu - fell_asleep_.cpu;
    }
}

// Comes before libc's.
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

// The linker puts these in front of libc's for every object of the program (--wrap).
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
