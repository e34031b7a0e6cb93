// The catalogue of formats, sizes and frame intervals.
#include <algorithm>
#include <cstdio>
#include <iterator>

#include "Device/retrying_ioctl.h"
#include "Video/Video_Device.h"

using device_request::xioctl;

namespace {

constexpr uint32_t Big_Endian = 1U << 31;  // the top bit of a FourCC

constexpr uint32_t Code(const char (&text)[5])
{
    return v4l2_fourcc(static_cast<uint32_t>(text[0]), static_cast<uint32_t>(text[1]), static_cast<uint32_t>(text[2]),
                       static_cast<uint32_t>(text[3]));
}

// Every entry is compared, the terminator too, so 0 counts as supported. Programs that use the class rely on it.
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

// The one answer stands for a whole range of intervals.
bool Is_Interval_Range(const v4l2_frmivalenum& interval)
{
    return interval.type == V4L2_FRMIVAL_TYPE_CONTINUOUS || interval.type == V4L2_FRMIVAL_TYPE_STEPWISE;
}

// Asks for the record at a position of a list. The driver refuses the first position beyond its end.
bool Ask_Format(int32_t fd, uint32_t index, v4l2_fmtdesc& format)
{
    format = v4l2_fmtdesc();
    format.index = index;
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return xioctl(fd, VIDIOC_ENUM_FMT, &format) == 0;
}

bool Ask_Size(int32_t fd, uint32_t index, uint32_t pixel_format, v4l2_frmsizeenum& size)
{
    size = v4l2_frmsizeenum();
    size.index = index;
    size.pixel_format = pixel_format;
    return xioctl(fd, VIDIOC_ENUM_FRAMESIZES, &size) == 0;
}

bool Ask_Interval(int32_t fd, uint32_t index, const v4l2_frmsizeenum& size, v4l2_frmivalenum& interval)
{
    interval = v4l2_frmivalenum();
    interval.index = index;
    interval.pixel_format = size.pixel_format;
    interval.width = size.discrete.width;
    interval.height = size.discrete.height;
    return xioctl(fd, VIDIOC_ENUM_FRAMEINTERVALS, &interval) == 0;
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
    uint32_t index = 0;
    for (v4l2_fmtdesc format; Ask_Format(Video_Device_FD, index, format); ++index) {
        Format_Info& entry = LC_Format_List.emplace_back();
        entry.S_Format = format;
        printf("**%d\n", static_cast<int32_t>(LC_Format_List.size()));
        (void)Video_Frame_Sizes(format, &entry);
    }
    return static_cast<int32_t>(index);
}

int32_t Video_Device::Video_Frame_Sizes(v4l2_fmtdesc& S_Fmt, Format_Info* pC_Format)
{
    pC_Format->S_Format = S_Fmt;
    uint32_t index = 0;
    for (v4l2_frmsizeenum size; Ask_Size(Video_Device_FD, index, S_Fmt.pixelformat, size); ++index) {
        Resolution_Info& entry = pC_Format->LC_Resolution_List.emplace_back();
        entry.S_Resolution = size;
        (void)Video_Frame_Rate(size, &entry);
    }
    return static_cast<int32_t>(index);
}

int32_t Video_Device::Video_Frame_Sizes(v4l2_fmtdesc& S_Fmt)
{
    uint32_t index = 0;
    for (v4l2_frmsizeenum size; Ask_Size(Video_Device_FD, index, S_Fmt.pixelformat, size); ++index) {
        (void)Video_Frame_Rate(size);
    }
    return static_cast<int32_t>(index);
}

int32_t Video_Device::Video_Frame_Rate(v4l2_frmsizeenum& S_Fsize, Resolution_Info* pC_Resolution)
{
    pC_Resolution->S_Resolution = S_Fsize;
    uint32_t index = 0;
    for (v4l2_frmivalenum interval; Ask_Interval(Video_Device_FD, index, S_Fsize, interval);) {
        pC_Resolution->LS_Frame_Rata.push_back(interval);
        ++index;
        if (Is_Interval_Range(interval)) {
            break;
        }
    }
    return static_cast<int32_t>(index);
}

int32_t Video_Device::Video_Frame_Rate(v4l2_frmsizeenum& fsize)
{
    uint32_t index = 0;
    for (v4l2_frmivalenum interval; Ask_Interval(Video_Device_FD, index, fsize, interval);) {
        ++index;
        if (Is_Interval_Range(interval)) {
            break;
        }
    }
    return static_cast<int32_t>(index);
}

int32_t Video_Device::Video_Frame_Format_support(uint32_t u_pixelformat)
{
    return std::find(std::begin(decoder_supported_formats), std::end(decoder_supported_formats), u_pixelformat) !=
                   std::end(decoder_supported_formats)
               ? 1
               : 0;
}
