#ifndef WQZ_TOOL_BITMAP_H
#define WQZ_TOOL_BITMAP_H

#include <cstdint>
#include <vector>

#include "USBCam_API/USBCam_API.h"

/// @return the size in bytes of the image that the library makes of a whole YUYV frame
uint64_t Library_Bitmap_Bytes(const Pix_Format& format);

/// Makes a BMP file that viewers show upright of the library's BMP image, whose rows run from top to bottom without
/// padding: rows from bottom to top, each padded to 4 bytes. Missing rows come out black.
/// @param file  receives the file; its memory is reused
void Render_Bitmap(const Frame_Buffer_Data& frame, std::vector<uint8_t>& file);

#endif  // WQZ_TOOL_BITMAP_H
