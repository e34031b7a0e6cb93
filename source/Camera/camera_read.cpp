// Waiting for frames.
#include <cerrno>

#include "Camera/camera.h"

using namespace wqz_camera;

namespace {

// Between looks at whether the camera is still there: an unplug shows within twice that.
constexpr int Look_Ms = 90;

}  // namespace

int WQZ_Camera::Read(WQZ_Camera_Frame& frame, int32_t timeout_ms, bool newest)
{
    std::shared_ptr<Frame_Stream> from;
    int result = 0;
    {
        const std::lock_guard lock(mutex);
        from = stream;
        ++running_calls;
        result = device ? -EINVAL : -ENODEV;
    }
    if (from) {
        result = wait_point.Take_Cancel() ? -ECANCELED : Wait_And_Take(*from, frame, timeout_ms, newest);
        from.reset();
    }
    if (result != 0) {
        last_failure.Set_Fixed(Read_Sentence(-result));
    }
    const std::lock_guard lock(mutex);
    if (--running_calls == 0 && closing) {
        idle.notify_all();
    }
    return result;
}

// A stop and a close wake one waiting Read, which wakes the next.
int WQZ_Camera::Wait_And_Take(Frame_Stream& from, WQZ_Camera_Frame& frame, int32_t timeout_ms, bool newest)
{
    int result = from.Take(frame, newest);
    if (result != -EAGAIN) {
        return result;
    }
    const Deadline deadline(timeout_ms);
    for (;;) {
        const unsigned causes = wait_point.Wait(deadline.Remaining(Look_Ms));
        if (wait_point.Take_Cancel()) {
            return -ECANCELED;
        }
        const bool last = deadline.Has_Passed();
        result = closing ? -ECANCELED : from.Take(frame, newest);
        if (result == -ECANCELED) {
            wait_point.Wake();
        }
        if (result != -EAGAIN) {
            return result;
        }
        if ((causes & Wait_Point::Device_Ready) == 0 && from.Is_Gone()) {
            return -ENODEV;
        }
        if (last) {
            return -ETIMEDOUT;
        }
    }
}
