// Setting a mode and checking what the driver made of it.
#include "Camera/mode_setting.h"

#include <cerrno>

#include "Camera/camera_explain.h"
#include "Camera/camera_modes.h"
#include "Camera/records.h"

namespace wqz_camera {

namespace {

bool Is_Exact(const WQZ_Camera_Request& request)
{
    return (request.flags & WQZ_CAMERA_START_EXACT) != 0;
}

WQZ_Camera_Mode Wish(const WQZ_Camera_Request& request)
{
    WQZ_Camera_Mode mode{};
    mode.fourcc = request.fourcc;
    mode.width = request.width;
    mode.height = request.height;
    mode.interval = request.interval;
    return mode;
}

Failure Not_Offered(int error, const WQZ_Camera_Request& request, const std::vector<WQZ_Camera_Offer>& offers)
{
    const std::string nearest = Nearest_Modes(Wish(request), offers);
    return {error, "The camera does not offer " + Mode_Text(Wish(request)) +
                       (nearest.empty() ? "." : ". The nearest modes are " + nearest + ".")};
}

Failure Refused_Although_Offered(const WQZ_Camera_Request& request, const std::vector<WQZ_Camera_Offer>& offers)
{
    const std::string nearest = Nearest_Modes(Wish(request), offers);
    return {EINVAL, "The driver refused " + Mode_Text(Wish(request)) +
                        ", although the camera offers it. Plug the camera in again" +
                        (nearest.empty() ? "." : ", or choose another mode: " + nearest + ".")};
}

Failure Not_Confirmed(const WQZ_Camera_Request& request, const WQZ_Camera_Mode& mode)
{
    return {ENOTSUP, "The camera was asked for " + Mode_Text(Wish(request)) + ", which it offers, but its driver set " +
                         Mode_Text(mode) + "."};
}

void Set_Format(const Device_File& device, const WQZ_Camera_Request& request, WQZ_Camera_Mode& mode)
{
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.pixelformat = request.fourcc;
    format.fmt.pix.width = request.width;
    format.fmt.pix.height = request.height;
    const int result = device.Request(VIDIOC_S_FMT, &format);
    if (result == -EINVAL) {
        const std::vector<WQZ_Camera_Offer> offers = List_Offers(device);
        throw Offered_Interval(offers, request) ? Refused_Although_Offered(request, offers)
                                                : Not_Offered(EINVAL, request, offers);
    }
    if (result != 0) {
        throw Step_Failure(device.Node(), "set the format", -result);
    }
    mode.fourcc = format.fmt.pix.pixelformat;
    mode.width = format.fmt.pix.width;
    mode.height = format.fmt.pix.height;
    mode.bytes_per_line = format.fmt.pix.bytesperline;
    mode.image_size = format.fmt.pix.sizeimage;
    Store_Text(mode.format, Fourcc_Text(mode.fourcc));
}

// Some drivers have no rate to set but tell theirs. The mode of a driver without either has no interval.
void Set_Interval(const Device_File& device, const WQZ_Camera_Fraction& interval, WQZ_Camera_Mode& mode)
{
    v4l2_streamparm parameters{};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    int result = 0;
    if (Is_Known(interval)) {
        parameters.parm.capture.timeperframe = {interval.numerator, interval.denominator};
        result = device.Request(VIDIOC_S_PARM, &parameters);
    }
    if (!Is_Known(interval) || result == -ENOTTY) {
        parameters = v4l2_streamparm{};
        parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        result = device.Request(VIDIOC_G_PARM, &parameters);
    }
    if (result == -ENOTTY) {
        return;
    }
    if (result != 0) {
        throw Step_Failure(device.Node(), "set the frame rate", -result);
    }
    const v4l2_captureparm& accepted = parameters.parm.capture;
    const WQZ_Camera_Fraction told{accepted.timeperframe.numerator, accepted.timeperframe.denominator};
    if ((accepted.capability & V4L2_CAP_TIMEPERFRAME) != 0 && Is_Known(told)) {
        mode.interval = told;
    }
}

}  // namespace

WQZ_Camera_Mode Set_Mode(const Device_File& device, const WQZ_Camera_Request& request)
{
    WQZ_Camera_Fraction interval = request.interval;
    if (Is_Exact(request)) {
        const std::vector<WQZ_Camera_Offer> offers = List_Offers(device);
        const auto offered = Offered_Interval(offers, request);
        if (!offered) {
            throw Not_Offered(ENOTSUP, request, offers);
        }
        interval = *offered;
    }
    WQZ_Camera_Mode mode{};
    Set_Format(device, request, mode);
    Set_Interval(device, interval, mode);
    const bool as_asked = mode.fourcc == request.fourcc && mode.width == request.width &&
                          mode.height == request.height &&
                          (!Is_Known(interval) || Same_Interval(mode.interval, interval));
    if (Is_Exact(request) && !as_asked) {
        throw Not_Confirmed(request, mode);
    }
    return mode;
}

}  // namespace wqz_camera
