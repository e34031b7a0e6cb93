// Turns the library's picture of a YUYV frame into a BMP file that viewers show upright.
#include "bitmap.h"

#include <algorithm>
#include <cstring>

#include "Stream/YUV/yuv_stream.h"

namespace {

constexpr size_t Header_Bytes = sizeof(bmp_header_t);
constexpr uint32_t Info_Bytes = 40;  // of the header: the part from head_size on
constexpr uint32_t Pixel_Bytes = 3;

bmp_header_t Header(const Pix_Format& format, size_t pixel_bytes)
{
    bmp_header_t header{};
    header.file_type[0] = 'B';
    header.file_type[1] = 'M';
    header.file_size = static_cast<uint32_t>(Header_Bytes + pixel_bytes);
    header.offset = static_cast<uint32_t>(Header_Bytes);
    header.head_size = Info_Bytes;
    header.width = format.u_Width;
    header.height = format.u_Height;  // positive: rows run from bottom to top
    header.bit_planes = 1;
    header.bits_per_pixel = 8 * Pixel_Bytes;
    header.image_size = static_cast<uint32_t>(pixel_bytes);
    return header;
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
    const bmp_header_t header = Header(frame.PixFormat, padded_row * rows);
    std::memcpy(file.data(), &header, Header_Bytes);

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
