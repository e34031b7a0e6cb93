// Counts the frames of a capture.
#ifndef WQZ_TOOL_STATISTICS_H
#define WQZ_TOOL_STATISTICS_H

#include <chrono>
#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "Camera/wqz_camera.h"

/// Counts what a capture delivered and what it lost.
class Statistics {
public:
    /// Counts a frame in the order of delivery.
    /// @param missed  whether the camera was away before this frame
    void Count(const WQZ_Camera_Frame& frame, bool missed);
    void Count_Damaged() { ++damaged; }
    void Count_Bytes(uint64_t bytes) { total_bytes += bytes; }

    uint64_t Frames() const { return frames; }
    uint64_t Damaged() const { return damaged; }
    /// @return the time of the first frame by the clock that is std::chrono::steady_clock
    std::chrono::nanoseconds First_Time() const { return std::chrono::nanoseconds(first_ns); }
    /// @return how long no frame came while the camera was away the last time
    double Last_Gap() const { return last_gap; }

    /// @return one line such as "120 frames, 29.97 per second, 27.6 MB/s, lost 0"
    std::string Progress() const;

    /// @param skipped  frames that were skipped on purpose
    /// @return lines: the frames captured, lost and damaged
    std::string Summary(uint64_t skipped) const;

    void Add_To(nlohmann::ordered_json& json, uint64_t skipped) const;

private:
    double Seconds() const { return static_cast<double>(last_ns - first_ns) / 1e9; }
    double Rate() const;
    double Megabytes_Per_Second() const;

    uint64_t frames = 0;
    uint64_t lost = 0;
    uint64_t damaged = 0;
    uint64_t total_bytes = 0;
    uint64_t gaps = 0;
    double last_gap = 0;
    double seconds_missed = 0;
    int64_t first_ns = 0;
    int64_t last_ns = 0;
};

#endif  // WQZ_TOOL_STATISTICS_H
