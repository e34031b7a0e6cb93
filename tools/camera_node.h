#ifndef WQZ_TOOL_CAMERA_NODE_H
#define WQZ_TOOL_CAMERA_NODE_H

#include <linux/videodev2.h>

#include <string>

#include "USBCam_API/USBCam_API.h"

/// The tool's own descriptor of a camera's node, for what the flat functions do not tell.
class Camera_Node {
public:
    /// Opens the node and asks for its capabilities.
    /// @throws Tool_Error  saying why the path is of no use as a camera
    explicit Camera_Node(const std::string& node_path);
    ~Camera_Node();
    Camera_Node(const Camera_Node&) = delete;
    Camera_Node& operator=(const Camera_Node&) = delete;

    const v4l2_capability& Capability() const { return capability; }

    /// @return whether pictures come from this node; metadata nodes of cameras answer no
    bool Delivers_Pictures() const;

    /// One request, repeated when a signal interrupts it.
    /// @return whether it succeeded; errno holds the reason otherwise
    bool Request(unsigned long code, void* argument) const;

    /// Sets the format of `mode` (its pixel format a FourCC) the way a capture is going to.
    /// While this descriptor lives no other one can set a format.
    /// @throws Tool_Error  when the camera is busy or does not take the format
    void Check_Format(const Pix_Format& mode) const;

private:
    std::string path;
    int descriptor;
    v4l2_capability capability{};
};

/// @return whether the camera behind the node is gone: unplugged, or its driver unloaded
bool Node_Is_Gone(const std::string& path);

/// @return a remark on video nodes that this user may not open, empty when there are none
std::string Remark_On_Forbidden_Nodes();

#endif  // WQZ_TOOL_CAMERA_NODE_H
