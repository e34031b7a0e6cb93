// Choosing the conversion of a frame, and converting YUYV and UYVY.
#include "Camera/frame_convert.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "Camera/camera_modes.h"
#include "Camera/demosaic.h"
#include "Camera/failure.h"
#include "Camera/jpeg_picture.h"
#include "Stream/YUV/yuv_stream.h"

namespace wqz_camera {

namespace {

constexpr uint32_t Bytes_Per_Pixel = 3;
constexpr uint32_t Group_Bytes = 4;  // of YUYV and UYVY: two pixels
constexpr uint32_t Group_Pixel_Bytes = 6;

void Convert_Groups(const uint8_t* yuyv, uint32_t groups, uint8_t* bgr)
{
    // The tables' interface takes its input without const; it only reads it.
    (void)YUV_Stream::YUV_Decode_Table.YUYV_Decode(const_cast<uint8_t*>(yuyv), groups * Group_Bytes, bgr,
                                                   groups * Group_Pixel_Bytes);
}

void Swap_Red_And_Blue(uint8_t* row, uint32_t width)
{
    for (uint32_t x = 0; x < width; ++x) {
        std::swap(row[x * Bytes_Per_Pixel], row[x * Bytes_Per_Pixel + 2]);
    }
}

// An odd last pixel has a group of its own, whose second pixel is not written.
void Convert_Yuyv_Row(const uint8_t* line, uint32_t width, uint8_t* row)
{
    const uint32_t groups = width / 2;
    Convert_Groups(line, groups, row);
    if (width % 2 != 0) {
        std::array<uint8_t, Group_Pixel_Bytes> pair{};
        Convert_Groups(line + size_t{groups} * Group_Bytes, 1, pair.data());
        std::memcpy(row + size_t{groups} * Group_Pixel_Bytes, pair.data(), Bytes_Per_Pixel);
    }
}

// Converts in pieces that stay in the nearest cache.
void Convert_Uyvy_Row(const uint8_t* line, uint32_t width, uint8_t* row)
{
    constexpr uint32_t Piece_Pixels = 1024;
    std::array<uint8_t, size_t{Piece_Pixels} * 2> piece;
    for (uint32_t done = 0; done < width; done += Piece_Pixels) {
        const uint32_t pixels = std::min(Piece_Pixels, width - done);
        const uint32_t bytes = (pixels + 1) / 2 * Group_Bytes;
        for (uint32_t i = 0; i < bytes; i += 2) {
            piece[i] = line[i + 1];
            piece[i + 1] = line[i];
        }
        Convert_Yuyv_Row(piece.data(), pixels, row);
        line += bytes;
        row += size_t{pixels} * Bytes_Per_Pixel;
    }
}

/// Rows of a frame that came whole.
struct Source_Rows {
    const uint8_t* data;
    uint32_t stride;
    uint32_t count;
};

// A driver may leave bytes_per_line empty. The last row need not be padded.
Source_Rows Whole_Rows(const WQZ_Camera_Frame& frame, uint32_t row_bytes)
{
    const uint32_t stride = std::max(frame.bytes_per_line, row_bytes);
    const uint64_t rows = frame.length < row_bytes ? 0 : (frame.length - row_bytes) / stride + 1;
    return {frame.data, stride, static_cast<uint32_t>(std::min<uint64_t>(rows, frame.height))};
}

void Blacken_From(const Pixel_Rows& target, uint32_t first)
{
    for (uint32_t y = first; y < target.height; ++y) {
        std::memset(target.Row(y), 0, size_t{target.width} * Bytes_Per_Pixel);
    }
}

void Check_Whole(const Source_Rows& rows, const Pixel_Rows& target)
{
    Blacken_From(target, rows.count);
    if (rows.count < target.height) {
        throw Failure(EBADMSG, "The frame is cut short: of " + std::to_string(target.height) + " rows " +
                                   std::to_string(rows.count) + " came. The rest is black.");
    }
}

void Convert_Yuv(const WQZ_Camera_Frame& frame, const Pixel_Rows& target)
{
    const uint32_t row_bytes = (target.width + 1) / 2 * Group_Bytes;
    const Source_Rows rows = Whole_Rows(frame, row_bytes);
    const bool without_gaps = rows.stride == target.width * 2 && target.stride == target.width * Bytes_Per_Pixel;
    if (frame.fourcc == V4L2_PIX_FMT_YUYV && without_gaps && target.width % 2 == 0 && !target.red_first) {
        Convert_Groups(rows.data, rows.count * (target.width / 2), target.pixels);
        Check_Whole(rows, target);
        return;
    }
    const auto convert = frame.fourcc == V4L2_PIX_FMT_YUYV ? Convert_Yuyv_Row : Convert_Uyvy_Row;
    for (uint32_t y = 0; y < rows.count; ++y) {
        convert(rows.data + size_t{y} * rows.stride, target.width, target.Row(y));
        if (target.red_first) {
            Swap_Red_And_Blue(target.Row(y), target.width);
        }
    }
    Check_Whole(rows, target);
}

void Convert_Bayer(const WQZ_Camera_Frame& frame, const Bayer_Format& format, const Pixel_Rows& target)
{
    const Source_Rows rows = Whole_Rows(frame, Bayer_Row_Bytes(format, target.width));
    Pixel_Rows filled = target;
    filled.height = rows.count;
    Demosaic(format, rows.data, rows.stride, filled);
    Check_Whole(rows, target);
}

Pixel_Rows Checked_Target(const WQZ_Camera_Frame& frame, uint32_t layout, uint8_t* pixels, uint64_t capacity,
                          uint32_t stride)
{
    const uint64_t row = uint64_t{frame.width} * Bytes_Per_Pixel;
    if (frame.data == nullptr || frame.width == 0 || frame.height == 0) {
        throw Failure(EINVAL, "The record holds no frame.");
    }
    if (layout != WQZ_CAMERA_PIXELS_BGR && layout != WQZ_CAMERA_PIXELS_RGB) {
        throw Failure(EINVAL, "The pixel layout is not known: take WQZ_CAMERA_PIXELS_BGR or _RGB.");
    }
    const uint64_t step = stride == 0 ? row : stride;
    if (pixels == nullptr || step < row || step > UINT32_MAX || capacity < (frame.height - 1) * step + row) {
        throw Failure(EINVAL, "The pixels do not fit: " + std::to_string(frame.height) + " rows of " +
                                  std::to_string(row) + " bytes are needed.");
    }
    return {pixels, frame.width, frame.height, static_cast<uint32_t>(step), layout == WQZ_CAMERA_PIXELS_RGB};
}

}  // namespace

void Convert_Frame(const WQZ_Camera_Frame& frame, uint32_t layout, uint8_t* pixels, uint64_t capacity, uint32_t stride)
{
    const Pixel_Rows target = Checked_Target(frame, layout, pixels, capacity, stride);
    switch (frame.fourcc) {
        case V4L2_PIX_FMT_YUYV:
        case V4L2_PIX_FMT_UYVY:
            return Convert_Yuv(frame, target);
        case V4L2_PIX_FMT_MJPEG:
        case V4L2_PIX_FMT_JPEG:
            return Decode_Jpeg(frame.data, frame.length, target);
        default:
            break;
    }
    const Bayer_Format* bayer = Find_Bayer_Format(frame.fourcc);
    if (bayer == nullptr) {
        throw Failure(ENOTSUP, "Frames in the format " + Fourcc_Text(frame.fourcc) + " cannot be converted.");
    }
    Convert_Bayer(frame, *bayer, target);
}

}  // namespace wqz_camera
