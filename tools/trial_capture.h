// Captures a few frames and measures how regularly they come.
#ifndef WQZ_TOOL_TRIAL_CAPTURE_H
#define WQZ_TOOL_TRIAL_CAPTURE_H

#include <cstdint>
#include <string>
#include <vector>

#include "advice.h"
#include "Camera/wqz_camera.hpp"

/// What a short capture gave.
struct Trial {
    std::string node;
    wqz::Mode mode;
    uint64_t frames = 0;
    uint64_t lost = 0;
    uint64_t damaged = 0;
    double rate = 0;       ///< frames per second; 0 with fewer than two frames
    double jitter_ms = 0;  ///< standard deviation of the time between frames
};

/// Captures in a mode that the camera offers. Ends after a few seconds, whether frames come or not.
/// @throws wqz::Camera_Error
Trial Try_Capture(wqz::Camera& camera, const wqz::Request& request);

/// @return what is wrong with it
std::vector<Finding> Check_Trial(const Trial& trial, const wqz::Camera& camera);

/// @return one line: "YUYV 640x480 at 30 frames per second: 30.0 came, jitter 0.2 ms, 0 lost, 0 damaged of 45"
std::string Trial_Text(const Trial& trial);

#endif  // WQZ_TOOL_TRIAL_CAPTURE_H
