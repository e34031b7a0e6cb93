// Declares the verb "capture".
#ifndef WQZ_TOOL_CAPTURE_H
#define WQZ_TOOL_CAPTURE_H

#include <cstdint>
#include <optional>
#include <string>

#include "modes.h"

struct Capture_Options {
    Mode_Wish mode;
    std::optional<uint64_t> frames;
    std::optional<double> seconds;  ///< counted from the first frame
    uint32_t skip = 0;              ///< frames to leave out first
    std::string output = ".";
    bool raw = false;        ///< write the bytes that the camera sent instead of pictures
    bool reconnect = false;  ///< wait for a camera that was unplugged, and go on
    bool json = false;
};

/// @return what is wrong with the options, or an empty text
std::string Contradiction(const Capture_Options& options);

/// Captures until it has the requested number of frames, the requested time is over, the user presses Ctrl-C, or
/// something fails. Prints progress when standard error is a terminal, and a summary at the end.
/// @param camera_name  as the user typed it
/// @return the exit status: 0 for success, 1 after a failure and when every frame was damaged, 128 + signal when
///         interrupted before a requested end or when the reader of standard output went away
/// @throws Tool_Error  when the capture cannot start
int Run_Capture(const std::string& camera_name, const Capture_Options& options);

#endif  // WQZ_TOOL_CAPTURE_H
