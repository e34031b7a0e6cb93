// Finds out what keeps cameras from working, for 'doctor' and for the errors of the other verbs.
#ifndef WQZ_TOOL_DIAGNOSIS_H
#define WQZ_TOOL_DIAGNOSIS_H

#include <cstdint>
#include <string>
#include <vector>

#include "advice.h"
#include "Camera/wqz_camera.hpp"

/// @param cameras  those that the camera interface lists
/// @return what is wrong with drivers and nodes; something whenever `cameras` is empty
std::vector<Finding> Check_Computer(const System_Facts& facts, const std::vector<WQZ_Camera_Info>& cameras);

/// @return what is wrong with the USB connection of one camera
std::vector<Finding> Check_Port(const std::string& node, const Usb_Camera& port,
                                const std::vector<WQZ_Camera_Offer>& offers);

/// A camera and what it offers.
struct Camera_Offers {
    std::string node;
    std::vector<WQZ_Camera_Offer> offers;
};

/// @return the buses that cannot carry the widest modes of all their cameras at once
std::vector<Finding> Check_Buses(const System_Facts& facts, const std::vector<Camera_Offers>& cameras);

/// What a short capture gave.
struct Trial {
    std::string node;
    wqz::Mode mode;
    uint64_t frames = 0;
    uint64_t lost = 0;
    uint64_t damaged = 0;
    double rate = 0;               ///< frames per second; 0 with fewer than two frames
    double jitter_ms = 0;          ///< standard deviation of the time between frames
    std::string exposure_control;  ///< the control that lowers the rate in dim light, if it is on
};

std::vector<Finding> Check_Trial(const Trial& trial);

/// @return why a listed camera cannot be opened, as one message
std::string Refusal_Text(const WQZ_Camera_Info& camera);

/// @return whether a name as WQZ_Camera_Open takes it fits a camera
bool Has_Name(const WQZ_Camera_Info& camera, const std::string& name);

/// Opens a camera by its name.
/// @throws wqz::Camera_Error  with what is wrong and what to do about it
wqz::Camera Open_Camera(const std::string& name);

/// Starts a capture.
/// @throws wqz::Camera_Error  with what is wrong and what to do about it
wqz::Mode Start_Camera(wqz::Camera& camera, const wqz::Request& request);

#endif  // WQZ_TOOL_DIAGNOSIS_H
