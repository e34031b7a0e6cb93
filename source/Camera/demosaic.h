// Colour pictures from raw Bayer frames.
#ifndef WQZ_CAMERA_DEMOSAIC_H
#define WQZ_CAMERA_DEMOSAIC_H

#include <cstdint>

#include "Camera/frame_convert.h"

namespace wqz_camera {

/// How samples lie in a row.
enum class Sample_Packing {
    Bytes,   ///< one byte each
    Words,   ///< two bytes each, little-endian, the sample in the low bits
    Packed,  ///< groups of the samples' upper eight bits, then a byte or more with their low bits
};

struct Bayer_Format {
    uint32_t fourcc;
    uint32_t red_x;  ///< where red lies in each square of two by two samples; blue lies across
    uint32_t red_y;
    uint32_t bits;
    Sample_Packing packing;
};

/// @return null when the format is not a raw Bayer one
const Bayer_Format* Find_Bayer_Format(uint32_t fourcc);

uint32_t Bayer_Row_Bytes(const Bayer_Format& format, uint32_t width);

/// Fills each pixel's two missing colours with the mean of the nearest samples that have them (bilinear). Uses the
/// upper eight bits of deeper samples. Rows and columns outside the picture mirror those inside.
void Demosaic(const Bayer_Format& format, const uint8_t* data, uint32_t stride, const Pixel_Rows& target);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_DEMOSAIC_H
