// The device layer's rule for requests that fail for a moment.
#include "Device/retrying_ioctl.h"

#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr int32_t Ioctl_Retries = 4;  // after the first attempt

}  // namespace

bool Is_Passing_Error(int error)
{
    return error == EINTR || error == EAGAIN || error == ETIMEDOUT;
}

int32_t device_request::xioctl(int32_t fd, uint32_t request, void* arg)
{
    int32_t result = 0;
    for (int32_t left = Ioctl_Retries; (result = ioctl(fd, request, arg)) != 0 && left > 0;) {
        --left;
        if (Is_Passing_Error(errno)) {
            continue;
        }
        if (left > 0) {
            return result;
        }
        break;
    }
    if (result != 0) {
        fprintf(stderr, "V4L2_CORE: ioctl (%i) retried %i times - giving up: %s)\n", static_cast<int32_t>(request),
                Ioctl_Retries, strerror(errno));
    }
    return result;
}
