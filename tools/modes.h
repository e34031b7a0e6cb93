// Lists a camera's modes, chooses one, and writes modes as text.
#ifndef WQZ_TOOL_MODES_H
#define WQZ_TOOL_MODES_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "USBCam_API/USBCam_API.h"

// Everywhere in the tool, u_PixFormat of a mode is a FourCC, as in the library's list of modes.

/// The mode that the user asks for. Choose_Mode fills in what is left out.
struct Mode_Wish {
    std::optional<uint32_t> pixel_format;               ///< V4L2 FourCC
    std::optional<std::pair<uint32_t, uint32_t>> size;  ///< width and height in pixels
    std::optional<uint32_t> frames_per_second;
};

/// @return the modes of an open session: one entry per format, size and rate
std::vector<Pix_Format> Read_Modes(void* handle);

/// Prints modes to standard output, as a table with a row per size or as JSON with an object per mode.
void Print_Modes(const std::vector<Pix_Format>& modes, bool json);

/// Picks the mode to capture. The defaults are Motion-JPEG where the camera has it, the size that the camera lists
/// first, and the highest rate.
/// @throws Tool_Error  when the camera lacks such a mode; the message lists what it offers
Pix_Format Choose_Mode(const std::vector<Pix_Format>& modes, const Mode_Wish& wish);

/// @return the four characters of a FourCC, as in "MJPG"
std::string Four_CC_Text(uint32_t pixel_format);

/// @return a text such as "MJPG 640x480 at 30 frames per second", without the rate when it is 0
std::string Mode_Text(const Pix_Format& mode);

#endif  // WQZ_TOOL_MODES_H
