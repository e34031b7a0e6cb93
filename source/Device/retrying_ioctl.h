// The device layer's rule for requests that fail for a moment.
#ifndef WQZ_RETRYING_IOCTL_H
#define WQZ_RETRYING_IOCTL_H

#include <cstdint>

/// @return whether a request that failed with this error is worth repeating at once
bool Is_Passing_Error(int error);

namespace device_request {

/// Issues a V4L2 request up to five times while it fails with EINTR, EAGAIN or ETIMEDOUT, without a pause.
/// Reports the failure on standard error after five attempts, and also when the fourth fails with another error.
///
/// Setting up a session uses this rule, because its callers must learn of a refusal. A running session repeats every
/// refused request without end (USBCam/frame_reader.cpp). The camera interface repeats interrupted requests only
/// (Camera/device_file.cpp).
/// @return 0, or the result of the last attempt
int32_t xioctl(int32_t fd, uint32_t request, void* arg);

}  // namespace device_request

#endif  // WQZ_RETRYING_IOCTL_H
