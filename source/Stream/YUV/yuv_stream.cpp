// BMP images of uncompressed frames, in memory and as files.
#include "Stream/YUV/yuv_stream.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <vector>

#include "Stream/save_file.h"

namespace {

constexpr uint32_t Bmp_Header_Bytes = 54;
constexpr uint32_t Bmp_Info_Bytes = 40;
constexpr uint32_t Bytes_Per_Pixel = 3;
constexpr uint32_t Bytes_Per_Sample = 2;  // of YUYV and of raw Bayer alike

static_assert(sizeof(bmp_header_t) == Bmp_Header_Bytes && offsetof(bmp_header_t, rgb_data) == Bmp_Header_Bytes);

void Fill_Header(uint8_t* file, uint32_t width, uint32_t height)
{
    bmp_header_t header{};
    header.file_type[0] = 'B';
    header.file_type[1] = 'M';
    header.image_size = width * height * Bytes_Per_Pixel;
    header.file_size = header.image_size + Bmp_Header_Bytes;
    header.offset = Bmp_Header_Bytes;
    header.head_size = Bmp_Info_Bytes;
    header.width = width;
    header.height = height;
    header.bit_planes = 1;
    header.bits_per_pixel = 24;
    std::memcpy(file, &header, sizeof header);
}

// The bytes of a whole BMP file; nothing when they do not fit the header's 32 bits or the memory of a 32-bit processor.
std::optional<uint32_t> Bmp_File_Bytes(uint32_t width, uint32_t height)
{
    constexpr uint64_t limit = std::numeric_limits<uint32_t>::max() - Bmp_Header_Bytes;
    const uint64_t pixels = static_cast<uint64_t>(width) * height;
    if (pixels > limit / Bytes_Per_Pixel) {
        return std::nullopt;
    }
    const uint64_t pixels_of_row_pairs = pixels + (height % 2 == 0 ? 0 : width);  // raw pictures are made of such pairs
    if (pixels_of_row_pairs > (std::numeric_limits<std::ptrdiff_t>::max() - Bmp_Header_Bytes) / Bytes_Per_Pixel) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(pixels) * Bytes_Per_Pixel + Bmp_Header_Bytes;
}

// The samples that a raw picture is made of, filled up with zeros to whole pairs of rows, in which they are decoded.
// With an odd number of whole rows the last pair also takes the row that follows, as far as its samples go.
std::vector<uint8_t> Raw_Samples(const Frame_Buffer_Data& frame, std::size_t rows, std::size_t row_bytes)
{
    const std::size_t height = frame.PixFormat.u_Height;
    const std::size_t rows_read = rows + rows % 2;
    const std::size_t whole_samples = frame.buffer.bytesused / Bytes_Per_Sample * std::size_t{Bytes_Per_Sample};
    const auto* first = static_cast<const uint8_t*>(frame.pMem);
    std::vector<uint8_t> samples(first, first + std::min(rows_read * row_bytes, whole_samples));
    samples.resize((height + height % 2) * row_bytes);
    return samples;
}

// A BMP file of u_Width by u_Height; what the frame lacks stays black.
std::vector<uint8_t> Raw_Picture(const Frame_Buffer_Data& frame, uint32_t file_bytes)
{
    const uint32_t width = frame.PixFormat.u_Width;
    const uint32_t height = frame.PixFormat.u_Height;
    const std::size_t row_bytes = static_cast<std::size_t>(width) * Bytes_Per_Sample;
    const std::size_t rows = std::min<std::size_t>(frame.buffer.bytesused / row_bytes, height);
    std::vector<uint8_t> samples = Raw_Samples(frame, rows, row_bytes);
    std::vector<uint8_t> picture(Bmp_Header_Bytes + samples.size() / Bytes_Per_Sample * Bytes_Per_Pixel);
    (void)YUV_Stream::YUV_Decode_Table.RAW2_Decode(samples.data(), static_cast<uint32_t>(rows * row_bytes), width,
                                                   picture.data() + Bmp_Header_Bytes, file_bytes);
    Fill_Header(picture.data(), width, height);
    return picture;
}

PVOID Repack(Frame_Buffer_Data& frame)
{
    if (frame.pMem == nullptr) {
        fprintf(stderr, "Raw Not Vail!\n");
        return nullptr;
    }
    YUV_Stream::YUV_Decode_Table.RAW10_Decode(static_cast<uint8_t*>(frame.pMem), frame.buffer.bytesused);
    return nullptr;
}

}  // namespace

YUV_Decode YUV_Stream::YUV_Decode_Table;

YUV_Stream::~YUV_Stream() = default;

PVOID YUV_Stream::Frame_buffer_Deal_With(Frame_Buffer_Data* p_Frame_buffer)
{
    if (p_Frame_buffer->pMem == nullptr) {
        fprintf(stderr, "Raw Not Vail!\n");
        return nullptr;
    }
    const uint32_t used = p_Frame_buffer->buffer.bytesused;
    if (used > std::numeric_limits<uint32_t>::max() / 3) {
        return nullptr;
    }
    const uint32_t size = used * 3 / 2 + Bmp_Header_Bytes;
    auto* yuyv = static_cast<uint8_t*>(p_Frame_buffer->pMem);
    auto* bitmap = new uint8_t[size];
    (void)YUV_Decode_Table.YUYV_Decode(yuyv, used, bitmap + Bmp_Header_Bytes, size);
    const uint32_t decoded = Bmp_Header_Bytes + used / 4 * 6;
    std::memset(bitmap + decoded, 0, size - decoded);
    Fill_Header(bitmap, p_Frame_buffer->PixFormat.u_Width, p_Frame_buffer->PixFormat.u_Height);
    delete[] yuyv;
    p_Frame_buffer->pMem = bitmap;
    p_Frame_buffer->buffer.bytesused = size;
    p_Frame_buffer->buff_Length = size;
    return nullptr;
}

int32_t YUV_Stream::Frame_buffer_Deal_With(char* Dir_Path, Frame_Buffer* pFrame_Buffer)
{
    return Save_Frame_buffer(Dir_Path, pFrame_Buffer);
}

int32_t YUV_Stream::Save_Frame_buffer(uint8_t* p_Data, uint32_t w, uint32_t h)
{
    const std::optional<uint32_t> file_bytes = Bmp_File_Bytes(w, h);
    if (!file_bytes) {
        return 0;
    }
    std::vector<uint8_t> picture(*file_bytes);
    (void)YUV_Decode_Table.YUYV_Decode(p_Data, w * h * Bytes_Per_Sample, picture.data() + Bmp_Header_Bytes,
                                       *file_bytes);
    Fill_Header(picture.data(), w, h);
    (void)Save_File(Save_Path(nullptr, "Test.bmp"), picture.data(), *file_bytes);
    return 0;
}

int32_t YUV_Stream::Save_Frame_buffer(char* Dir_Path, Frame_Buffer* p_Frame_buffer)
{
    const Frame_Buffer_Data& frame = p_Frame_buffer->sBuf;
    if (frame.pMem == nullptr) {
        fprintf(stderr, "Raw Not Vail!\n");
        return 0;
    }
    const std::optional<uint32_t> file_bytes = Bmp_File_Bytes(frame.PixFormat.u_Width, frame.PixFormat.u_Height);
    if (!file_bytes || frame.PixFormat.u_Width == 0) {
        return 0;
    }
    const std::vector<uint8_t> picture = Raw_Picture(frame, *file_bytes);
    (void)Save_File(Save_Path(Dir_Path, Time_Name(frame.Frame_Time, "bmp")), picture.data(), *file_bytes);
    return 0;
}

PVOID YUV_Stream::Frame_buffer_Deal_With_Raw10(Frame_Buffer* p_Frame_buffer)
{
    return Repack(p_Frame_buffer->sBuf);
}

PVOID YUV_Stream::Frame_buffer_Deal_With_Raw12(Frame_Buffer* p_Frame_buffer)
{
    return Repack(p_Frame_buffer->sBuf);
}
