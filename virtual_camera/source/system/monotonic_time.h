// The driver's clock.
#ifndef WQZ_VIRTUAL_CAMERA_MONOTONIC_TIME_H
#define WQZ_VIRTUAL_CAMERA_MONOTONIC_TIME_H

#include <cstdint>
#include <ctime>

namespace virtual_camera {

using Time = int64_t;  // nanoseconds of CLOCK_MONOTONIC

constexpr Time Second = 1'000'000'000;
constexpr Time Never = INT64_MAX;
constexpr Time At_Once = 0;

inline Time Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * Second + now.tv_nsec;
}

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_MONOTONIC_TIME_H
