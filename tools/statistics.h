#ifndef WQZ_TOOL_STATISTICS_H
#define WQZ_TOOL_STATISTICS_H

#include <chrono>
#include <cstdint>
#include <string>

#include "USBCam_API/USBCam_API.h"

/// What a capture delivered and what it lost on the way.
class Statistics {
public:
    using Clock = std::chrono::steady_clock;

    /// Counts a frame as it arrives, in the order of delivery.
    void Count_Arrival(const Frame_Buffer_Data& frame, Clock::time_point now);
    void Count_Damaged() { ++damaged; }
    void Count_Bytes(uint64_t bytes) { total_bytes += bytes; }

    uint64_t Frames() const { return frames; }
    /// @return when the last frame came; before the first one, when counting began
    Clock::time_point Last_Arrival() const { return last; }
    Clock::time_point First_Arrival() const { return first; }

    /// @return "120 frames, 29.97 per second, 27.6 MB/s, lost 0 in the driver and 2 unread"
    std::string Progress() const;

    /// @return one line each for what was captured, lost and damaged
    std::string Summary() const;

private:
    /// From the first to the last frame, by the driver's clock when it has one.
    double Seconds() const;
    double Rate() const;
    double Megabytes_Per_Second() const;
    uint64_t Lost_In_Driver() const;

    uint64_t frames = 0;
    uint64_t damaged = 0;
    uint64_t total_bytes = 0;
    uint64_t sequence_gaps = 0;  // frames that the driver counted and that did not come
    uint64_t index_gaps = 0;     // frames that the library read and reused unread; they are sequence gaps, too
    uint32_t last_sequence = 0;
    uint32_t last_index = 0;
    Clock::time_point first = Clock::now();
    Clock::time_point last = first;
    double first_stamp = 0;  // seconds of the driver's clock
    double last_stamp = 0;
};

#endif  // WQZ_TOOL_STATISTICS_H
