#include "Camera/device_file.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace wqz_camera {

Device_File::Device_File(const std::string& path)
    : node(path), descriptor(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)), error(descriptor < 0 ? errno : 0)
{
}

Device_File::~Device_File()
{
    if (descriptor >= 0) {
        (void)close(descriptor);
    }
}

int Device_File::Request(unsigned long code, void* argument) const
{
    while (ioctl(descriptor, code, argument) < 0) {
        if (errno != EINTR) {
            return -errno;
        }
    }
    return 0;
}

bool Device_File::Is_Gone() const
{
    v4l2_capability capability{};
    return Request(VIDIOC_QUERYCAP, &capability) == -ENODEV;
}

uint32_t Node_Capabilities(const v4l2_capability& capability)
{
    return (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? capability.device_caps : capability.capabilities;
}

}  // namespace wqz_camera
