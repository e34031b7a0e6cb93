// The driver's enumerations of formats, sizes and intervals.
#include "Camera/camera_modes.h"

#include <cerrno>

#include "Camera/camera_explain.h"
#include "Camera/records.h"

namespace wqz_camera {

namespace {

// A driver whose enumeration does not end must not hang the caller or fill the memory. No camera offers so much.
constexpr uint32_t Most_Entries = 4096;  // of one list
constexpr size_t Most_Offers = 16384;    // in all

WQZ_Camera_Fraction Fraction(const v4l2_fract& value)
{
    return {value.numerator, value.denominator};
}

WQZ_Camera_Offer Format_Offer(const v4l2_fmtdesc& format)
{
    WQZ_Camera_Offer offer{};
    offer.fourcc = format.pixelformat;
    if ((format.flags & V4L2_FMT_FLAG_COMPRESSED) != 0) {
        offer.flags |= WQZ_CAMERA_OFFER_COMPRESSED;
    }
    if ((format.flags & V4L2_FMT_FLAG_EMULATED) != 0) {
        offer.flags |= WQZ_CAMERA_OFFER_EMULATED;
    }
    Store_Text(offer.format, Fourcc_Text(format.pixelformat));
    Store_Text(offer.description, Field_Text(format.description));
    return offer;
}

void Set_Size(WQZ_Camera_Offer& offer, uint32_t width, uint32_t height)
{
    offer.width_min = offer.width_max = width;
    offer.height_min = offer.height_max = height;
}

void Set_Sizes(WQZ_Camera_Offer& offer, const v4l2_frmsizeenum& size)
{
    if (size.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
        Set_Size(offer, size.discrete.width, size.discrete.height);
        return;
    }
    const bool continuous = size.type == V4L2_FRMSIZE_TYPE_CONTINUOUS;
    offer.width_min = size.stepwise.min_width;
    offer.width_max = size.stepwise.max_width;
    offer.width_step = continuous ? 1 : size.stepwise.step_width;
    offer.height_min = size.stepwise.min_height;
    offer.height_max = size.stepwise.max_height;
    offer.height_step = continuous ? 1 : size.stepwise.step_height;
}

void Set_Intervals(WQZ_Camera_Offer& offer, const v4l2_frmivalenum& interval)
{
    if (interval.type == V4L2_FRMIVAL_TYPE_DISCRETE) {
        offer.interval_min = offer.interval_max = Fraction(interval.discrete);
        return;
    }
    offer.interval_min = Fraction(interval.stepwise.min);
    offer.interval_max = Fraction(interval.stepwise.max);
    if (interval.type == V4L2_FRMIVAL_TYPE_STEPWISE) {
        offer.interval_step = Fraction(interval.stepwise.step);
    }
}

// Whether an enumeration has come to its end, or does not exist.
// @throws Failure  when the camera could not answer
bool Is_End(const Device_File& device, const char* step, int result)
{
    if (result == 0) {
        return false;
    }
    if (result != -EINVAL && result != -ENOTTY) {
        throw Step_Failure(device.Node(), step, -result);
    }
    return true;
}

// For a range of sizes this asks for the intervals of the largest size, which every smaller one has too.
void Add_Intervals(const Device_File& device, const WQZ_Camera_Offer& sizes, std::vector<WQZ_Camera_Offer>& offers)
{
    for (uint32_t index = 0; index < Most_Entries && offers.size() < Most_Offers; ++index) {
        v4l2_frmivalenum interval{};
        interval.index = index;
        interval.pixel_format = sizes.fourcc;
        interval.width = sizes.width_max;
        interval.height = sizes.height_max;
        if (Is_End(device, "list its frame intervals", device.Request(VIDIOC_ENUM_FRAMEINTERVALS, &interval))) {
            if (index == 0) {
                offers.push_back(sizes);
            }
            return;
        }
        offers.push_back(sizes);
        Set_Intervals(offers.back(), interval);
        if (interval.type != V4L2_FRMIVAL_TYPE_DISCRETE) {
            return;
        }
    }
}

// A driver that does not enumerate sizes offers the one that is set at present, adjusted to the format.
void Add_Present_Size(const Device_File& device, WQZ_Camera_Offer offer, std::vector<WQZ_Camera_Offer>& offers)
{
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (device.Request(VIDIOC_G_FMT, &format) == 0) {
        v4l2_format adjusted = format;
        adjusted.fmt.pix.pixelformat = offer.fourcc;
        if (device.Request(VIDIOC_TRY_FMT, &adjusted) == 0 && adjusted.fmt.pix.pixelformat == offer.fourcc) {
            format = adjusted;
        }
        Set_Size(offer, format.fmt.pix.width, format.fmt.pix.height);
        Add_Intervals(device, offer, offers);
    }
}

void Add_Sizes(const Device_File& device, const v4l2_fmtdesc& format, std::vector<WQZ_Camera_Offer>& offers)
{
    for (uint32_t index = 0; index < Most_Entries && offers.size() < Most_Offers; ++index) {
        v4l2_frmsizeenum size{};
        size.index = index;
        size.pixel_format = format.pixelformat;
        WQZ_Camera_Offer offer = Format_Offer(format);
        if (Is_End(device, "list its sizes", device.Request(VIDIOC_ENUM_FRAMESIZES, &size))) {
            if (index == 0) {
                Add_Present_Size(device, offer, offers);
            }
            return;
        }
        Set_Sizes(offer, size);
        Add_Intervals(device, offer, offers);
        if (size.type != V4L2_FRMSIZE_TYPE_DISCRETE) {
            return;
        }
    }
}

}  // namespace

std::vector<WQZ_Camera_Offer> List_Offers(const Device_File& device)
{
    std::vector<WQZ_Camera_Offer> offers;
    for (uint32_t index = 0; index < Most_Entries && offers.size() < Most_Offers; ++index) {
        v4l2_fmtdesc format{};
        format.index = index;
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (Is_End(device, "list its formats", device.Request(VIDIOC_ENUM_FMT, &format))) {
            break;
        }
        Add_Sizes(device, format, offers);
    }
    return offers;
}

}  // namespace wqz_camera
