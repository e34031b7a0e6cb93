// Encodes frames by TurboJPEG.
#include "jpeg_encoder.h"

#include <turbojpeg.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "../tool_error.h"

namespace {

constexpr int Quality = 80;  // what other camera servers choose too

constexpr uint32_t Code(const char* text)
{
    return wqz::Fourcc(text);
}

/// @return whether all rows of a frame are there
bool Has_Rows(const WQZ_Camera_Frame& frame, uint64_t row_bytes)
{
    return frame.height > 0 && frame.bytes_per_line >= row_bytes &&
           frame.length >= uint64_t{frame.bytes_per_line} * (frame.height - 1) + row_bytes;
}

/// Takes one row apart in which two pixels share their colour: luma at `luma` and `luma` + 2, colour at the others.
template <size_t Luma>
void Split_Row(const uint8_t* packed, size_t pairs, uint8_t* y, uint8_t* u, uint8_t* v)
{
    constexpr size_t Colour = 1 - Luma;
    for (size_t i = 0; i < pairs; ++i) {
        y[2 * i] = packed[4 * i + Luma];
        y[2 * i + 1] = packed[4 * i + Luma + 2];
        u[i] = packed[4 * i + Colour];
        v[i] = packed[4 * i + Colour + 2];
    }
}

}  // namespace

Jpeg_Encoder::Jpeg_Encoder() : handle(tjInitCompress())
{
    if (handle == nullptr) {
        throw Tool_Error("there is no memory for the JPEG encoder");
    }
}

Jpeg_Encoder::~Jpeg_Encoder()
{
    (void)tjDestroy(handle);
}

void Jpeg_Encoder::Fail() const
{
    throw Tool_Error(std::string("the picture cannot be encoded: ") + tjGetErrorStr2(handle));
}

size_t Jpeg_Encoder::Encode(const wqz::Frame& frame, Picture& picture)
{
    const WQZ_Camera_Frame& record = frame.Record();
    switch (record.fourcc) {
        case Code("MJPG"):
        case Code("JPEG"):
            std::memcpy(picture.Room(record.length), record.data, record.length);
            return record.length;
        case Code("YUYV"):
            return record.width % 2 == 0 ? Compress_Packed(record, 0, picture) : Compress_Converted(frame, picture);
        case Code("UYVY"):
            return record.width % 2 == 0 ? Compress_Packed(record, 1, picture) : Compress_Converted(frame, picture);
        case Code("GREY"):
            return Has_Rows(record, record.width)
                       ? Compress_Pixels(record, record.data, record.bytes_per_line, TJPF_GRAY, picture)
                       : 0;
        case Code("RGB3"):
        case Code("BGR3"):
            return Has_Rows(record, uint64_t{record.width} * 3)
                       ? Compress_Pixels(record, record.data, record.bytes_per_line,
                                         record.fourcc == Code("RGB3") ? TJPF_RGB : TJPF_BGR, picture)
                       : 0;
        default:
            return Compress_Converted(frame, picture);
    }
}

size_t Jpeg_Encoder::Compress_Packed(const WQZ_Camera_Frame& frame, size_t luma_offset, Picture& picture)
{
    if (!Has_Rows(frame, uint64_t{frame.width} * 2)) {
        return 0;
    }
    const auto width = static_cast<int>(frame.width);
    const auto height = static_cast<int>(frame.height);
    const size_t pixels = size_t{frame.width} * frame.height;
    const size_t pairs = frame.width / 2;
    scratch.resize(pixels * 2);
    uint8_t* y = scratch.data();
    uint8_t* u = y + pixels;
    uint8_t* v = u + pixels / 2;
    const auto split = luma_offset == 0 ? Split_Row<0> : Split_Row<1>;
    for (size_t row = 0; row < frame.height; ++row) {
        split(frame.data + row * frame.bytes_per_line, pairs, y + row * frame.width, u + row * pairs, v + row * pairs);
    }
    const std::array<const unsigned char*, 3> planes{y, u, v};
    unsigned long size = tjBufSize(width, height, TJSAMP_422);
    unsigned char* jpeg = picture.Room(size);
    if (tjCompressFromYUVPlanes(handle, const_cast<const unsigned char**>(planes.data()), width, nullptr, height,
                                TJSAMP_422, &jpeg, &size, Quality, TJFLAG_NOREALLOC) != 0) {
        Fail();
    }
    return size;
}

size_t Jpeg_Encoder::Compress_Pixels(const WQZ_Camera_Frame& frame, const uint8_t* pixels, uint32_t stride,
                                     int pixel_format, Picture& picture)
{
    const int sampling = pixel_format == TJPF_GRAY ? TJSAMP_GRAY : TJSAMP_422;
    const auto width = static_cast<int>(frame.width);
    const auto height = static_cast<int>(frame.height);
    unsigned long size = tjBufSize(width, height, sampling);
    unsigned char* jpeg = picture.Room(size);
    if (tjCompress2(handle, pixels, width, static_cast<int>(stride), height, pixel_format, &jpeg, &size, sampling,
                    Quality, TJFLAG_NOREALLOC) != 0) {
        Fail();
    }
    return size;
}

size_t Jpeg_Encoder::Compress_Converted(const wqz::Frame& frame, Picture& picture)
{
    const WQZ_Camera_Frame& record = frame.Record();
    scratch.resize(size_t{record.width} * record.height * 3);
    try {
        frame.To_Bgr(scratch.data(), scratch.size());
    } catch (const wqz::Camera_Error& error) {
        if (error.Code() == EBADMSG) {
            return 0;
        }
        throw;
    }
    return Compress_Pixels(record, scratch.data(), record.width * 3, TJPF_BGR, picture);
}
