// Paints uncompressed frames.
#include "picture/frame_painter.h"

#include <linux/videodev2.h>
#include <algorithm>
#include <cstring>
#include <vector>

#include "picture/test_card.h"

namespace virtual_camera {
namespace {

constexpr uint8_t Dark = 16;
constexpr uint8_t Bright = 235;
constexpr uint8_t Grey_Chroma = 128;
constexpr int Number_Bits = 32;

/// An uncompressed picture: 2 bytes a pixel for YUYV, 1 for GREY.
struct Raw_Picture {
    size_t stride = 0;
    size_t rows = 0;
    std::vector<uint8_t> bytes;
};

uint8_t To_Byte(double value)
{
    return static_cast<uint8_t>(value + 0.5);  // in range, faster than lround NOLINT(bugprone-incorrect-roundings)
}

double Luma(const uint8_t* p)
{
    return 0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2];
}

// YUYV has limited range, V4L2's default for it, and Motion-JPEG has full range. So both show the same colours.
void Pack_Pair(const uint8_t* left, const uint8_t* right, uint8_t* target)
{
    constexpr double Luma_Share = 219.0 / 255, Chroma_Share = 224.0 / 255;
    const double y0 = Luma(left), y1 = Luma(right), mean = (y0 + y1) / 2;
    target[0] = To_Byte(16 + y0 * Luma_Share);
    target[1] = To_Byte(128 + ((left[2] + right[2]) / 2.0 - mean) * 0.564 * Chroma_Share);
    target[2] = To_Byte(16 + y1 * Luma_Share);
    target[3] = To_Byte(128 + ((left[0] + right[0]) / 2.0 - mean) * 0.713 * Chroma_Share);
}

Raw_Picture Pack(const Picture& picture, size_t bytes_per_pixel)
{
    Raw_Picture raw;
    raw.stride = static_cast<size_t>(picture.width) * bytes_per_pixel;
    raw.rows = static_cast<size_t>(picture.height);
    raw.bytes.resize(raw.stride * raw.rows);
    for (int y = 0; y < picture.height; y++) {
        uint8_t* row = &raw.bytes[static_cast<size_t>(y) * raw.stride];
        for (int x = 0; bytes_per_pixel == 1 && x < picture.width; x++) {
            row[x] = To_Byte(Luma(picture.At(x, y)));
        }
        for (int x = 0; bytes_per_pixel == 2 && x + 1 < picture.width; x += 2) {
            Pack_Pair(picture.At(x, y), picture.At(x + 1, y), row + x * 2);
        }
    }
    return raw;
}

class Raw_Painter : public Frame_Painter {
public:
    Raw_Painter(const Paint_Mode& mode, size_t bytes_per_pixel, size_t image_bytes)
        : pixel_bytes(bytes_per_pixel), layout(Lay_Out(static_cast<int>(mode.width), static_cast<int>(mode.height)))
    {
        card = Pack(Draw_Card(layout, mode.name, mode.text), pixel_bytes);
        if (layout.digits > 0) {
            digits = Pack(Draw_Digits(layout), pixel_bytes);
        }
        frame_bytes = std::max<size_t>(image_bytes, 1);
        const size_t drawn = card.bytes.size();
        card.bytes.resize(std::max(drawn, frame_bytes));
        for (size_t at = drawn; at < card.bytes.size() && drawn > 0; at++) {
            card.bytes[at] = card.bytes[at - drawn];
        }
    }

    size_t Paint(uint8_t* target, size_t, uint32_t sequence, std::optional<uint32_t> previous) override
    {
        if (!previous) {
            std::memcpy(target, card.bytes.data(), frame_bytes);
        }
        Put_Number(target, sequence);
        Put_Digits(target, sequence);
        return frame_bytes;
    }

private:
    void Put_Digits(uint8_t* target, uint32_t sequence) const
    {
        const size_t width = static_cast<size_t>(layout.digit_width) * pixel_bytes;
        for (int i = layout.digits - 1; i >= 0; i--, sequence /= 10) {
            const int left = layout.digit_x + i * layout.digit_width;
            uint8_t* row =
                target + static_cast<size_t>(layout.digit_y) * card.stride + static_cast<size_t>(left) * pixel_bytes;
            for (size_t y = 0; y < digits.rows; y++, row += card.stride) {
                std::memcpy(row, &digits.bytes[y * digits.stride + sequence % 10 * width], width);
            }
        }
    }

    // Two pixels hold one bit, because they share their chroma. The highest bit comes first.
    void Put_Number(uint8_t* target, uint32_t sequence) const
    {
        if (frame_bytes < 2 * pixel_bytes * Number_Bits) {
            return;
        }
        for (int pixel = 0; pixel < 2 * Number_Bits; pixel++, target += pixel_bytes) {
            target[0] = (sequence >> (Number_Bits - 1 - pixel / 2)) & 1 ? Bright : Dark;
            target[pixel_bytes - 1] = pixel_bytes == 2 ? Grey_Chroma : target[0];
        }
    }

    size_t pixel_bytes;
    size_t frame_bytes = 0;
    Card_Layout layout;
    Raw_Picture card, digits;
};

}  // namespace

std::unique_ptr<Frame_Painter> Make_Painter(const Paint_Mode& mode, size_t frame_bytes)
{
    constexpr uint32_t Jpeg_Limit = 65500;
    const bool jpeg = mode.fourcc == V4L2_PIX_FMT_MJPEG || mode.fourcc == V4L2_PIX_FMT_JPEG;
    if (jpeg && mode.width <= Jpeg_Limit && mode.height <= Jpeg_Limit) {
        return Make_Jpeg_Painter(mode);
    }
    return std::make_unique<Raw_Painter>(mode, mode.fourcc == V4L2_PIX_FMT_YUYV ? 2 : 1, frame_bytes);
}

}  // namespace virtual_camera
