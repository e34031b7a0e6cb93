// Makes a JPEG of a frame in any format.
#ifndef WQZ_TOOL_PREVIEW_JPEG_ENCODER_H
#define WQZ_TOOL_PREVIEW_JPEG_ENCODER_H

#include <cstdint>
#include <vector>

#include "Camera/wqz_camera.hpp"
#include "picture.h"

/// Serves one thread at a time.
class Jpeg_Encoder {
public:
    Jpeg_Encoder();
    ~Jpeg_Encoder();
    Jpeg_Encoder(const Jpeg_Encoder&) = delete;
    Jpeg_Encoder& operator=(const Jpeg_Encoder&) = delete;

    /// Motion-JPEG is copied as it is, YUYV and its like are compressed without a detour over RGB.
    /// @return the length of the JPEG that is now in the picture; 0 for a frame that is cut short
    /// @throws wqz::Camera_Error, Tool_Error  for a format that cannot be shown
    size_t Encode(const wqz::Frame& frame, Picture& picture);

private:
    size_t Compress_Packed(const WQZ_Camera_Frame& frame, size_t luma_offset, Picture& picture);
    size_t Compress_Pixels(const WQZ_Camera_Frame& frame, const uint8_t* pixels, uint32_t stride, int pixel_format,
                           Picture& picture);
    size_t Compress_Converted(const wqz::Frame& frame, Picture& picture);
    [[noreturn]] void Fail() const;

    void* handle;
    std::vector<uint8_t> scratch;  // planes or pixels
};

#endif  // WQZ_TOOL_PREVIEW_JPEG_ENCODER_H
