// Opens a camera's device node, asks it questions, and explains failures with their remedies.
#include "camera_node.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "modes.h"
#include "text.h"
#include "tool_error.h"

namespace {

constexpr const char* Permission_Remedy =
    "cameras are open to the group video: 'sudo usermod -aG video $USER', then log in again";

constexpr const char* Busy_Remedy =
    "another program uses the camera ('fuser -v' with the node shows which); end it first";

std::string Open_Failure(const std::string& path, int error)
{
    switch (error) {
        case EACCES:
        case EPERM:
            return path + ": permission denied; " + Permission_Remedy;
        case ENOENT:
            return path + ": there is no such node; 'wqz-usbcam list' shows the cameras";
        case EBUSY:
            return path + ": " + Busy_Remedy;
        case ENODEV:
        case ENXIO:
            return path + ": the camera behind this node is gone; plug it in again";
        case EISDIR:
            return path + ": this is a directory, not a camera; 'wqz-usbcam list' shows the cameras";
        default:
            return path + ": cannot be opened: " + std::strerror(error);
    }
}

bool Is_Gone(int error)
{
    return error == ENOENT || error == ENODEV || error == ENXIO;
}

int Open_Descriptor(const std::string& path)
{
    return open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

}  // namespace

Camera_Node::Camera_Node(const std::string& node_path) : path(node_path), descriptor(Open_Descriptor(node_path))
{
    if (descriptor < 0) {
        throw Tool_Error(Open_Failure(path, errno));
    }
    if (!Request(VIDIOC_QUERYCAP, &capability)) {
        const int error = errno;
        close(descriptor);
        if (Is_Gone(error)) {
            throw Tool_Error(Open_Failure(path, error));
        }
        throw Tool_Error(path + ": this is not a camera (" + std::strerror(error) +
                         "); 'wqz-usbcam list' shows the cameras");
    }
}

Camera_Node::~Camera_Node()
{
    close(descriptor);
}

bool Camera_Node::Delivers_Pictures() const
{
    // `capabilities` covers all nodes of a camera, `device_caps` this node alone.
    const bool has_own = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0;
    return ((has_own ? capability.device_caps : capability.capabilities) & V4L2_CAP_VIDEO_CAPTURE) != 0;
}

bool Camera_Node::Request(unsigned long code, void* argument) const
{
    int result = 0;
    do {
        result = ioctl(descriptor, code, argument);
    } while (result < 0 && errno == EINTR);
    return result >= 0;
}

void Camera_Node::Check_Format(const Pix_Format& mode) const
{
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = mode.u_Width;
    format.fmt.pix.height = mode.u_Height;
    format.fmt.pix.pixelformat = mode.u_PixFormat;
    if (!Request(VIDIOC_S_FMT, &format)) {
        if (errno == EBUSY) {
            throw Tool_Error(path + ": " + Busy_Remedy);
        }
        throw Tool_Error(path + ": the camera refuses " + Mode_Text(mode) + ": " + std::strerror(errno) +
                         "; try another of 'wqz-usbcam modes'");
    }
    const v4l2_pix_format& got = format.fmt.pix;
    if (got.width != mode.u_Width || got.height != mode.u_Height || got.pixelformat != mode.u_PixFormat) {
        throw Tool_Error(path + ": asked for " + Mode_Text(mode) + ", the camera takes " +
                         Mode_Text({got.pixelformat, got.width, got.height, 0}) +
                         "; try another of 'wqz-usbcam modes'");
    }
}

bool Node_Is_Gone(const std::string& path)
{
    const int descriptor = Open_Descriptor(path);
    if (descriptor < 0) {
        return Is_Gone(errno);
    }
    v4l2_capability capability{};
    const bool gone = ioctl(descriptor, VIDIOC_QUERYCAP, &capability) < 0 && Is_Gone(errno);
    close(descriptor);
    return gone;
}

std::string Remark_On_Forbidden_Nodes()
{
    std::string nodes;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/dev", error)) {
        const std::string path = entry.path().string();
        const bool is_video = path.starts_with("/dev/video") && entry.is_character_file(error);
        if (is_video && access(path.c_str(), R_OK | W_OK) != 0 && errno == EACCES) {
            Append_Item(nodes, ", ", path);
        }
    }
    return nodes.empty() ? nodes : nodes + " may not be opened by this user; " + Permission_Remedy;
}
