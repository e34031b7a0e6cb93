// The cameras that a test or the launcher gets without describing one.
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

Control Integer(uint32_t id, const char* name, int32_t minimum, int32_t maximum, int32_t value, bool is_signed = false)
{
    Control control;
    control.id = id;
    control.name = name;
    control.minimum = minimum;
    control.maximum = maximum;
    control.default_value = value;
    control.is_signed = is_signed;
    return control;
}

Control Boolean(uint32_t id, const char* name, int32_t value)
{
    Control control = Integer(id, name, 0, 1, value);
    control.type = V4L2_CTRL_TYPE_BOOLEAN;
    return control;
}

Control Menu(uint32_t id, const char* name, std::vector<std::string> entries, int32_t value)
{
    Control control = Integer(id, name, 0, static_cast<int32_t>(entries.size()) - 1, value);
    control.type = V4L2_CTRL_TYPE_MENU;
    control.menu = std::move(entries);
    return control;
}

Control Governed(Control control, uint32_t master, int32_t manual)
{
    control.master = master;
    control.master_manual = manual;
    return control;
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

// In the order of the ids, which is the order of enumeration.
std::vector<Control> Default_Controls()
{
    Control temperature = Integer(V4L2_CID_WHITE_BALANCE_TEMPERATURE, "White Balance Temperature", 2800, 6500, 4600);
    temperature.step = 10;
    return {
        Integer(V4L2_CID_BRIGHTNESS, "Brightness", 0, 255, 128, true),
        Integer(V4L2_CID_CONTRAST, "Contrast", 0, 255, 128),
        Integer(V4L2_CID_SATURATION, "Saturation", 0, 255, 128),
        Integer(V4L2_CID_HUE, "Hue", -180, 180, 0, true),
        Boolean(V4L2_CID_AUTO_WHITE_BALANCE, "White Balance, Automatic", 1),
        Integer(V4L2_CID_GAIN, "Gain", 0, 100, 0),
        Menu(V4L2_CID_POWER_LINE_FREQUENCY, "Power Line Frequency", {"Disabled", "50 Hz", "60 Hz"}, 1),
        Governed(temperature, V4L2_CID_AUTO_WHITE_BALANCE, 0),
        Integer(V4L2_CID_SHARPNESS, "Sharpness", 0, 255, 128),
        Menu(V4L2_CID_EXPOSURE_AUTO, "Auto Exposure", {"", "Manual Mode", "", "Aperture Priority Mode"}, 3),
        Governed(Integer(V4L2_CID_EXPOSURE_ABSOLUTE, "Exposure Time, Absolute", 3, 2047, 250), V4L2_CID_EXPOSURE_AUTO,
                 V4L2_EXPOSURE_MANUAL),
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
    camera.formats = Default_Formats();
    camera.controls = Default_Controls();
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
    camera.formats = Default_Formats();
    camera.controls = Default_Controls();
    return camera;
}

}  // namespace virtual_camera
