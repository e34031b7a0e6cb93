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
    bool raw = false;  ///< the frames as delivered instead of pictures
};

/// Captures into files until the number or the time asked for is reached, Ctrl-C, or a failure. Prints progress to a
/// terminal and a summary. Does not return, but ends the process, when the camera stopped delivering.
/// @return the exit status: 0, 1 after a failure, 128 + signal when interrupted before the end asked for
/// @throws Tool_Error  when the capture cannot start
int Run_Capture(const v4l2_dev_sys_data_t& camera, const Capture_Options& options);

#endif  // WQZ_TOOL_CAPTURE_H
