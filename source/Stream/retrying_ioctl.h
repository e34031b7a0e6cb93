#ifndef WQZ_RETRYING_IOCTL_H
#define WQZ_RETRYING_IOCTL_H

#include <cstdint>

/// @return whether a request that failed so is worth repeating at once
bool Is_Passing_Error(int error);

namespace device_request {

/// Issues a V4L2 request up to five times while it fails with a passing error. On giving up, also when another error
/// meets the fourth attempt, it says so on standard error.
/// @return 0, or the result of the last attempt
int32_t xioctl(int32_t fd, uint32_t request, void* arg);

}  // namespace device_request

#endif  // WQZ_RETRYING_IOCTL_H
