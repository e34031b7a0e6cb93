// Agreeing with the driver on a mode.
#ifndef WQZ_CAMERA_MODE_SETTING_H
#define WQZ_CAMERA_MODE_SETTING_H

#include "Camera/device_file.h"
#include "Camera/wqz_camera.h"

namespace wqz_camera {

/// Sets format, size and interval, and reads back what the driver made of them.
/// @throws Failure  also when the request is exact and the driver has something else
WQZ_Camera_Mode Set_Mode(const Device_File& device, const WQZ_Camera_Request& request);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_MODE_SETTING_H
