// Describes a virtual camera: its place on the bus, nodes, formats, controls and faults. Tests fill these records in;
// Parse_Description reads them from text.
#ifndef WQZ_VIRTUAL_CAMERA_DESCRIPTION_H
#define WQZ_VIRTUAL_CAMERA_DESCRIPTION_H

#include <linux/videodev2.h>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace virtual_camera {

/// One frame size, or a range of sizes when `step_width` is not 0, with its frame intervals.
struct Frame_Size {
    uint32_t width = 0;   ///< the smallest of a range
    uint32_t height = 0;  ///< the smallest of a range
    uint32_t max_width = 0;
    uint32_t max_height = 0;
    uint32_t step_width = 0;
    uint32_t step_height = 0;
    /// Seconds per frame, the shortest first; shortest, longest and step when `stepwise_intervals`.
    std::vector<v4l2_fract> intervals;
    bool stepwise_intervals = false;

    bool Is_Range() const { return step_width != 0; }
};

struct Pixel_Format {
    uint32_t fourcc = 0;
    std::vector<Frame_Size> sizes;
};

struct Control {
    uint32_t id = 0;
    std::string name;
    uint32_t type = V4L2_CTRL_TYPE_INTEGER;
    int32_t minimum = 0;
    int32_t maximum = 0;
    int32_t step = 1;
    int32_t default_value = 0;
    bool is_signed = false;         ///< unsigned controls clamp negative values to the maximum
    std::vector<std::string> menu;  ///< an empty name marks an entry that the camera lacks
    uint32_t master = 0;            ///< id of the control that can make this one automatic, or 0
    int32_t master_manual = 0;      ///< the master's value that makes this one manual
};

struct Usb_Identity {
    uint16_t vendor = 0x1d6b;
    uint16_t product_id = 0x0102;
    uint16_t bcd_device = 0x0100;
    uint32_t bus = 1;
    uint32_t port = 1;
    uint32_t device = 2;
    uint32_t speed = 480;              ///< Mbit/s
    std::string manufacturer = "WQZ";  ///< here and below, an empty string leaves the attribute out
    std::string product = "Virtual Camera";
    std::string serial;
};

struct Refusal {
    uint32_t request = 0;  ///< a VIDIOC_ code, or one of the Call_ codes
    int error = 0;
    int times = -1;  ///< -1: always
};

std::vector<Pixel_Format> Default_Formats();
std::vector<Control> Default_Controls();

struct Camera_Description {
    std::string card = "Virtual Camera";
    std::string driver = "uvcvideo";
    std::string bus_info;  ///< empty: made from bus and port
    std::optional<Usb_Identity> usb = Usb_Identity{};
    std::string capture_node;   ///< "/dev/videoN"; empty: the next free number
    std::string metadata_node;  ///< likewise, if `has_metadata`
    bool has_metadata = true;
    std::vector<Pixel_Format> formats = Default_Formats();
    std::vector<Control> controls = Default_Controls();
    bool max_rate = false;  ///< a queued buffer is filled at once
    /// Motion-JPEG frames are filled with zeros up to a multiple of this many bytes; UINT32_MAX: the whole buffer.
    uint32_t jpeg_padding = 1;

    // Faults, counted in frames since streaming first began, or in seconds; 0: never.
    uint32_t unplug_after_frames = 0;
    double unplug_after_seconds = 0;
    double replug_after_seconds = 0;  ///< the camera comes back so long after any unplugging
    uint32_t pause_after_frames = 0;  ///< 0: `pause_seconds` come before the first frame
    double pause_seconds = 0;
    /// False: a driver that cannot free mapped buffers; VIDIOC_REQBUFS fails with EBUSY while there are mappings.
    bool orphans_buffers = true;
    uint32_t damage_every = 0;  ///< every Nth frame lacks its end
    std::vector<Refusal> refusals;
};

/// Codes of system calls, for use in place of VIDIOC_ codes.
constexpr uint32_t Call_Open = 1;
constexpr uint32_t Call_Close = 2;
constexpr uint32_t Call_Mmap = 3;
constexpr uint32_t Call_Munmap = 4;
constexpr uint32_t Call_Select = 5;

/// A description that cannot be understood. what() names the line.
struct Description_Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A USB camera with a capture and a metadata node, the formats MJPG, YUYV and GREY, and the usual controls.
/// @param index  gives each camera its own port, serial number, and nodes numbered 2 * index and 2 * index + 1
Camera_Description Usb_Camera(uint32_t index = 0);

/// A capture node without a USB device, as on a system-on-chip. `node` is its path.
Camera_Description Platform_Camera(const std::string& node);

/// Reads the text form (docs/virtual-camera.md lists its keywords).
/// @throw Description_Error
std::vector<Camera_Description> Parse_Description(const std::string& text);

/// The cameras' devices, as umockdev_testbed_add_from_string() and umockdev-run -d read them.
std::string Umockdev_Description(const std::vector<Camera_Description>& cameras);

/// "VIDIOC_QBUF", "open", ...; or a number when the code has no name.
std::string Request_Name(uint32_t request);

/// The code of a name, with or without "VIDIOC_", in either case; 0 when there is none.
uint32_t Request_Code(const std::string& name);

std::string Fourcc_Text(uint32_t fourcc);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_DESCRIPTION_H
