// The calls on an open camera that do not wait. Reading and recovery have files of their own.
#include "Camera/camera.h"

#include <algorithm>
#include <cerrno>
#include <thread>

#include "Camera/camera_modes.h"

using namespace wqz_camera;

namespace {

bool Same_Mode(const WQZ_Camera_Mode& one, const WQZ_Camera_Mode& other)
{
    return one.fourcc == other.fourcc && one.width == other.width && one.height == other.height &&
           Same_Interval(one.interval, other.interval);
}

void Add(const WQZ_Camera_Counts& counts, WQZ_Camera_Counts& sum)
{
    sum.delivered += counts.delivered;
    sum.lost += counts.lost;
    sum.damaged += counts.damaged;
    sum.skipped += counts.skipped;
}

}  // namespace

WQZ_Camera::WQZ_Camera(const std::string& name)
{
    Opened_Camera opened = Open_By_Name(name);
    record = opened.record;
    device = std::move(opened.device);
}

std::shared_ptr<Device_File> WQZ_Camera::Present_Device()
{
    const std::lock_guard lock(mutex);
    if (!device) {
        throw Failure(ENODEV, Read_Sentence(ENODEV));
    }
    return device;
}

WQZ_Camera_Info WQZ_Camera::Describe()
{
    const std::lock_guard lock(mutex);
    return record.info;
}

std::vector<WQZ_Camera_Offer> WQZ_Camera::Modes()
{
    return List_Offers(*Present_Device());
}

std::vector<WQZ_Camera_Control> WQZ_Camera::Controls()
{
    return List_Controls(*Present_Device());
}

std::vector<WQZ_Camera_Menu_Item> WQZ_Camera::Menu(uint32_t id)
{
    return List_Menu(*Present_Device(), id);
}

void WQZ_Camera::Get_Control(WQZ_Camera_Setting& setting)
{
    wqz_camera::Get_Control(*Present_Device(), setting);
}

void WQZ_Camera::Set_Control(WQZ_Camera_Setting& setting)
{
    Remember(wqz_camera::Set_Control(*Present_Device(), setting));
}

void WQZ_Camera::Remember(const Set_Value& value)
{
    const std::lock_guard lock(mutex);
    const auto same = [&](const Set_Value& earlier) { return earlier.id == value.id; };
    settings.erase(std::remove_if(settings.begin(), settings.end(), same), settings.end());
    settings.push_back(value);
}

WQZ_Camera_Mode WQZ_Camera::Start(const WQZ_Camera_Request& request)
{
    const std::lock_guard changing(order);
    (void)End_Stream();
    const std::shared_ptr<Device_File> present = Present_Device();
    {
        const std::lock_guard lock(mutex);
        plan.reset();
        former_counts = WQZ_Camera_Counts{};
    }
    Begin_Stream(present, request);
    const std::lock_guard lock(mutex);
    plan = Plan{request, stream->Mode()};
    return plan->mode;
}

void WQZ_Camera::Begin_Stream(const std::shared_ptr<Device_File>& from, const WQZ_Camera_Request& request,
                              const WQZ_Camera_Mode* expected)
{
    const auto beginning = std::make_shared<Frame_Stream>(from);
    try {
        beginning->Begin(request);
    } catch (const Failure& failure) {
        const std::shared_ptr<Frame_Stream> former = former_stream.lock();
        if (failure.error == EBUSY && former && former->Keeps_Camera()) {
            throw Failure(EBUSY,
                          "Frames of the last capture are still held, and this camera's driver stays busy until "
                          "they are released.");
        }
        throw;
    }
    if (expected != nullptr && !Same_Mode(beginning->Mode(), *expected)) {
        throw Failure(ENOTSUP, "The camera came back without " + Mode_Text(*expected) + ".");
    }
    wait_point.Watch(from->Descriptor());
    const std::lock_guard lock(mutex);
    stream = beginning;
}

int WQZ_Camera::End_Stream()
{
    std::shared_ptr<Frame_Stream> ending;
    {
        const std::lock_guard lock(mutex);
        ending = stream;
    }
    if (!ending) {
        return 0;
    }
    wait_point.Forget(device->Descriptor());
    const int result = ending->End();
    {
        const std::lock_guard lock(mutex);
        stream.reset();
        former_stream = ending;
        Add(ending->Counts(), former_counts);
    }
    wait_point.Wake();
    return result;
}

WQZ_Camera_Counts WQZ_Camera::Counters()
{
    const std::lock_guard lock(mutex);
    WQZ_Camera_Counts counts = former_counts;
    if (stream) {
        Add(stream->Counts(), counts);
    }
    return counts;
}

void WQZ_Camera::Cancel() noexcept
{
    ++running_cancels;
    wait_point.Cancel();
    --running_cancels;  // the last touch: Close may free the camera from here on
}

int WQZ_Camera::Stop()
{
    const std::lock_guard changing(order);
    {
        const std::lock_guard lock(mutex);
        plan.reset();
    }
    return End_Stream();
}

int WQZ_Camera::Close()
{
    closing = true;
    wait_point.Wake();
    {
        std::unique_lock lock(mutex);
        idle.wait(lock, [this] { return running_calls == 0; });
    }
    while (running_cancels != 0) {
        std::this_thread::yield();
    }
    int result = End_Stream();
    const std::shared_ptr<Frame_Stream> former = former_stream.lock();
    if (former && former->Keeps_Camera()) {
        result = -EBUSY;
    }
    return result;
}
