// Conversion of frames with any format, size, bytes and strides.
#include <linux/videodev2.h>

#include <cerrno>

#include "Camera/wqz_camera.h"
#include "fuzz/fuzz_input.h"

namespace {

constexpr uint32_t Formats[] = {
    V4L2_PIX_FMT_YUYV,     V4L2_PIX_FMT_UYVY,     V4L2_PIX_FMT_MJPEG,    V4L2_PIX_FMT_JPEG,
    V4L2_PIX_FMT_SBGGR8,   V4L2_PIX_FMT_SGBRG8,   V4L2_PIX_FMT_SGRBG8,   V4L2_PIX_FMT_SRGGB8,
    V4L2_PIX_FMT_SBGGR10,  V4L2_PIX_FMT_SRGGB12,  V4L2_PIX_FMT_SGRBG14,  V4L2_PIX_FMT_SRGGB16,
    V4L2_PIX_FMT_SBGGR10P, V4L2_PIX_FMT_SRGGB12P, V4L2_PIX_FMT_SGBRG14P, V4L2_PIX_FMT_GREY};
constexpr uint32_t Formats_Count = sizeof Formats / sizeof *Formats;
constexpr uint8_t Untouched = 0x5A;

bool Gaps_Are_Untouched(const std::vector<uint8_t>& pixels, uint32_t width, uint32_t height, uint32_t stride)
{
    for (uint32_t y = 0; y + 1 < height; ++y) {
        for (uint32_t x = width * 3; x < stride; ++x) {
            if (pixels[size_t{y} * stride + x] != Untouched) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fuzz_Input input(data, size);
    WQZ_Camera_Frame frame{};
    frame.size = sizeof frame;
    frame.fourcc = Formats[input.Below(Formats_Count)];
    frame.width = 1 + input.Below(150);
    frame.height = 1 + input.Below(40);
    frame.bytes_per_line = input.Take<uint16_t>() % 3 == 0 ? input.Take<uint32_t>() : input.Below(700);
    const uint32_t stride = frame.width * 3 + input.Below(20);
    const uint32_t layout = input.Below(2) + WQZ_CAMERA_PIXELS_BGR;
    const uint32_t missing = input.Below(8) == 0 ? 1 : 0;
    const std::vector<uint8_t> bytes = input.Rest();
    frame.data = bytes.empty() ? reinterpret_cast<const uint8_t*>("") : bytes.data();
    frame.length = bytes.size();
    std::vector<uint8_t> pixels(size_t{stride} * (frame.height - 1) + frame.width * 3 - missing, Untouched);
    pixels.shrink_to_fit();
    const int32_t result = WQZ_Camera_Convert(&frame, layout, pixels.data(), pixels.size(), stride);
    Require(result == 0 || result == -EINVAL || result == -EBADMSG || result == -ENOTSUP);
    Require(missing == 0 || result == -EINVAL || result == -ENOTSUP);
    Require(Gaps_Are_Untouched(pixels, frame.width, frame.height, stride));
    return 0;
}
