// Declares the verb "list".
#ifndef WQZ_TOOL_LISTING_H
#define WQZ_TOOL_LISTING_H

#include <cstdint>
#include <optional>

#include "camera.h"

/// Prints the cameras to standard output, as text or as a JSON array.
/// @param vid, pid  the USB ids to show, if given; the printed index is always the one in the whole list
void Print_Cameras(const Camera_List& cameras, std::optional<uint16_t> vid, std::optional<uint16_t> pid, bool json);

#endif  // WQZ_TOOL_LISTING_H
