// Declares the verb "capture".
#ifndef WQZ_TOOL_CAPTURE_H
#define WQZ_TOOL_CAPTURE_H

#include <string>

#include "consumer.h"
#include "modes.h"
#include "USBCam_API/USBCam_API.h"

struct Capture_Options {
    Mode_Wish mode;
    Capture_Limits limits;
    std::string directory = ".";
    bool raw = false;  ///< write the bytes that the camera sent instead of pictures
};

/// Captures into files until it has the requested number of files, the requested time is over, the user presses Ctrl-C,
/// or something fails. Prints progress when standard error is a terminal, and a summary at the end. Ends the process
/// instead of returning when the camera has stopped delivering.
/// @return the exit status: 0 for success, 1 after a failure, 128 + signal when interrupted before a requested end
/// @throws Tool_Error  when the capture cannot start
int Run_Capture(const v4l2_dev_sys_data_t& camera, const Capture_Options& options);

#endif  // WQZ_TOOL_CAPTURE_H
