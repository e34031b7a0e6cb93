// Gives node numbers and bus information to cameras whose description has none.
#include "description/description_parts.h"

#include <set>

namespace virtual_camera {
namespace {

std::string Free_Node(const std::function<bool(const std::string&)>& is_taken)
{
    for (unsigned number = 0;; number++) {
        std::string path = "/dev/video" + std::to_string(number);
        if (!is_taken(path)) {
            return path;
        }
    }
}

}  // namespace

std::string Node_Name(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

unsigned Node_Number(const std::string& path)
{
    const size_t digit = path.find_first_of("0123456789");
    return digit == std::string::npos ? 0 : static_cast<unsigned>(std::stoul(path.substr(digit)));
}

void Complete(Camera_Description& camera, const std::function<bool(const std::string&)>& is_taken)
{
    if (camera.capture_node.empty()) {
        camera.capture_node = Free_Node(is_taken);
    }
    if (camera.has_metadata && camera.metadata_node.empty()) {
        camera.metadata_node =
            Free_Node([&](const std::string& path) { return path == camera.capture_node || is_taken(path); });
    }
    if (camera.bus_info.empty() && camera.usb) {
        camera.bus_info = "usb-0000:00:14.0-" + std::to_string(camera.usb->port);
    }
    if (camera.bus_info.empty()) {
        camera.bus_info = "platform:" + Node_Name(camera.capture_node);
    }
}

void Complete_All(std::vector<Camera_Description>& cameras)
{
    std::set<std::string> taken;
    const auto take = [&taken](const std::string& path) {
        if (!path.empty() && !taken.insert(path).second) {
            throw Description_Error("two cameras want " + path);
        }
    };
    for (const Camera_Description& camera : cameras) {
        take(camera.capture_node);
        take(camera.has_metadata ? camera.metadata_node : "");
    }
    for (Camera_Description& camera : cameras) {
        Complete(camera, [&taken](const std::string& path) { return taken.count(path) > 0; });
        taken.insert(camera.capture_node);
        taken.insert(camera.metadata_node);
    }
}

}  // namespace virtual_camera
