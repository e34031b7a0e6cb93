// Asks a camera's device node what the library's flat functions do not tell.
#ifndef WQZ_TOOL_CAMERA_NODE_H
#define WQZ_TOOL_CAMERA_NODE_H

#include <linux/videodev2.h>

#include <string>

#include "USBCam_API/USBCam_API.h"

/// The tool's own descriptor of a camera's node.
class Camera_Node {
public:
    /// Opens the node and asks for its capabilities.
    /// @throws Tool_Error  when the path cannot be opened or is no camera
    explicit Camera_Node(const std::string& node_path);
    ~Camera_Node();
    Camera_Node(const Camera_Node&) = delete;
    Camera_Node& operator=(const Camera_Node&) = delete;

    const v4l2_capability& Capability() const { return capability; }

    /// @return whether this node delivers pictures; the metadata node of a camera does not
    bool Delivers_Pictures() const;

    /// Makes one request, and repeats it while signals interrupt it.
    /// @return whether it succeeded; errno holds the reason otherwise
    bool Request(unsigned long code, void* argument) const;

    /// Sets the format that a capture of `mode` is going to set. The pixel format of `mode` is a FourCC.
    /// Close this descriptor before the capture starts: while it is open, the driver may refuse others a format.
    /// @throws Tool_Error  when the camera is busy, or refuses or changes the format
    void Check_Format(const Pix_Format& mode) const;

private:
    std::string path;
    int descriptor;
    v4l2_capability capability{};
};

/// @return whether the camera behind the node is gone, because it was unplugged or its driver was unloaded
bool Node_Is_Gone(const std::string& path);

/// @return a remark on the video nodes that this user may not open, or an empty text
std::string Remark_On_Forbidden_Nodes();

#endif  // WQZ_TOOL_CAMERA_NODE_H
