// Implements the UVC driver's choice of the nearest format, size and interval.
#include "driver/format_negotiation.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <utility>

namespace virtual_camera {
namespace {

struct Format_Fact {
    uint32_t fourcc;
    const char* name;
    uint32_t bytes_per_pixel;  // 0: compressed
};

constexpr std::array<Format_Fact, 12> Facts{{{V4L2_PIX_FMT_MJPEG, "Motion-JPEG", 0},
                                             {V4L2_PIX_FMT_JPEG, "JFIF JPEG", 0},
                                             {V4L2_PIX_FMT_H264, "H.264", 0},
                                             {V4L2_PIX_FMT_YUYV, "YUYV 4:2:2", 2},
                                             {V4L2_PIX_FMT_UYVY, "UYVY 4:2:2", 2},
                                             {V4L2_PIX_FMT_GREY, "8-bit Greyscale", 1},
                                             {V4L2_PIX_FMT_SBGGR8, "8-bit Bayer BGBG/GRGR", 1},
                                             {V4L2_PIX_FMT_SGBRG8, "8-bit Bayer GBGB/RGRG", 1},
                                             {V4L2_PIX_FMT_SGRBG8, "8-bit Bayer GRGR/BGBG", 1},
                                             {V4L2_PIX_FMT_SRGGB8, "8-bit Bayer RGRG/GBGB", 1},
                                             {V4L2_PIX_FMT_RGB24, "24-bit RGB 8-8-8", 3},
                                             {V4L2_PIX_FMT_BGR24, "24-bit BGR 8-8-8", 3}}};

Format_Fact Fact_Of(uint32_t fourcc)
{
    for (const Format_Fact& fact : Facts) {
        if (fact.fourcc == fourcc) {
            return fact;
        }
    }
    return {fourcc, nullptr, 2};
}

const Pixel_Format* Find(const std::vector<Pixel_Format>& formats, uint32_t fourcc)
{
    const auto found =
        std::find_if(formats.begin(), formats.end(), [fourcc](const Pixel_Format& f) { return f.fourcc == fourcc; });
    return found == formats.end() ? nullptr : &*found;
}

uint32_t Into_Range(uint32_t value, uint32_t low, uint32_t high, uint32_t step)
{
    const uint32_t clamped = std::clamp(value, low, high);
    return step == 0 ? clamped : low + (clamped - low) / step * step;
}

bool Holds(const Frame_Size& size, uint32_t width, uint32_t height)
{
    return Into_Range(width, size.width, size.max_width, size.step_width) == width &&
           Into_Range(height, size.height, size.max_height, size.step_height) == height;
}

/// Pixels that are in one of the two sizes but not in both.
uint64_t Distance(uint64_t w0, uint64_t h0, uint64_t w1, uint64_t h1)
{
    return w0 * h0 + w1 * h1 - 2 * std::min(w0, w1) * std::min(h0, h1);
}

double Seconds(v4l2_fract interval)
{
    return interval.denominator == 0 ? HUGE_VAL : static_cast<double>(interval.numerator) / interval.denominator;
}

v4l2_fract Stepwise_Interval(const Frame_Size& size, double wanted)
{
    const v4l2_fract shortest = size.intervals[0], longest = size.intervals[1], step = size.intervals[2];
    if (wanted <= Seconds(shortest)) {
        return shortest;
    }
    if (wanted >= Seconds(longest)) {
        return longest;
    }
    constexpr double Units = 10'000'000;  // as USB cameras count
    const double steps = std::round((wanted - Seconds(shortest)) / Seconds(step));
    const double value = std::min(Seconds(shortest) + steps * Seconds(step), Seconds(longest));
    return {static_cast<uint32_t>(std::lround(value * Units)), static_cast<uint32_t>(Units)};
}

}  // namespace

Video_Mode Nearest_Mode(const std::vector<Pixel_Format>& formats, uint32_t fourcc, uint32_t width, uint32_t height)
{
    const Pixel_Format* format = Find(formats, fourcc);
    if (!format) {
        format = &formats.front();
    }
    Video_Mode mode;
    mode.fourcc = format->fourcc;
    uint64_t best = UINT64_MAX;
    for (const Frame_Size& size : format->sizes) {
        const uint32_t w = Into_Range(width, size.width, size.max_width, size.step_width);
        const uint32_t h = Into_Range(height, size.height, size.max_height, size.step_height);
        const uint64_t distance = Distance(w, h, width, height);
        if (distance < best) {
            best = distance;
            mode.size = size;
            mode.width = w;
            mode.height = h;
        }
    }
    mode.interval = mode.size.intervals.empty() ? v4l2_fract{1, 30} : mode.size.intervals.front();
    return mode;
}

v4l2_fract Nearest_Interval(const Frame_Size& size, v4l2_fract wanted)
{
    if (size.intervals.empty()) {
        return {1, 30};
    }
    const double seconds = Seconds(wanted);
    if (size.stepwise_intervals) {
        return Stepwise_Interval(size, seconds);
    }
    if (std::isinf(seconds)) {
        return size.intervals.back();
    }
    return *std::min_element(size.intervals.begin(), size.intervals.end(), [seconds](v4l2_fract a, v4l2_fract b) {
        return std::abs(Seconds(a) - seconds) < std::abs(Seconds(b) - seconds);
    });
}

bool Is_Compressed(uint32_t fourcc)
{
    return Fact_Of(fourcc).bytes_per_pixel == 0;
}

uint32_t Image_Size(const Video_Mode& mode)
{
    constexpr uint32_t Least_Compressed = 4096;  // room for the headers of a tiny picture
    if (Is_Compressed(mode.fourcc)) {
        return std::max(mode.width * mode.height * 2, Least_Compressed);
    }
    return Fact_Of(mode.fourcc).bytes_per_pixel * mode.width * mode.height;
}

void Fill_Format(const Video_Mode& mode, v4l2_pix_format& pix)
{
    pix = v4l2_pix_format{};
    pix.width = mode.width;
    pix.height = mode.height;
    pix.pixelformat = mode.fourcc;
    pix.field = V4L2_FIELD_NONE;
    pix.bytesperline = Fact_Of(mode.fourcc).bytes_per_pixel * mode.width;
    pix.sizeimage = Image_Size(mode);
    pix.colorspace = V4L2_COLORSPACE_SRGB;
    pix.priv = V4L2_PIX_FMT_PRIV_MAGIC;
    pix.ycbcr_enc = V4L2_YCBCR_ENC_601;
    pix.xfer_func = V4L2_XFER_FUNC_SRGB;
}

int Enumerate_Format(const std::vector<Pixel_Format>& formats, v4l2_fmtdesc& entry)
{
    if (entry.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || entry.index >= formats.size()) {
        return -EINVAL;
    }
    const Format_Fact fact = Fact_Of(formats[entry.index].fourcc);
    const uint32_t index = std::exchange(entry, v4l2_fmtdesc{}).index;
    entry.index = index;
    entry.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    entry.flags = fact.bytes_per_pixel == 0 ? V4L2_FMT_FLAG_COMPRESSED : 0;
    entry.pixelformat = fact.fourcc;
    Copy_Text(entry.description, fact.name ? fact.name : Fourcc_Text(fact.fourcc));
    return 0;
}

int Enumerate_Size(const std::vector<Pixel_Format>& formats, v4l2_frmsizeenum& entry)
{
    const Pixel_Format* format = Find(formats, entry.pixel_format);
    if (!format || entry.index >= format->sizes.size()) {
        return -EINVAL;
    }
    const Frame_Size& size = format->sizes[entry.index];
    std::fill(std::begin(entry.reserved), std::end(entry.reserved), 0U);
    if (size.Is_Range()) {
        entry.type = V4L2_FRMSIZE_TYPE_STEPWISE;
        entry.stepwise = {size.width, size.max_width, size.step_width, size.height, size.max_height, size.step_height};
    } else {
        entry.type = V4L2_FRMSIZE_TYPE_DISCRETE;
        entry.discrete = {size.width, size.height};
    }
    return 0;
}

int Enumerate_Interval(const std::vector<Pixel_Format>& formats, v4l2_frmivalenum& entry)
{
    const Pixel_Format* format = Find(formats, entry.pixel_format);
    if (!format) {
        return -EINVAL;
    }
    const auto size = std::find_if(format->sizes.begin(), format->sizes.end(),
                                   [&entry](const Frame_Size& s) { return Holds(s, entry.width, entry.height); });
    if (size == format->sizes.end() || entry.index >= (size->stepwise_intervals ? 1 : size->intervals.size())) {
        return -EINVAL;
    }
    std::fill(std::begin(entry.reserved), std::end(entry.reserved), 0U);
    if (size->stepwise_intervals) {
        entry.type = V4L2_FRMIVAL_TYPE_STEPWISE;
        entry.stepwise = {size->intervals[0], size->intervals[1], size->intervals[2]};
    } else {
        entry.type = V4L2_FRMIVAL_TYPE_DISCRETE;
        entry.discrete = size->intervals[entry.index];
    }
    return 0;
}

}  // namespace virtual_camera
