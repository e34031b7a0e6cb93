// Turns frames into BMP files.
#include "bitmap.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "Camera/wqz_camera.hpp"
#include "Stream/YUV/bmp_header.h"

namespace {

constexpr uint32_t Header_Bytes = sizeof(bmp_header_t);
constexpr uint32_t Information_Offset = offsetof(bmp_header_t, head_size);
constexpr uint32_t Pixel_Bytes = 3;

void Put_Header(std::vector<uint8_t>& file, uint32_t width, uint32_t height)
{
    bmp_header_t header{};
    header.file_type[0] = 'B';
    header.file_type[1] = 'M';
    header.file_size = static_cast<uint32_t>(file.size());
    header.offset = Header_Bytes;
    header.head_size = Header_Bytes - Information_Offset;
    header.width = width;
    header.height = height;
    header.bit_planes = 1;
    header.bits_per_pixel = 8 * Pixel_Bytes;
    header.image_size = header.file_size - Header_Bytes;
    std::memcpy(file.data(), &header, Header_Bytes);
}

}  // namespace

Rendering Render_Bitmap(const WQZ_Camera_Frame& frame, std::vector<uint8_t>& file)
{
    const uint32_t row = (frame.width * Pixel_Bytes + 3) / 4 * 4;  // rows are padded to 4 bytes
    file.assign(Header_Bytes + size_t{row} * frame.height, 0);
    Put_Header(file, frame.width, frame.height);
    uint8_t* pixels = file.data() + Header_Bytes;
    const int32_t result = WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels, file.size() - Header_Bytes, row);
    if (result == -ENOTSUP) {
        return Rendering::Impossible;
    }
    if (result != -EBADMSG) {
        (void)wqz::detail::Check(result);
    }
    for (uint32_t top = 0, bottom = frame.height - 1; top < bottom; ++top, --bottom) {
        std::swap_ranges(pixels + size_t{row} * top, pixels + size_t{row} * (top + 1), pixels + size_t{row} * bottom);
    }
    return result == -EBADMSG ? Rendering::Broken : Rendering::Whole;
}
