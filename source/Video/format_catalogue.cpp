#include <algorithm>
#include <cstdio>
#include <iterator>

#include "Stream/retrying_ioctl.h"
#include "Video/Video_Device.h"

using device_request::xioctl;

namespace {

constexpr uint32_t Big_Endian = 1U << 31;  // the top bit of a FourCC

constexpr uint32_t Code(const char (&text)[5])
{
    return v4l2_fourcc(static_cast<uint32_t>(text[0]), static_cast<uint32_t>(text[1]), static_cast<uint32_t>(text[2]),
                       static_cast<uint32_t>(text[3]));
}

// Compared before the terminator is looked for, so 0 counts as supported: meant so.
constexpr uint32_t decoder_supported_formats[] = {Code("YUYV"),
                                                  Code("MJPG"),
                                                  Code("JPEG"),
                                                  Code("H264"),
                                                  Code("YVYU"),
                                                  Code("UYVY"),
                                                  Code("VYUY"),
                                                  Code("YYUV"),
                                                  Code("Y444"),
                                                  Code("YUVO"),
                                                  Code("YUVP"),
                                                  Code("YUV4"),
                                                  Code("Y41P"),
                                                  Code("GREY"),
                                                  Code("Y10B"),
                                                  Code("Y16 "),
                                                  Code("Y16 ") | Big_Endian,
                                                  Code("YU12"),
                                                  Code("422P"),
                                                  Code("YV12"),
                                                  Code("NV12"),
                                                  Code("NV21"),
                                                  Code("NV16"),
                                                  Code("NV61"),
                                                  Code("NV24"),
                                                  Code("NV42"),
                                                  Code("S501"),
                                                  Code("S505"),
                                                  Code("S508"),
                                                  Code("GBRG"),
                                                  Code("GRBG"),
                                                  Code("BA81"),
                                                  Code("RGGB"),
                                                  Code("RGB3"),
                                                  Code("BGR3"),
                                                  Code("RGB1"),
                                                  Code("RGBP"),
                                                  Code("RGBR"),
                                                  Code("R444"),
                                                  Code("RGBO"),
                                                  Code("RGBQ"),
                                                  Code("BGRH"),
                                                  Code("BGR4"),
                                                  Code("RGB4"),
                                                  Code("AR12"),
                                                  Code("XR12"),
                                                  Code("AR15"),
                                                  Code("XR15"),
                                                  Code("AR15") | Big_Endian,
                                                  Code("XR15") | Big_Endian,
                                                  Code("AR24"),
                                                  Code("XR24"),
                                                  Code("BA24"),
                                                  Code("BX24"),
                                                  0};

// The element at a position, the first one beyond the end, null with no elements.
template <typename Element>
Element* Element_At(std::list<Element>& list, uint32_t index)
{
    if (list.empty()) {
        return nullptr;
    }
    return &*std::next(list.begin(), index < list.size() ? index : 0);
}

// Asks for record 0, 1, 2, ... until the driver refuses or `take` says that it has enough.
// `prepare` fills a zeroed record. Returns the number of answers.
template <typename Record, typename Prepare, typename Take>
int32_t Enumerate(int32_t fd, uint32_t request, Prepare prepare, Take take)
{
    for (uint32_t index = 0;; ++index) {
        auto record = Record();
        prepare(record);
        record.index = index;
        if (xioctl(fd, request, &record) != 0) {
            return static_cast<int32_t>(index);
        }
        if (!take(record)) {
            return static_cast<int32_t>(index + 1);
        }
    }
}

template <typename Take>
int32_t Enumerate_Sizes(int32_t fd, uint32_t pixel_format, Take take)
{
    return Enumerate<v4l2_frmsizeenum>(
        fd, VIDIOC_ENUM_FRAMESIZES, [&](v4l2_frmsizeenum& size) { size.pixel_format = pixel_format; },
        [&](v4l2_frmsizeenum& size) {
            take(size);
            return true;
        });
}

template <typename Take>
int32_t Enumerate_Intervals(int32_t fd, const v4l2_frmsizeenum& size, Take take)
{
    return Enumerate<v4l2_frmivalenum>(
        fd, VIDIOC_ENUM_FRAMEINTERVALS,
        [&](v4l2_frmivalenum& interval) {
            interval.pixel_format = size.pixel_format;
            interval.width = size.discrete.width;
            interval.height = size.discrete.height;
        },
        [&](const v4l2_frmivalenum& interval) {
            take(interval);
            return interval.type != V4L2_FRMIVAL_TYPE_CONTINUOUS && interval.type != V4L2_FRMIVAL_TYPE_STEPWISE;
        });
}

}  // namespace

Resolution_Info::Resolution_Info() : S_Resolution()
{
}

Resolution_Info::~Resolution_Info() = default;

uint32_t Resolution_Info::Index_At_Numerator(uint32_t index)
{
    const v4l2_frmivalenum* interval = Element_At(LS_Frame_Rata, index);
    return interval == nullptr ? 0 : interval->discrete.numerator;
}

uint32_t Resolution_Info::Index_At_Denominator(uint32_t index)
{
    const v4l2_frmivalenum* interval = Element_At(LS_Frame_Rata, index);
    return interval == nullptr ? 0 : interval->discrete.denominator;
}

int32_t Resolution_Info::Width()
{
    return static_cast<int32_t>(S_Resolution.discrete.width);
}

int32_t Resolution_Info::High()
{
    return static_cast<int32_t>(S_Resolution.discrete.height);
}

uint32_t Resolution_Info::Size()
{
    return static_cast<uint32_t>(LS_Frame_Rata.size());
}

Format_Info::Format_Info() : S_Format()
{
}

Format_Info::~Format_Info() = default;

Resolution_Info_Base_Class* Format_Info::Index_At(uint32_t index)
{
    return Element_At(LC_Resolution_List, index);
}

int32_t Format_Info::Format()
{
    return static_cast<int32_t>(S_Format.pixelformat);
}

uint32_t Format_Info::Size()
{
    return static_cast<uint32_t>(LC_Resolution_List.size());
}

Format_Info_Base_Class* Video_Device::Index_At_Format_Info(uint32_t index)
{
    return Element_At(LC_Format_List, index);
}

int32_t Video_Device::Video_Frame_Format()
{
    return Enumerate<v4l2_fmtdesc>(
        Video_Device_FD, VIDIOC_ENUM_FMT, [](v4l2_fmtdesc& format) { format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE; },
        [this](v4l2_fmtdesc& format) {
            Format_Info& entry = LC_Format_List.emplace_back();
            entry.S_Format = format;
            printf("**%d\n", static_cast<int32_t>(LC_Format_List.size()));
            (void)Video_Frame_Sizes(format, &entry);
            return true;
        });
}

int32_t Video_Device::Video_Frame_Sizes(v4l2_fmtdesc& S_Fmt, Format_Info* pC_Format)
{
    pC_Format->S_Format = S_Fmt;
    return Enumerate_Sizes(Video_Device_FD, S_Fmt.pixelformat, [&](v4l2_frmsizeenum& size) {
        Resolution_Info& entry = pC_Format->LC_Resolution_List.emplace_back();
        entry.S_Resolution = size;
        (void)Video_Frame_Rate(size, &entry);
    });
}

int32_t Video_Device::Video_Frame_Sizes(v4l2_fmtdesc& S_Fmt)
{
    return Enumerate_Sizes(Video_Device_FD, S_Fmt.pixelformat,
                           [this](v4l2_frmsizeenum& size) { (void)Video_Frame_Rate(size); });
}

int32_t Video_Device::Video_Frame_Rate(v4l2_frmsizeenum& S_Fsize, Resolution_Info* pC_Resolution)
{
    pC_Resolution->S_Resolution = S_Fsize;
    return Enumerate_Intervals(Video_Device_FD, S_Fsize, [&](const v4l2_frmivalenum& interval) {
        pC_Resolution->LS_Frame_Rata.push_back(interval);
    });
}

int32_t Video_Device::Video_Frame_Rate(v4l2_frmsizeenum& fsize)
{
    return Enumerate_Intervals(Video_Device_FD, fsize, [](const v4l2_frmivalenum&) {});
}

int32_t Video_Device::Video_Frame_Format_support(uint32_t u_pixelformat)
{
    return std::find(std::begin(decoder_supported_formats), std::end(decoder_supported_formats), u_pixelformat) !=
                   std::end(decoder_supported_formats)
               ? 1
               : 0;
}
