// Declares the conversion of frames into BMP files.
#ifndef WQZ_TOOL_BITMAP_H
#define WQZ_TOOL_BITMAP_H

#include <cstdint>
#include <vector>

#include "Camera/wqz_camera.h"

enum class Rendering { Whole, Broken, Impossible };

/// Turns a frame into a BMP file that viewers show upright. What a damaged frame lacks comes out black.
/// @param file  receives the file; its memory is reused
/// @return Impossible for a format that cannot be converted, Broken when a part could not be decoded
Rendering Render_Bitmap(const WQZ_Camera_Frame& frame, std::vector<uint8_t>& file);

#endif  // WQZ_TOOL_BITMAP_H
