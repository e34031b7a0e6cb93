// Updates the tree that umockdev shows as /sys and /dev when a camera is unplugged or plugged in again.
#ifndef WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H
#define WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H

#include <virtual_camera/description.h>

namespace virtual_camera {

/// The node to which a link in /dev/v4l leads; other paths are returned unchanged.
std::string Linked_Node(const std::string& path);

/// Takes the camera's nodes and sysfs entries out of the tree or puts them back, and notifies udev's monitors. Does
/// nothing without umockdev.
void Move_In_Tree(const Camera_Description& camera, bool out);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_DEVICE_TREE_H
