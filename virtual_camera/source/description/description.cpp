// The default cameras.
#include <virtual_camera/description.h>
#include <cstdio>

namespace virtual_camera {
namespace {

Frame_Size Discrete(uint32_t width, uint32_t height, std::initializer_list<uint32_t> rates)
{
    Frame_Size size;
    size.width = size.max_width = width;
    size.height = size.max_height = height;
    for (uint32_t rate : rates) {
        size.intervals.push_back({1, rate});
    }
    return size;
}

}  // namespace

std::vector<Pixel_Format> Default_Formats()
{
    return {
        {V4L2_PIX_FMT_MJPEG,
         {Discrete(1920, 1080, {30, 15}), Discrete(1280, 720, {30, 15}), Discrete(640, 480, {60, 30, 15}),
          Discrete(320, 240, {60, 30, 15})}},
        {V4L2_PIX_FMT_YUYV,
         {Discrete(640, 480, {30, 15}), Discrete(1920, 1080, {5}), Discrete(1280, 720, {10, 5}),
          Discrete(320, 240, {30, 15})}},
        {V4L2_PIX_FMT_GREY, {Discrete(640, 480, {30, 15}), Discrete(320, 240, {30, 15})}},
    };
}

// Sorted by id, which is the order of enumeration.
std::vector<Control> Default_Controls()
{
    constexpr uint32_t Integer = V4L2_CTRL_TYPE_INTEGER, Boolean = V4L2_CTRL_TYPE_BOOLEAN, Menu = V4L2_CTRL_TYPE_MENU;
    constexpr uint32_t Temperature = V4L2_CID_WHITE_BALANCE_TEMPERATURE, Auto_Balance = V4L2_CID_AUTO_WHITE_BALANCE;
    constexpr uint32_t Auto_Exposure = V4L2_CID_EXPOSURE_AUTO;  // V4L2_EXPOSURE_MANUAL is 1
    const std::vector<std::string> frequencies{"Disabled", "50 Hz", "60 Hz"};
    const std::vector<std::string> exposures{"", "Manual Mode", "", "Aperture Priority Mode"};
    return {
        {V4L2_CID_BRIGHTNESS, "Brightness", Integer, 0, 255, 1, 128, true, {}, 0, 0},
        {V4L2_CID_CONTRAST, "Contrast", Integer, 0, 255, 1, 128, false, {}, 0, 0},
        {V4L2_CID_SATURATION, "Saturation", Integer, 0, 255, 1, 128, false, {}, 0, 0},
        {V4L2_CID_HUE, "Hue", Integer, -180, 180, 1, 0, true, {}, 0, 0},
        {Auto_Balance, "White Balance, Automatic", Boolean, 0, 1, 1, 1, false, {}, 0, 0},
        {V4L2_CID_GAIN, "Gain", Integer, 0, 100, 1, 0, false, {}, 0, 0},
        {V4L2_CID_POWER_LINE_FREQUENCY, "Power Line Frequency", Menu, 0, 2, 1, 1, false, frequencies, 0, 0},
        {Temperature, "White Balance Temperature", Integer, 2800, 6500, 10, 4600, false, {}, Auto_Balance, 0},
        {V4L2_CID_SHARPNESS, "Sharpness", Integer, 0, 255, 1, 128, false, {}, 0, 0},
        {Auto_Exposure, "Auto Exposure", Menu, 0, 3, 1, 3, false, exposures, 0, 0},
        {V4L2_CID_EXPOSURE_ABSOLUTE, "Exposure Time, Absolute", Integer, 3, 2047, 1, 250, false, {}, Auto_Exposure, 1},
    };
}

Camera_Description Usb_Camera(uint32_t index)
{
    Camera_Description camera;
    camera.usb->port = index + 1;
    camera.usb->device = index + 2;
    char serial[16];
    std::snprintf(serial, sizeof serial, "%04u", index + 1);
    camera.usb->serial = serial;
    camera.capture_node = "/dev/video" + std::to_string(2 * index);
    camera.metadata_node = "/dev/video" + std::to_string(2 * index + 1);
    return camera;
}

Camera_Description Platform_Camera(const std::string& node)
{
    Camera_Description camera;
    camera.card = "Virtual Platform Camera";
    camera.driver = "platform-camera";
    camera.bus_info = "platform:virtual-camera";
    camera.usb.reset();
    camera.capture_node = node;
    camera.has_metadata = false;
    return camera;
}

}  // namespace virtual_camera
