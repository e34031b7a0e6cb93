// The tool's sentences on what keeps a camera from working: what is wrong, and what to do about it. 'doctor' prints
// them as findings, and the other verbs as their errors.
#ifndef WQZ_TOOL_ADVICE_H
#define WQZ_TOOL_ADVICE_H

#include <string>
#include <vector>

#include "Camera/wqz_camera.hpp"
#include "node_access.h"
#include "system_facts.h"

/// Something that is wrong.
struct Finding {
    std::string id;        ///< stable, for programs: docs/doctor.md lists them
    std::string camera;    ///< its node or USB port; empty for the whole computer
    std::string sentence;  ///< what is wrong
    std::string remedy;    ///< what to do about it

    /// @return both, as one message
    std::string Text() const { return sentence + " " + remedy; }
};

Finding No_Camera(const System_Facts& facts);
Finding No_Uvc_Module(const System_Facts& facts);
Finding No_Driver(const Usb_Camera& camera, const System_Facts& facts);
Finding No_Node(const Video_Node& node, const System_Facts& facts);
Finding Only_Metadata(const std::vector<std::string>& nodes);

Finding No_Permission(const Node_Access& access, bool in_container);
Finding Held(const std::string& node, const Holders& holders);

/// A camera that cannot be opened or started for another reason.
/// @param port  where it is connected; null when that is not known
Finding No_Modes(const std::string& node);
Finding Cannot_Open(const std::string& node, const std::string& reason);
/// @param motion_jpeg_helps  whether Motion-JPEG is worth a try, see Motion_Jpeg_Helps
Finding Cannot_Start(const std::string& node, const wqz::Camera_Error& error, const Usb_Camera* port,
                     bool motion_jpeg_helps);
/// @return whether a camera has Motion-JPEG, which needs less of a USB bus, and did not start in another format
bool Motion_Jpeg_Helps(const std::vector<WQZ_Camera_Offer>& offers, uint32_t fourcc);

/// @param offers  all of the camera; some of them need more than the port carries
Finding Mode_Too_Wide(const std::string& node, const Usb_Camera& port, const std::vector<WQZ_Camera_Offer>& offers);
Finding Slow_Port(const std::string& node, const Usb_Camera& port);

/// @param needs  what each camera may need, such as "/dev/video0 up to 18.4 MB/s"
Finding Shared_Bus(uint32_t bus, const std::vector<std::string>& needs, double sum, double limit);

/// What a short capture shows. `mode` is a text such as "YUYV 640x480 at 30 frames per second".
Finding No_Frames(const std::string& node, const std::string& mode);
Finding Damaged_Frames(const std::string& node, const std::string& mode, uint64_t damaged, uint64_t frames);
Finding Lost_Frames(const std::string& node, const std::string& mode, uint64_t lost, uint64_t frames);
/// @param exposure_control  the control that lets the camera lower its rate in dim light, when it is on; or empty
Finding Slow_Rate(const std::string& node, const std::string& mode, double rate, const std::string& exposure_control);

/// @param error  the failure of opening the camera
Finding Cannot_Use(const std::string& node, const wqz::Camera_Error& error, const System_Facts& facts);

#endif  // WQZ_TOOL_ADVICE_H
