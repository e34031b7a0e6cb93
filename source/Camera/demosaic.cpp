// Bilinear interpolation of raw Bayer frames.
#include "Camera/demosaic.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

namespace wqz_camera {

namespace {

constexpr Sample_Packing Bytes = Sample_Packing::Bytes;
constexpr Sample_Packing Words = Sample_Packing::Words;
constexpr Sample_Packing Packed = Sample_Packing::Packed;

constexpr Bayer_Format Formats[] = {
    {V4L2_PIX_FMT_SRGGB8, 0, 0, 8, Bytes},     {V4L2_PIX_FMT_SGRBG8, 1, 0, 8, Bytes},
    {V4L2_PIX_FMT_SGBRG8, 0, 1, 8, Bytes},     {V4L2_PIX_FMT_SBGGR8, 1, 1, 8, Bytes},
    {V4L2_PIX_FMT_SRGGB10, 0, 0, 10, Words},   {V4L2_PIX_FMT_SGRBG10, 1, 0, 10, Words},
    {V4L2_PIX_FMT_SGBRG10, 0, 1, 10, Words},   {V4L2_PIX_FMT_SBGGR10, 1, 1, 10, Words},
    {V4L2_PIX_FMT_SRGGB12, 0, 0, 12, Words},   {V4L2_PIX_FMT_SGRBG12, 1, 0, 12, Words},
    {V4L2_PIX_FMT_SGBRG12, 0, 1, 12, Words},   {V4L2_PIX_FMT_SBGGR12, 1, 1, 12, Words},
    {V4L2_PIX_FMT_SRGGB14, 0, 0, 14, Words},   {V4L2_PIX_FMT_SGRBG14, 1, 0, 14, Words},
    {V4L2_PIX_FMT_SGBRG14, 0, 1, 14, Words},   {V4L2_PIX_FMT_SBGGR14, 1, 1, 14, Words},
    {V4L2_PIX_FMT_SRGGB16, 0, 0, 16, Words},   {V4L2_PIX_FMT_SGRBG16, 1, 0, 16, Words},
    {V4L2_PIX_FMT_SGBRG16, 0, 1, 16, Words},   {V4L2_PIX_FMT_SBGGR16, 1, 1, 16, Words},
    {V4L2_PIX_FMT_SRGGB10P, 0, 0, 10, Packed}, {V4L2_PIX_FMT_SGRBG10P, 1, 0, 10, Packed},
    {V4L2_PIX_FMT_SGBRG10P, 0, 1, 10, Packed}, {V4L2_PIX_FMT_SBGGR10P, 1, 1, 10, Packed},
    {V4L2_PIX_FMT_SRGGB12P, 0, 0, 12, Packed}, {V4L2_PIX_FMT_SGRBG12P, 1, 0, 12, Packed},
    {V4L2_PIX_FMT_SGBRG12P, 0, 1, 12, Packed}, {V4L2_PIX_FMT_SBGGR12P, 1, 1, 12, Packed},
    {V4L2_PIX_FMT_SRGGB14P, 0, 0, 14, Packed}, {V4L2_PIX_FMT_SGRBG14P, 1, 0, 14, Packed},
    {V4L2_PIX_FMT_SGBRG14P, 0, 1, 14, Packed}, {V4L2_PIX_FMT_SBGGR14P, 1, 1, 14, Packed},
};

/// Samples of a packed group, and the bytes that it takes.
struct Group {
    uint32_t samples;
    uint32_t bytes;
};

// The smallest group that ends at a byte's end: 4 samples in 5 bytes, 2 in 3, 4 in 7.
constexpr Group Packed_Group(uint32_t bits)
{
    return bits == 12 ? Group{2, 3} : Group{4, bits / 2};
}

/// A row's samples in eight bits each, with a mirrored one on each side.
class Sample_Row {
public:
    explicit Sample_Row(uint32_t row_width) : width(row_width), samples(size_t{row_width} + 2) {}

    void Fill(const Bayer_Format& format, const uint8_t* line)
    {
        uint8_t* const target = samples.data() + 1;
        if (format.packing == Sample_Packing::Bytes) {
            std::memcpy(target, line, width);
        } else if (format.packing == Sample_Packing::Words) {
            for (uint32_t x = 0; x < width; ++x) {
                const auto sample = static_cast<uint32_t>(line[x * 2] | line[x * 2 + 1] << 8);
                target[x] = static_cast<uint8_t>(std::min<uint32_t>(sample >> (format.bits - 8), 255));
            }
        } else {
            const Group group = Packed_Group(format.bits);
            for (uint32_t x = 0; x < width; ++x) {
                target[x] = line[x / group.samples * group.bytes + x % group.samples];
            }
        }
        samples.front() = target[width > 1 ? 1 : 0];
        samples.back() = target[width > 1 ? width - 2 : 0];
    }

    /// Samples -1 to width.
    const uint8_t* Data() const { return samples.data() + 1; }

private:
    uint32_t width;
    std::vector<uint8_t> samples;
};

uint8_t Mean(unsigned one, unsigned other)
{
    return static_cast<uint8_t>((one + other + 1) / 2);
}

uint8_t Mean(unsigned a, unsigned b, unsigned c, unsigned d)
{
    return static_cast<uint8_t>((a + b + c + d + 2) / 4);
}

/// One row with its neighbours. Its samples are green and one colour, those above and below green and the other one.
struct Neighbourhood {
    const uint8_t* above;
    const uint8_t* row;
    const uint8_t* below;
    uint32_t width;
    uint32_t own_x;       // the column, 0 or 1, where the row's own colour begins
    uint32_t own_offset;  // of the row's own colour in a pixel
    uint32_t other_offset;
};

void Fill_Row(const Neighbourhood& n, uint8_t* pixels)
{
    constexpr uint32_t Green_Offset = 1;
    for (int64_t x = n.own_x; x < n.width; x += 2) {
        uint8_t* const pixel = pixels + x * 3;
        pixel[n.own_offset] = n.row[x];
        pixel[Green_Offset] = Mean(n.row[x - 1], n.row[x + 1], n.above[x], n.below[x]);
        pixel[n.other_offset] = Mean(n.above[x - 1], n.above[x + 1], n.below[x - 1], n.below[x + 1]);
    }
    for (int64_t x = 1 - n.own_x; x < n.width; x += 2) {
        uint8_t* const pixel = pixels + x * 3;
        pixel[n.own_offset] = Mean(n.row[x - 1], n.row[x + 1]);
        pixel[Green_Offset] = n.row[x];
        pixel[n.other_offset] = Mean(n.above[x], n.below[x]);
    }
}

}  // namespace

const Bayer_Format* Find_Bayer_Format(uint32_t fourcc)
{
    const auto* found = std::find_if(std::begin(Formats), std::end(Formats),
                                     [=](const Bayer_Format& format) { return format.fourcc == fourcc; });
    return found == std::end(Formats) ? nullptr : found;
}

uint32_t Bayer_Row_Bytes(const Bayer_Format& format, uint32_t width)
{
    if (format.packing == Sample_Packing::Packed) {
        const Group group = Packed_Group(format.bits);
        return (width + group.samples - 1) / group.samples * group.bytes;
    }
    return format.packing == Sample_Packing::Words ? width * 2 : width;
}

void Demosaic(const Bayer_Format& format, const uint8_t* data, uint32_t stride, const Pixel_Rows& target)
{
    if (target.height == 0) {
        return;
    }
    std::array<Sample_Row, 3> ring{Sample_Row(target.width), Sample_Row(target.width), Sample_Row(target.width)};
    const auto row = [&](uint32_t y) -> Sample_Row& { return ring[y % ring.size()]; };
    row(0).Fill(format, data);
    for (uint32_t y = 0; y < target.height; ++y) {
        const bool last = y + 1 == target.height;
        if (!last) {
            row(y + 1).Fill(format, data + size_t{y + 1} * stride);
        }
        const uint32_t below = !last ? y + 1 : y > 0 ? y - 1 : y;
        const uint32_t above = y > 0 ? y - 1 : below;
        const bool red_row = y % 2 == format.red_y;
        const uint32_t red_offset = target.red_first ? 0 : 2;
        const Neighbourhood neighbourhood{row(above).Data(),
                                          row(y).Data(),
                                          row(below).Data(),
                                          target.width,
                                          red_row ? format.red_x : 1 - format.red_x,
                                          red_row ? red_offset : 2 - red_offset,
                                          red_row ? 2 - red_offset : red_offset};
        Fill_Row(neighbourhood, target.Row(y));
    }
}

}  // namespace wqz_camera
