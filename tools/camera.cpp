// Selects a camera by node, USB ids or position, and manages a library session on it.
#include "camera.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "camera_node.h"
#include "text.h"
#include "tool_error.h"
#include "USBCam/USBCam.h"

namespace {

using Records = std::span<const v4l2_dev_sys_data_t>;

std::optional<uint32_t> Whole_Number(const std::string& text, int base)
{
    uint32_t value = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc{} || rest != end) {
        return std::nullopt;
    }
    return value;
}

std::optional<std::pair<uint32_t, uint32_t>> Vid_And_Pid(const std::string& text)
{
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const auto vid = Whole_Number(text.substr(0, colon), 16);
    const auto pid = Whole_Number(text.substr(colon + 1), 16);
    if (!vid || !pid) {
        return std::nullopt;
    }
    return std::pair{*vid, *pid};
}

std::string Choices(Records records)
{
    std::string text;
    for (const auto& record : records) {
        text += "\n  " + std::string(record.device) + "  " + Printable(record.name);
    }
    return text;
}

v4l2_dev_sys_data_t With_Path(v4l2_dev_sys_data_t record, const std::string& path)
{
    if (path.size() >= sizeof record.Device_Path) {
        throw Tool_Error(path + ": the path is too long");
    }
    // A session opens Device_Path. Discovery leaves it empty for cameras that are not on USB.
    std::memset(record.Device_Path, 0, sizeof record.Device_Path);
    std::memcpy(record.Device_Path, path.data(), path.size());
    return record;
}

v4l2_dev_sys_data_t The_Only_One(Records records, const std::string& what)
{
    if (records.empty()) {
        const std::string remark = Remark_On_Forbidden_Nodes();
        throw Tool_Error("no camera " + what + (remark.empty() ? "; is it plugged in?" : "; " + remark));
    }
    if (records.size() > 1) {
        throw Tool_Error("more than one camera " + what + "; name one by its node:" + Choices(records));
    }
    return With_Path(records.front(), records.front().device);
}

v4l2_dev_sys_data_t Camera_At_Node(Records records, const std::string& path)
{
    const auto listed = std::ranges::find_if(records, [&](const auto& record) { return path == record.device; });
    if (listed != records.end()) {
        return With_Path(*listed, path);
    }
    // The path may be a link to a node, another node of a listed camera, or a node that discovery skipped.
    const Camera_Node node(path);
    const std::string location = Field_Text(node.Capability().bus_info);
    const auto sibling = std::ranges::find_if(records, [&](const auto& record) { return location == record.location; });
    if (!node.Delivers_Pictures()) {
        throw Tool_Error(path + ": no pictures come from this node; " +
                         (sibling == records.end() ? "'wqz-usbcam list' shows the cameras"
                                                   : "its camera is " + std::string(sibling->device)));
    }
    return With_Path(sibling == records.end() ? v4l2_dev_sys_data_t{} : *sibling, path);
}

// A session that delivers every frame as the camera sent it. The capture loop converts YUYV frames and passes
// Motion-JPEG frames on unchanged. It asks the device for the format, so this device always answers Motion-JPEG.
class Unconverted_Session : public USBCam {
public:
    using USBCam::USBCam;

    Pix_Format Get_Current_PixFormat() override
    {
        Pix_Format format = USBCam::Get_Current_PixFormat();
        format.u_PixFormat = V4L2_PIX_FMT_MJPEG;
        return format;
    }
};

void* Unconverted_Handle(v4l2_dev_sys_data_t camera)
{
    return static_cast<USBCam*>(new Unconverted_Session(&camera));
}

}  // namespace

Camera_List::Camera_List() : count(WQZ_USBCam_DEVICE_FIND_ID(&records, 0xFFFF, 0xFFFF))
{
}

Camera_List::~Camera_List()
{
    WQZ_USBCam_DEVICE_FREE(records, count);
}

Records Camera_List::Records() const
{
    return {records, static_cast<size_t>(std::max(count, 0))};
}

v4l2_dev_sys_data_t Select_Camera(const Camera_List& cameras, const std::string& selection)
{
    const auto records = cameras.Records();
    if (selection.empty()) {
        return The_Only_One(records, "was found");
    }
    if (selection.find('/') != std::string::npos) {
        return Camera_At_Node(records, selection);
    }
    if (const auto ids = Vid_And_Pid(selection)) {
        std::vector<v4l2_dev_sys_data_t> matching;
        std::ranges::copy_if(records, std::back_inserter(matching), [&](const auto& record) {
            return record.vendor == ids->first && record.product == ids->second;
        });
        return The_Only_One(matching, "with the ids " + selection + " was found");
    }
    const auto index = Whole_Number(selection, 10);
    if (!index) {
        throw Tool_Error("'" + selection +
                         "' names no camera; give a node path, VID:PID or an index of 'wqz-usbcam list'");
    }
    if (*index >= records.size()) {
        throw Tool_Error("there is no camera " + selection + "; found: " + std::to_string(records.size()) +
                         Choices(records));
    }
    return With_Path(records[*index], records[*index].device);
}

std::string Id_Text(const v4l2_dev_sys_data_t& camera)
{
    std::array<char, 24> text{};
    (void)std::snprintf(text.data(), text.size(), "%04x:%04x", camera.vendor, camera.product);
    return text.data();
}

std::string Printable(const char* text)
{
    std::string result = text == nullptr ? "" : text;
    // The maker of a camera chooses its strings, and control characters in them could take over the terminal.
    std::ranges::replace_if(
        result, [](unsigned char c) { return c < 0x20 || c == 0x7F; }, '?');
    return result;
}

Camera_Session::Camera_Session(const v4l2_dev_sys_data_t& camera, Delivery delivery)
    : handle(delivery == Delivery::Pictures ? WQZ_USBCam_CREATE_DEVICE_POINT(camera) : Unconverted_Handle(camera))
{
    (void)WQZ_USBCam_Video_DEAL_WITH_INIT(handle, 0);
}

Camera_Session::~Camera_Session()
{
    (void)WQZ_USBCam_Clear_Frame_Buff(handle);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(handle);
    WQZ_USBCam_DELETE_DEVICE_POINT(handle);
}
