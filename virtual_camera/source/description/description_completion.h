// What a description leaves open: node numbers and the bus information.
#ifndef WQZ_VIRTUAL_CAMERA_DESCRIPTION_COMPLETION_H
#define WQZ_VIRTUAL_CAMERA_DESCRIPTION_COMPLETION_H

#include <virtual_camera/description.h>
#include <functional>

namespace virtual_camera {

/// "video4" of "/dev/video4".
std::string Node_Name(const std::string& path);

/// 4 of "/dev/video4"; 0 without a number.
unsigned Node_Number(const std::string& path);

/// Fills the open fields in; `is_taken` tells which paths other cameras have.
void Complete(Camera_Description& camera, const std::function<bool(const std::string&)>& is_taken);

/// Completes cameras that stand beside each other.
/// @throw Description_Error when two want the same node
void Complete_All(std::vector<Camera_Description>& cameras);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_DESCRIPTION_COMPLETION_H
