// Frames as pixels.
#ifndef WQZ_CAMERA_FRAME_CONVERT_H
#define WQZ_CAMERA_FRAME_CONVERT_H

#include <cstddef>

#include "Camera/wqz_camera.h"

namespace wqz_camera {

/// Where converted pixels go: rows of three bytes a pixel.
struct Pixel_Rows {
    uint8_t* pixels;
    uint32_t width;
    uint32_t height;
    uint32_t stride;
    bool red_first;

    uint8_t* Row(uint32_t y) const { return pixels + size_t{y} * stride; }
};

/// As WQZ_Camera_Convert.
/// @throws Failure
void Convert_Frame(const WQZ_Camera_Frame& frame, uint32_t layout, uint8_t* pixels, uint64_t capacity, uint32_t stride);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_FRAME_CONVERT_H
