// Declares the verb "controls".
#ifndef WQZ_TOOL_CONTROLS_H
#define WQZ_TOOL_CONTROLS_H

#include <string>
#include <vector>

#include "USBCam_API/USBCam_API.h"

/// Sets controls of a camera. Without settings, prints every control with its value and range.
/// @param settings  texts "name=value"; all are checked before the first one is set
/// @throws Tool_Error  for an unknown name, a value out of range and a setting that the camera refuses
void Run_Controls(const v4l2_dev_sys_data_t& camera, const std::vector<std::string>& settings);

#endif  // WQZ_TOOL_CONTROLS_H
