// Plugs the fixture's camera in, makes its requests fail and counts them.
#include "support/camera_fixture.h"

#include <algorithm>

using namespace virtual_camera;

Camera_Fixture::Camera_Fixture()
{
    Reset();
    Camera_Description description = Usb_Camera();
    description.capture_node = Node;
    Add_Camera(description);
    Start_Log();
}

Camera_Fixture::~Camera_Fixture()
{
    Reset();
}

v4l2_dev_sys_data_t Camera_Fixture::Camera_Record(const std::string& node)
{
    v4l2_dev_sys_data_t record{};
    record.valid = 1;
    node.copy(record.Device_Path, sizeof record.Device_Path - 1);
    return record;
}

void Camera_Fixture::Fail_With(uint32_t request, const std::vector<int>& errors)
{
    for (int error : errors) {
        Fail(Node, request, {error});
    }
}

int Camera_Fixture::Requests(uint32_t request)
{
    const std::vector<Log_Entry> log = Log();
    return static_cast<int>(
        std::count_if(log.begin(), log.end(), [=](const Log_Entry& entry) { return entry.request == request; }));
}

std::string Camera_Fixture::Giving_Up(uint32_t request, int error)
{
    return "V4L2_CORE: ioctl (" + std::to_string(static_cast<int32_t>(request)) +
           ") retried 4 times - giving up: " + std::strerror(error) + ")\n";
}

std::vector<uint32_t> Numbers_Handed_Out(const std::string& node)
{
    std::vector<uint32_t> numbers;
    for (const Log_Entry& entry : Log()) {
        if (entry.node != node || entry.result != 0) {
            continue;
        }
        if (entry.request == VIDIOC_STREAMON) {
            numbers.clear();
        } else if (entry.request == VIDIOC_DQBUF) {
            numbers.push_back(entry.As<v4l2_buffer>().sequence);
        }
    }
    return numbers;
}
