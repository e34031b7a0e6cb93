#include "bitmap.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t Header_Bytes = 54;
constexpr size_t Pixel_Bytes = 3;

void Put_16(uint8_t* at, uint32_t value)
{
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8U);
}

void Put_32(uint8_t* at, uint32_t value)
{
    Put_16(at, value);
    Put_16(at + 2, value >> 16U);
}

void Fill_Header(uint8_t* header, const Pix_Format& format, size_t pixel_bytes)
{
    header[0] = 'B';
    header[1] = 'M';
    Put_32(header + 2, static_cast<uint32_t>(Header_Bytes + pixel_bytes));
    Put_32(header + 10, Header_Bytes);
    Put_32(header + 14, 40);  // size of the part that starts here
    Put_32(header + 18, format.u_Width);
    Put_32(header + 22, format.u_Height);  // positive: from bottom to top
    Put_16(header + 26, 1);                // planes
    Put_16(header + 28, 8 * Pixel_Bytes);
    Put_32(header + 34, static_cast<uint32_t>(pixel_bytes));
}

}  // namespace

uint64_t Library_Bitmap_Bytes(const Pix_Format& format)
{
    return Header_Bytes + uint64_t{format.u_Width} * format.u_Height * Pixel_Bytes;
}

void Render_Bitmap(const Frame_Buffer_Data& frame, std::vector<uint8_t>& file)
{
    const size_t row = size_t{frame.PixFormat.u_Width} * Pixel_Bytes;
    const size_t padded_row = (row + 3) / 4 * 4;
    const size_t rows = frame.PixFormat.u_Height;
    file.assign(Header_Bytes + padded_row * rows, 0);
    Fill_Header(file.data(), frame.PixFormat, padded_row * rows);

    const auto* source = static_cast<const uint8_t*>(frame.pMem);
    const size_t available = frame.buffer.bytesused;
    for (size_t y = 0; y < rows; ++y) {
        const size_t begin = Header_Bytes + y * row;
        if (begin >= available) {
            break;
        }
        std::memcpy(file.data() + Header_Bytes + (rows - 1 - y) * padded_row, source + begin,
                    std::min(row, available - begin));
    }
}
