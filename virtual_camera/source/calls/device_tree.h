// The device tree that umockdev lays over /sys and /dev: what becomes of it when a camera is unplugged and comes back.
#ifndef WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H
#define WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H

#include <virtual_camera/description.h>

namespace virtual_camera {

/// The node behind a link of udev's, as in /dev/v4l/by-id; another path as it is.
std::string Linked_Node(const std::string& path);

/// Takes the camera's nodes and sysfs entries out of the tree or puts them back, and lets udev's monitors know. Without
/// umockdev nothing happens.
void Move_In_Tree(const Camera_Description& camera, bool out);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H
