// Rates and ages over windows of a second.
#include "feed_statistics.h"

#include "../frame_output.h"

namespace {

using namespace std::chrono_literals;

constexpr auto Window = 1s;
constexpr auto Silence = 3s;  // longer than the frame interval of the slowest common mode

}  // namespace

void Feed_Statistics::Count(const WQZ_Camera_Frame& frame, uint64_t skipped_since_start, Clock::time_point now)
{
    ++frames;
    lost += frame.lost_before;
    damaged += Is_Damaged(frame) ? 1 : 0;
    skipped = skipped_since_start;
    last_frame = now;
    if (window_start == Clock::time_point()) {
        window_start = now;
        return;
    }
    ++window_frames;
    if (now - window_start >= Window) {
        End_Window(now);
    }
}

void Feed_Statistics::End_Window(Clock::time_point now)
{
    rate = static_cast<double>(window_frames) / std::chrono::duration<double>(now - window_start).count();
    latency = window_sent == 0
                  ? 0
                  : std::chrono::duration<double, std::milli>(window_age).count() / static_cast<double>(window_sent);
    window_start = now;
    window_frames = 0;
    window_sent = 0;
    window_age = 0ns;
}

void Feed_Statistics::Count_Sent(std::chrono::nanoseconds age)
{
    ++window_sent;
    window_age += age;
}

void Feed_Statistics::Restart()
{
    skipped_before += skipped;
    skipped = 0;
    window_start = {};
    window_frames = 0;
    window_sent = 0;
    window_age = 0ns;
    rate = 0;
    latency = 0;
}

double Feed_Statistics::Rate(Clock::time_point now) const
{
    return now - last_frame > Silence ? 0 : rate;
}
