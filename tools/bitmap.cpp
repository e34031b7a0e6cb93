// Turns frames into BMP files.
#include "bitmap.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>

#include "Camera/wqz_camera.hpp"

namespace {

constexpr uint32_t Header_Bytes = 54;
constexpr uint32_t Info_Bytes = 40;  // of the header: the part that describes the picture
constexpr uint32_t Pixel_Bytes = 3;

void Put(std::vector<uint8_t>& file, size_t offset, size_t bytes, uint32_t value)
{
    for (size_t i = 0; i < bytes; ++i) {
        file[offset + i] = static_cast<uint8_t>(value >> 8 * i);
    }
}

void Put_Header(std::vector<uint8_t>& file, uint32_t width, uint32_t height)
{
    const auto file_bytes = static_cast<uint32_t>(file.size());
    file[0] = 'B';
    file[1] = 'M';
    Put(file, 2, 4, file_bytes);
    Put(file, 10, 4, Header_Bytes);
    Put(file, 14, 4, Info_Bytes);
    Put(file, 18, 4, width);
    Put(file, 22, 4, height);  // positive: rows run from bottom to top
    Put(file, 26, 2, 1);       // planes
    Put(file, 28, 2, 8 * Pixel_Bytes);
    Put(file, 34, 4, file_bytes - Header_Bytes);
}

}  // namespace

bool Render_Bitmap(const WQZ_Camera_Frame& frame, std::vector<uint8_t>& file)
{
    const uint32_t row = (frame.width * Pixel_Bytes + 3) / 4 * 4;  // rows are padded to 4 bytes
    file.assign(Header_Bytes + size_t{row} * frame.height, 0);
    Put_Header(file, frame.width, frame.height);
    uint8_t* pixels = file.data() + Header_Bytes;
    const int32_t result = WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels, file.size() - Header_Bytes, row);
    if (result == -ENOTSUP) {
        return false;
    }
    if (result != -EBADMSG) {
        (void)wqz::detail::Check(result);
    }
    for (uint32_t top = 0, bottom = frame.height - 1; top < bottom; ++top, --bottom) {
        std::swap_ranges(pixels + size_t{row} * top, pixels + size_t{row} * (top + 1), pixels + size_t{row} * bottom);
    }
    return true;
}
