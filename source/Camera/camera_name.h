// Finds the camera that a user's name means.
#ifndef WQZ_CAMERA_NAME_H
#define WQZ_CAMERA_NAME_H

#include <memory>
#include <string>

#include "Camera/camera_list.h"
#include "Camera/device_file.h"

namespace wqz_camera {

struct Opened_Camera {
    Camera_Record record;
    std::shared_ptr<Device_File> device;
};

/// Opens the camera that a name means (see WQZ_Camera_Open).
/// @throws Failure  ENOENT, ENOTUNIQ, or why the node cannot be opened
Opened_Camera Open_By_Name(const std::string& name);

/// Opens the camera again after it was plugged in again.
/// @return nothing while it is not there
/// @throws Failure  when it is there and cannot be opened
std::shared_ptr<Device_File> Open_Again(Camera_Record& record);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_NAME_H
