// Captures a few frames and measures how regularly they come.
#include "trial_capture.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "frame_output.h"
#include "modes.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint64_t Most_Frames = 30;
constexpr auto First_Frame_Time = 5s;   // cameras take up to three seconds to start
constexpr auto Trial_Time = 2s;         // from the first frame on; ten frames at the usual lowest rate of 5
constexpr auto Longest_Trial = 10s;     // where frames come more rarely
constexpr uint32_t Skipped_Frames = 2;  // the first frames of many cameras are damaged or late

/// Adds up the times between frames.
class Intervals {
public:
    void Add(double seconds)
    {
        ++count;
        sum += seconds;
        squares += seconds * seconds;
    }
    double Rate() const { return sum > 0 ? count / sum : 0; }
    double Deviation() const
    {
        const double mean = count > 0 ? sum / count : 0;
        return count > 0 ? std::sqrt(std::max(0.0, squares / count - mean * mean)) : 0;
    }

private:
    double count = 0;
    double sum = 0;
    double squares = 0;
};

/// @return how long some frames take, but no longer than a trial may
Clock::duration Time_Of(double frames, const wqz::Mode& mode)
{
    const std::chrono::duration<double> time(mode.Rate() > 0 ? frames / mode.Rate() : 0);
    return std::chrono::duration_cast<Clock::duration>(std::min<std::chrono::duration<double>>(time, Longest_Trial));
}

/// @return how long to wait for frames after the first, enough for a few at any rate
Clock::duration Time_For(const wqz::Mode& mode)
{
    constexpr double Least_Frames = 4;
    return std::max<Clock::duration>(Time_Of(Least_Frames, mode), Trial_Time);
}

void Read_Frames(wqz::Camera& camera, Trial& trial, Intervals& intervals)
{
    int64_t last_ns = 0;
    Clock::time_point end = Clock::now() + First_Frame_Time + Time_Of(Skipped_Frames + 1, trial.mode);
    while (trial.frames < Most_Frames && Clock::now() < end) {
        const wqz::Frame frame = camera.Read(end - Clock::now());
        if (!frame) {
            continue;
        }
        const WQZ_Camera_Frame& record = frame.Record();
        trial.damaged += Is_Damaged(record) ? 1 : 0;
        if (trial.frames == 0) {
            end = Clock::now() + Time_For(trial.mode);
        } else {
            trial.lost += record.lost_before;
            intervals.Add(static_cast<double>(record.time_ns - last_ns) / 1e9);
        }
        last_ns = record.time_ns;
        ++trial.frames;
    }
}

/// @return the key of the control that lowers the rate in dim light, if it is on
std::string Exposure_Control(const wqz::Camera& camera)
{
    constexpr std::array Names = {"exposure_dynamic_framerate",
                                  "exposure_auto_priority"};  // now, and before Linux 5.15
    for (const char* name : Names) {
        try {
            if (camera.Get(name).number != 0) {
                return name;
            }
        } catch (const wqz::Camera_Error&) {
            continue;  // the camera has no such control
        }
    }
    return "";
}

}  // namespace

Trial Try_Capture(wqz::Camera& camera, const wqz::Request& request)
{
    wqz::Request trial_request = request;
    trial_request.skip = Skipped_Frames;
    Trial trial;
    trial.node = camera.Info().node;
    trial.mode = camera.Start(trial_request);
    Intervals intervals;
    Read_Frames(camera, trial, intervals);
    (void)camera.Stop();  // no frame is held
    trial.exposure_control = Exposure_Control(camera);
    trial.rate = intervals.Rate();
    trial.jitter_ms = intervals.Deviation() * 1e3;
    return trial;
}

std::string Trial_Text(const Trial& trial)
{
    std::array<char, 128> text{};
    (void)std::snprintf(text.data(), text.size(), ": %.1f came, jitter %.1f ms, %llu lost and %llu damaged of %llu",
                        trial.rate, trial.jitter_ms, static_cast<unsigned long long>(trial.lost),
                        static_cast<unsigned long long>(trial.damaged), static_cast<unsigned long long>(trial.frames));
    return Mode_Text(trial.mode) + text.data();
}
