// Discovery: the video4linux nodes of udev that answer as V4L2 devices.
#include "Video/usb_video_enum.h"

#include <fcntl.h>
#include <libudev.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

namespace {

struct Udev_Release {
    void operator()(udev* context) const { udev_unref(context); }
    void operator()(udev_enumerate* enumeration) const { udev_enumerate_unref(enumeration); }
};

std::optional<v4l2_capability> Query_Capability(const char* node)
{
    const int fd = open(node, O_RDWR | O_NONBLOCK);
    v4l2_capability capability{};
    const bool answered = fd >= 0 && ioctl(fd, VIDIOC_QUERYCAP, &capability) >= 0;
    (void)close(fd);
    return answered ? std::optional(capability) : std::nullopt;
}

char* Checked(char* duplicate)
{
    if (duplicate == nullptr) {
        throw std::bad_alloc();
    }
    return duplicate;
}

// A driver may fill its field without a terminator.
template <std::size_t N>
char* Duplicate_Field(const __u8 (&field)[N])
{
    return Checked(strndup(reinterpret_cast<const char*>(field), N));
}

// `target` is zero-filled and keeps a terminator.
template <std::size_t N>
void Copy_Text(char (&target)[N], const char* text)
{
    if (text != nullptr) {
        std::memcpy(target, text, std::min(std::strlen(text), N - 1));
    }
}

uint64_t Attribute_Number(udev_device* device, const char* name, int base)
{
    const char* text = udev_device_get_sysattr_value(device, name);
    return text == nullptr ? 0 : strtoull(text, nullptr, base);
}

void Describe_Node(v4l2_dev_sys_data_t& record, const char* node, const v4l2_capability& capability)
{
    record.device = Checked(strdup(node));
    record.name = Duplicate_Field(capability.card);
    record.driver = Duplicate_Field(capability.driver);
    record.location = Duplicate_Field(capability.bus_info);
    record.valid = 1;
    record.current = 0;
}

void Describe_Usb_Device(v4l2_dev_sys_data_t& record, const char* node, udev_device* parent)
{
    record.vendor = static_cast<uint32_t>(Attribute_Number(parent, "idVendor", 16));
    record.product = static_cast<uint32_t>(Attribute_Number(parent, "idProduct", 16));
    record.busnum = Attribute_Number(parent, "busnum", 10);
    record.devnum = Attribute_Number(parent, "bcdDevice", 16);
    Copy_Text(record.Device_Path, node);
    Copy_Text(record.iManufacturer, udev_device_get_sysattr_value(parent, "manufacturer"));
    Copy_Text(record.iProduct, udev_device_get_sysattr_value(parent, "product"));
    Copy_Text(record.iSerialNumber, udev_device_get_sysattr_value(parent, "serial"));
    record.Vid = static_cast<uint16_t>(record.vendor);
    record.Pid = static_cast<uint16_t>(record.product);
    record.Bcd = static_cast<uint16_t>(record.devnum);
}

// Appends a record for the node when it answers.
void Scan_Node(udev* context, const char* syspath, std::list<v4l2_dev_sys_data_t>& records)
{
    udev_device* device = udev_device_new_from_syspath(context, syspath);
    const char* node = device == nullptr ? nullptr : udev_device_get_devnode(device);
    if (node == nullptr) {
        return;
    }
    const std::optional<v4l2_capability> capability = Query_Capability(node);
    if (!capability) {
        return;
    }
    v4l2_dev_sys_data_t& record = records.emplace_back();
    Describe_Node(record, node, *capability);
    udev_device* parent = udev_device_get_parent_with_subsystem_devtype(device, "usb", "usb_device");
    if (parent == nullptr) {
        return;
    }
    Describe_Usb_Device(record, node, parent);
    // `device` owns the one reference to its parent that is released here. Releasing `device` too would release the
    // parent twice, so `device` stays allocated: about 5 KB for each node and scan.
    udev_device_unref(parent);
}

}  // namespace

USBDev_Message::USBDev_Message() : S_V4L2_Device_List_Index()
{
}

USBDev_Message::~USBDev_Message() = default;

USB_Video_Enum::USB_Video_Enum()
{
    v4l2_device_list_t& scan = C_Dev_Mes.S_V4L2_Device_List_Index;
    const std::unique_ptr<udev, Udev_Release> context(udev_new());
    if (context == nullptr) {
        return;
    }
    scan.udev = context.get();
    {
        const std::unique_ptr<udev_enumerate, Udev_Release> enumeration(udev_enumerate_new(context.get()));
        (void)udev_enumerate_add_match_subsystem(enumeration.get(), "video4linux");
        (void)udev_enumerate_scan_devices(enumeration.get());
        for (udev_list_entry* entry = udev_enumerate_get_list_entry(enumeration.get()); entry != nullptr;
             entry = udev_list_entry_get_next(entry)) {
            Scan_Node(context.get(), udev_list_entry_get_name(entry), C_Dev_Mes.V4l2_dev_message);
        }
    }
    scan.num_devices = static_cast<uint32_t>(C_Dev_Mes.V4l2_dev_message.size());
    scan.udev = nullptr;
}
