// Opening a device node and making requests to its driver.
#include "Camera/device_file.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

namespace wqz_camera {

namespace {

// Signals interrupt a request now and then. A driver that says so each time must not keep the caller.
constexpr int Most_Interruptions = 100;

}  // namespace

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
    for (int attempt = 0; attempt < Most_Interruptions; ++attempt) {
        if (ioctl(descriptor, code, argument) >= 0) {
            return 0;
        }
        if (errno != EINTR) {
            return errno == ESHUTDOWN ? -ENODEV : -errno;  // USB says so while it takes the camera away
        }
    }
    return -EIO;
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
