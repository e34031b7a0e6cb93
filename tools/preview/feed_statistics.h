// Counts what a camera delivers to the preview, and how old pictures are when they are sent.
#ifndef WQZ_TOOL_PREVIEW_FEED_STATISTICS_H
#define WQZ_TOOL_PREVIEW_FEED_STATISTICS_H

#include <chrono>
#include <cstdint>

#include "Camera/wqz_camera.h"

/// Its owner guards it against use by two threads at once.
class Feed_Statistics {
public:
    using Clock = std::chrono::steady_clock;

    void Count(const WQZ_Camera_Frame& frame, uint64_t skipped_since_start, Clock::time_point now);
    /// Notes that a viewer was sent a picture of this age.
    void Count_Sent(std::chrono::nanoseconds age);
    /// Begins a capture: the skipped frames count from 0 again, and rate and latency have to be measured anew.
    void Restart();

    uint64_t Frames() const { return frames; }
    uint64_t Lost() const { return lost; }
    uint64_t Damaged() const { return damaged; }
    uint64_t Skipped() const { return skipped_before + skipped; }
    /// @return frames per second over the last full second; 0 when none came lately
    double Rate(Clock::time_point now) const;
    /// @return the mean time from the driver's time stamp to the sending, over the last full second; 0 when unknown
    double Latency_Milliseconds() const { return latency; }

private:
    void End_Window(Clock::time_point now);

    uint64_t frames = 0;
    uint64_t lost = 0;
    uint64_t damaged = 0;
    uint64_t skipped = 0;
    uint64_t skipped_before = 0;  // by earlier captures

    Clock::time_point last_frame;
    Clock::time_point window_start;
    uint64_t window_frames = 0;
    uint64_t window_sent = 0;
    std::chrono::nanoseconds window_age{0};
    double rate = 0;
    double latency = 0;
};

#endif  // WQZ_TOOL_PREVIEW_FEED_STATISTICS_H
