// The device tree that umockdev lays over /sys and /dev: what becomes of it when a camera is unplugged and comes back.
#ifndef WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H
#define WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H

#include <virtual_camera/description.h>

namespace virtual_camera {

/// The node behind a link of udev's, as in /dev/v4l/by-id; another path as it is.
std::string Linked_Node(const std::string& path);

// Each moves the camera's nodes and sysfs entries and lets udev's monitors know. Without umockdev neither does
// anything.
void Unplug_From_Tree(const Camera_Description& camera);
void Plug_Into_Tree(const Camera_Description& camera);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H
