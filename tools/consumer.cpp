// Takes frames from a running capture, saves them, and notices when the camera falls silent.
#include "consumer.h"

#include <unistd.h>

#include <chrono>
#include <iostream>
#include <thread>

#include "camera_node.h"
#include "tool_error.h"

namespace {

using namespace std::chrono_literals;

constexpr auto Poll_Pause = 4ms;      // the library holds seven frames meanwhile, which is 58 ms at 120 per second
constexpr auto Look_Interval = 1s;    // how often to see whether a silent camera is still there
constexpr auto Longest_Silence = 8s;  // some cameras pause for five seconds and go on
constexpr auto Progress_Interval = 250ms;

/// A frame taken from the session. The destructor gives it back.
class Taken_Frame {
public:
    explicit Taken_Frame(void* camera_handle)
        : handle(camera_handle), frame(WQZ_USBCam_GET_FRAME_BUFF(camera_handle, false))
    {
    }
    ~Taken_Frame()
    {
        if (frame != nullptr) {
            WQZ_USBCam_SAVE_FRAME_RES(handle, frame);
        }
    }
    Taken_Frame(const Taken_Frame&) = delete;
    Taken_Frame& operator=(const Taken_Frame&) = delete;

    const Frame_Buffer_Data* Get() const { return frame; }

private:
    void* handle;
    Frame_Buffer_Data* frame;
};

}  // namespace

Consumer::Consumer(void* camera_handle, const std::string& node_path, uint32_t camera_format,
                   const Capture_Limits& capture_limits)
    : handle(camera_handle),
      node(node_path),
      fourcc(camera_format),
      limits(capture_limits),
      next_look(Clock::now() + Look_Interval)
{
}

void Consumer::Run(const Capture_Thread& loop, Picture_Folder& folder, bool (*interrupted)())
{
    while (!Is_Complete() && !interrupted()) {
        const Taken_Frame taken(handle);
        if (taken.Get() != nullptr) {
            Take(*taken.Get(), folder);
        } else {
            Check_Silence(loop);
            std::this_thread::sleep_for(Poll_Pause);
        }
        Show_Progress();
    }
}

bool Consumer::Is_Complete() const
{
    const std::chrono::duration<double> passed = Clock::now() - statistics.First_Arrival();
    const bool time_is_up = limits.seconds && statistics.Frames() > 0 && passed.count() >= *limits.seconds;
    return time_is_up || (limits.files && saved >= *limits.files);
}

void Consumer::Take(const Frame_Buffer_Data& frame, Picture_Folder& folder)
{
    const auto now = Clock::now();
    statistics.Count_Arrival(frame, now);
    next_look = now + Look_Interval;
    if (Is_Damaged(frame, fourcc)) {
        statistics.Count_Damaged();
    }
    if (!Is_Empty(frame)) {
        statistics.Count_Bytes(folder.Save(frame));
        ++saved;
    }
}

void Consumer::Check_Silence(const Capture_Thread& loop)
{
    if (loop.Has_Ended()) {
        throw Tool_Error(node + ": the library could not open the camera");
    }
    const auto now = Clock::now();
    if (now < next_look) {
        return;
    }
    next_look = now + Look_Interval;
    if (Node_Is_Gone(node)) {
        throw Tool_Error(node + ": the camera is gone; it was unplugged or its bus was reset");
    }
    if (now - statistics.Last_Arrival() < Longest_Silence) {
        return;
    }
    if (statistics.Frames() == 0) {
        throw Tool_Error(node +
                         ": no frame came: the camera did not start. Its USB bus may have no room left for this mode: "
                         "try a smaller size, a lower rate, --format mjpeg or another port");
    }
    throw Tool_Error(node + ": the camera has stopped sending frames; plug it in again");
}

void Consumer::Show_Progress()
{
    const auto now = Clock::now();
    if (now >= next_progress && isatty(STDERR_FILENO) == 1) {
        std::cerr << '\r' << statistics.Progress() << "\x1b[K" << std::flush;
        next_progress = now + Progress_Interval;
    }
}
