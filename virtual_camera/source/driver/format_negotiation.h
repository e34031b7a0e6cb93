// Chooses the mode nearest to the one a program asks for, and lists formats, sizes and intervals.
#ifndef WQZ_VIRTUAL_CAMERA_FORMAT_NEGOTIATION_H
#define WQZ_VIRTUAL_CAMERA_FORMAT_NEGOTIATION_H

#include <virtual_camera/description.h>

namespace virtual_camera {

/// Copies a text into a field of a kernel record, cut to fit.
template <size_t Size>
void Copy_Text(uint8_t (&target)[Size], const std::string& text)
{
    target[text.copy(reinterpret_cast<char*>(target), Size - 1)] = 0;
}

struct Video_Mode {
    uint32_t fourcc = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    Frame_Size size;  ///< the description's entry, with the intervals
    v4l2_fract interval = {1, 30};
};

/// The nearest mode: the first format when the camera lacks the one asked for, the size with the least area that
/// differs, and that size's first interval.
Video_Mode Nearest_Mode(const std::vector<Pixel_Format>& formats, uint32_t fourcc, uint32_t width, uint32_t height);

v4l2_fract Nearest_Interval(const Frame_Size& size, v4l2_fract wanted);

uint32_t Image_Size(const Video_Mode& mode);
bool Is_Compressed(uint32_t fourcc);
void Fill_Format(const Video_Mode& mode, v4l2_pix_format& pix);

// Enumerations give 0 or -EINVAL, and fill their argument on success.
int Enumerate_Format(const std::vector<Pixel_Format>& formats, v4l2_fmtdesc& entry);
int Enumerate_Size(const std::vector<Pixel_Format>& formats, v4l2_frmsizeenum& entry);
int Enumerate_Interval(const std::vector<Pixel_Format>& formats, v4l2_frmivalenum& entry);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_FORMAT_NEGOTIATION_H
