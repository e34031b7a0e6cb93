// Declares the conversion of library pictures into BMP files for viewers.
#ifndef WQZ_TOOL_BITMAP_H
#define WQZ_TOOL_BITMAP_H

#include <cstdint>
#include <vector>

#include "USBCam_API/USBCam_API.h"

/// @return the bytes of the BMP image that the library makes of a complete YUYV frame
uint64_t Library_Bitmap_Bytes(const Pix_Format& format);

/// Turns the library's BMP image of a YUYV frame into a BMP file that viewers show upright. The library stores rows
/// from top to bottom without padding; the format wants them from bottom to top, each padded to 4 bytes. Rows that the
/// frame lacks come out black.
/// @param file  receives the file; its memory is reused
void Render_Bitmap(const Frame_Buffer_Data& frame, std::vector<uint8_t>& file);

#endif  // WQZ_TOOL_BITMAP_H
