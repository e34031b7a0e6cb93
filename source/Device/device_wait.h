// Waiting for a capture device.
#ifndef WQZ_DEVICE_WAIT_H
#define WQZ_DEVICE_WAIT_H

#include <sys/time.h>

#include <cstdint>

/// Waits with select until a device can be read. Takes descriptors beyond FD_SETSIZE too. A negative descriptor just
/// waits for the time-out. Throws nothing.
/// @return what select returned: 1 readable, 0 time-out, -1 failed with errno set
int32_t Wait_Readable(int32_t fd, timeval time_out);

#endif  // WQZ_DEVICE_WAIT_H
