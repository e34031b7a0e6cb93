// Bringing a camera back that was unplugged.
#include <cerrno>

#include "Camera/camera.h"
#include "Camera/camera_explain.h"

using namespace wqz_camera;

namespace {

// Time between attempts to open a camera that was plugged in again. The system grants access some time after the node
// is there.
constexpr int Retry_Ms = 100;

}  // namespace

void WQZ_Camera::Recover(int32_t timeout_ms)
{
    const Deadline deadline(timeout_ms);
    Leave_Device();
    std::optional<Failure> last;
    for (;;) {
        if (closing || wait_point.Take_Cancel()) {
            throw Failure(ECANCELED, Read_Sentence(ECANCELED));
        }
        try {
            if (Return_To_Device()) {
                return;
            }
        } catch (const Failure& failure) {
            if (failure.error == ENOTSUP) {
                throw;  // the camera is back without the mode, so waiting does not help
            }
            last.emplace(failure);
        }
        if (deadline.Has_Passed()) {
            throw last ? *last : Failure(ETIMEDOUT, "The camera did not come back in the time given.");
        }
        (void)wait_point.Wait(deadline.Remaining(Retry_Ms));
    }
}

void WQZ_Camera::Leave_Device()
{
    const std::lock_guard changing(order);
    (void)End_Stream();
    const std::lock_guard lock(mutex);
    device.reset();
}

// Sets controls before the stream begins, since some are fixed while it runs.
bool WQZ_Camera::Return_To_Device()
{
    const std::lock_guard changing(order);
    Camera_Record found;
    std::vector<Set_Value> to_restore;
    std::optional<Plan> to_begin;
    {
        const std::lock_guard lock(mutex);
        found = record;
        to_restore = settings;
        to_begin = plan;
    }
    const std::shared_ptr<Device_File> back = Open_Again(found);
    if (!back) {
        return false;
    }
    for (const Set_Value& value : to_restore) {
        Restore_Control(*back, value);
    }
    if (to_begin) {
        Begin_Again(back, *to_begin);
    }
    const std::lock_guard lock(mutex);
    record = std::move(found);  // nothing here may fail: the stream is running
    device = back;
    return true;
}

void WQZ_Camera::Begin_Again(const std::shared_ptr<Device_File>& from, const Plan& former)
{
    WQZ_Camera_Request request = former.request;
    request.fourcc = former.mode.fourcc;
    request.width = former.mode.width;
    request.height = former.mode.height;
    request.interval = former.mode.interval;
    Begin_Stream(from, request, &former.mode);
}
