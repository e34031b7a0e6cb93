// Declares the verb "preview".
#ifndef WQZ_TOOL_PREVIEW_PREVIEW_H
#define WQZ_TOOL_PREVIEW_PREVIEW_H

#include <optional>
#include <string>

struct Preview_Options {
    std::string camera;       ///< as the user typed it; empty for all cameras
    std::optional<int> port;  ///< 0 for any
    bool json = false;
    std::string listen_address;  ///< empty for loopback
};

/// Serves the page until Ctrl-C.
/// @return the exit status
/// @throws Tool_Error, wqz::Camera_Error  when the page cannot be served or there is no such camera
int Run_Preview(const Preview_Options& options);

#endif  // WQZ_TOOL_PREVIEW_PREVIEW_H
