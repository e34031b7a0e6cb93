#ifndef WQZ_TOOL_MODES_H
#define WQZ_TOOL_MODES_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "USBCam_API/USBCam_API.h"

// Pix_Format carries a FourCC in u_PixFormat everywhere in the tool, as the catalogue does.

/// What a capture asks for; what is left out is chosen.
struct Mode_Wish {
    std::optional<uint32_t> pixel_format;               ///< V4L2 FourCC
    std::optional<std::pair<uint32_t, uint32_t>> size;  ///< width and height in pixels
    std::optional<uint32_t> frames_per_second;
};

/// @return the catalogue of an open session: one entry per format, size and rate
std::vector<Pix_Format> Read_Modes(void* handle);

/// Prints the catalogue to standard output, as a table with a row per size or as JSON with an object per mode.
void Print_Modes(const std::vector<Pix_Format>& modes, bool json);

/// Picks the mode to capture: what is not asked for is Motion-JPEG when there is a choice, the size that the camera
/// lists first and its highest rate.
/// @throws Tool_Error  naming what the camera offers when it lacks what is asked for
Pix_Format Choose_Mode(const std::vector<Pix_Format>& modes, const Mode_Wish& wish);

/// @return "MJPG"
std::string Four_CC_Text(uint32_t pixel_format);

/// @return "MJPG 640x480 at 30 frames per second", without a rate when that is 0
std::string Mode_Text(const Pix_Format& mode);

#endif  // WQZ_TOOL_MODES_H
