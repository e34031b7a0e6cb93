// Implements the scripting interface: finds the camera, and adds to its script or directs its frames.
#include "calls/registry.h"
#include "script/request_log.h"

namespace virtual_camera {
namespace {

std::shared_ptr<Camera> Needed(const std::string& node)
{
    auto camera = Registry::Instance().Camera_At(node);
    if (!camera) {
        throw std::invalid_argument("no virtual camera has the node " + node);
    }
    return camera;
}

}  // namespace

void Add_Camera(Camera_Description description)
{
    Registry::Instance().Add(std::move(description));
}

void Unplug(const std::string& node)
{
    Needed(node)->Unplug();
}

void Replug(const std::string& node)
{
    (void)Needed(node);
    Registry::Instance().Replug(node);
}

void Reset()
{
    Registry::Instance().Clear();
    Stop_Log();
}

void Fail(const std::string& node, uint32_t request, Fault fault)
{
    Needed(node)->Scripted().faults.Add(request, fault, fault.times, fault.skip);
}

void Alter(const std::string& node, uint32_t request, std::function<void(void*)> change, int times, int skip)
{
    Needed(node)->Scripted().alterations.Add(request, std::move(change), times, skip);
}

void Script_Select(const std::string& node, int result, int error, int times, int skip)
{
    Needed(node)->Scripted().selects.Add(Call_Select, {result, error}, times, skip);
}

void Hold_Frames(const std::string& node)
{
    Needed(node)->Direct([](Frame_Schedule& schedule) { schedule.Hold(); });
}

void Deliver_Frames(const std::string& node, uint32_t count)
{
    Needed(node)->Direct([count](Frame_Schedule& schedule) { schedule.Deliver(count); });
}

void Resume_Frames(const std::string& node)
{
    Needed(node)->Direct([](Frame_Schedule& schedule) { schedule.Resume(Now()); });
}

void Push_Frame(const std::string& node, std::vector<uint8_t> bytes)
{
    Needed(node)->Scripted().frames.Add(VIDIOC_DQBUF, std::move(bytes));
}

void Set_Descriptor_Minimum(const std::string& node, int minimum)
{
    Needed(node)->Scripted().descriptor_minimum = minimum;
}

std::vector<uint8_t> Frame_Bytes(const std::string& node, uint32_t sequence)
{
    return Needed(node)->Frame_Bytes(sequence);
}

}  // namespace virtual_camera
