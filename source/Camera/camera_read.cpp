// Waiting for frames.
#include <cerrno>

#include "Camera/camera.h"

using namespace wqz_camera;

namespace {

// Time between two checks that the camera is still there. An unplug shows within twice that.
constexpr int Look_Ms = 90;

// A faulty driver may report a frame or an error all the time and hand out nothing. After a few empty looks the wait
// pauses between them, so that it does not keep a processor busy. The first looks do not pause: another thread may have
// taken the frame.
constexpr int Free_Looks = 4;
constexpr int Pause_Ms = 5;
constexpr int Most_Failed_Looks = 40;  // a driver that reports an error for that long has failed

bool Has(unsigned causes, Wait_Point::Cause cause)
{
    return (causes & cause) != 0;
}

}  // namespace

int WQZ_Camera::Read(WQZ_Camera_Frame& frame, int32_t timeout_ms, bool newest)
{
    std::shared_ptr<Frame_Stream> from;
    int result = 0;
    {
        const std::lock_guard lock(mutex);
        from = stream;
        result = device ? -EINVAL : -ENODEV;
    }
    if (Take_Cancel(from.get())) {
        result = -ECANCELED;
    } else if (from) {
        result = Wait_And_Take(*from, frame, timeout_ms, newest);
    }
    if (result != 0) {
        last_failure.Set_Fixed(Read_Sentence(-result));
    }
    return result;
}

// The wake-up of a cancel may be that of a stop or a close too, for which the other reads wait.
bool WQZ_Camera::Take_Cancel(const Frame_Stream* from)
{
    const bool cancelled = wait_point.Take_Cancel();
    if (cancelled && (closing || from == nullptr || from->Has_Ended())) {
        wait_point.Wake();
    }
    return cancelled;
}

// A stop and a close wake one waiting Read, which wakes the next.
int WQZ_Camera::Wait_And_Take(Frame_Stream& from, WQZ_Camera_Frame& frame, int32_t timeout_ms, bool newest)
{
    int result = from.Take(frame, newest);
    if (result != -EAGAIN) {
        return result;
    }
    const Deadline deadline(timeout_ms);
    for (int empty_looks = 0;;) {
        const unsigned causes = wait_point.Wait(deadline.Remaining(Look_Ms));
        if (Take_Cancel(&from)) {
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
        const bool failed = Has(causes, Wait_Point::Device_Failed);
        if ((failed || !Has(causes, Wait_Point::Device_Ready)) && from.Is_Gone()) {
            return -ENODEV;
        }
        empty_looks = Has(causes, Wait_Point::Device_Ready) ? empty_looks + 1 : 0;
        if (last || (failed && empty_looks == Most_Failed_Looks)) {
            return failed ? -EIO : -ETIMEDOUT;
        }
        if (empty_looks > Free_Looks) {
            wait_point.Pause(deadline.Remaining(Pause_Ms));
        }
    }
}
