// Which cameras the system has.
#ifndef WQZ_CAMERA_LIST_H
#define WQZ_CAMERA_LIST_H

#include <optional>
#include <string>
#include <vector>

#include "Camera/device_file.h"
#include "Camera/wqz_camera.h"

namespace wqz_camera {

/// A capture node, and what distinguishes its camera from others.
struct Camera_Record {
    WQZ_Camera_Info info{};
    std::string device;    ///< sysfs path of the USB device or other parent; empty when udev does not know the node
    std::string port;      ///< where it is plugged in
    std::string arrival;   ///< differs each time the camera is plugged in, also at the same port and node
    uint32_t ordinal = 1;  ///< counts the capture nodes of one device
};

/// @return the capture nodes in the order of their numbers, with identities
/// @throws Failure  when udev is missing
std::vector<Camera_Record> List_Cameras();

/// Describes an open node that udev does not know: in containers only some of a camera's files are there.
/// @return nothing when pictures do not come from this node
std::optional<Camera_Record> Describe_Unlisted(const Device_File& device);

/// @return the record of the same camera after it was plugged in again, perhaps as another node; null when it is not
///         there
const Camera_Record* Find_Again(const std::vector<Camera_Record>& list, const Camera_Record& wanted);

/// @return whether pictures come from a node: metadata, output and memory-to-memory nodes answer no
bool Captures_Pictures(const v4l2_capability& capability);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_LIST_H
