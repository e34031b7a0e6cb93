// Counts the frames of a capture.
#ifndef WQZ_TOOL_STATISTICS_H
#define WQZ_TOOL_STATISTICS_H

#include <chrono>
#include <cstdint>
#include <string>

#include "USBCam_API/USBCam_API.h"

/// Counts what a capture delivered and what it lost.
class Statistics {
public:
    using Clock = std::chrono::steady_clock;

    /// Counts a frame as it arrives, in the order of delivery.
    void Count_Arrival(const Frame_Buffer_Data& frame, Clock::time_point now);
    void Count_Damaged() { ++damaged; }
    void Count_Bytes(uint64_t bytes) { total_bytes += bytes; }

    uint64_t Frames() const { return frames; }
    /// @return the time of the last frame; before the first frame, the time at which counting began
    Clock::time_point Last_Arrival() const { return last; }
    Clock::time_point First_Arrival() const { return first; }

    /// @return one line such as "120 frames, 29.97 per second, 27.6 MB/s, lost 0 in the driver and 2 unread"
    std::string Progress() const;

    /// @return three lines: the frames captured, lost and damaged
    std::string Summary() const;

private:
    /// @return the time from the first to the last frame, by the driver's time stamps where it sets them
    double Seconds() const;
    double Rate() const;
    double Megabytes_Per_Second() const;
    uint64_t Lost_In_Driver() const;

    uint64_t frames = 0;
    uint64_t damaged = 0;
    uint64_t total_bytes = 0;
    uint64_t sequence_gaps = 0;  // frames that the driver counted and that did not arrive here
    uint64_t index_gaps = 0;     // those of them that the library had read and then replaced unread
    uint32_t last_sequence = 0;
    uint32_t last_index = 0;
    Clock::time_point first = Clock::now();
    Clock::time_point last = first;
    double first_stamp = 0;  // in seconds of the driver's clock
    double last_stamp = 0;
};

#endif  // WQZ_TOOL_STATISTICS_H
