// Finding capture nodes through udev, and describing their cameras.
#include "Camera/camera_list.h"

#include <fcntl.h>
#include <libudev.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "Camera/camera_explain.h"
#include "Camera/records.h"
#include "Camera/wait_point.h"

namespace wqz_camera {

namespace {

const char* Text_Or_Empty(const char* text)
{
    return text == nullptr ? "" : text;
}

std::string Attribute(udev_device* device, const char* name)
{
    return Text_Or_Empty(udev_device_get_sysattr_value(device, name));
}

std::string Property(udev_device* device, const char* name)
{
    return Text_Or_Empty(udev_device_get_property_value(device, name));
}

uint16_t Number(const std::string& text, int base)
{
    return static_cast<uint16_t>(std::strtoul(text.c_str(), nullptr, base));
}

unsigned long Node_Number(const Camera_Record& record)
{
    const std::string node = record.info.node;
    return std::strtoul(node.c_str() + std::min(node.find_first_of("0123456789"), node.size()), nullptr, 10);
}

std::string Without_Prefix(const std::string& path)
{
    const std::string prefix = "/sys/devices/";
    return path.compare(0, prefix.size(), prefix) == 0 ? path.substr(prefix.size()) : path;
}

void Store_Capability(WQZ_Camera_Info& info, const v4l2_capability& capability)
{
    Store_Text(info.card, Field_Text(capability.card));
    Store_Text(info.driver, Field_Text(capability.driver));
    Store_Text(info.location, Field_Text(capability.bus_info));
}

void Describe_Usb(Camera_Record& record, udev_device* usb)
{
    record.device = Text_Or_Empty(udev_device_get_syspath(usb));
    record.port = Text_Or_Empty(udev_device_get_sysname(usb));
    record.info.bus = Number(Attribute(usb, "busnum"), 10);
    record.info.vendor = Number(Attribute(usb, "idVendor"), 16);
    record.info.product = Number(Attribute(usb, "idProduct"), 16);
    record.info.release = Number(Attribute(usb, "bcdDevice"), 16);
    Store_Text(record.info.manufacturer, Attribute(usb, "manufacturer"));
    Store_Text(record.info.product_name, Attribute(usb, "product"));
    Store_Text(record.info.serial, Attribute(usb, "serial"));
}

// The USB bus gives each arrival a new device number, and the system makes a new node for it. The node's time of change
// does not tell arrivals apart, because a login changes who may open the node.
std::string Arrival(const char* node, udev_device* usb)
{
    struct statx made {};
    (void)statx(AT_FDCWD, node, 0, STATX_INO | STATX_BTIME, &made);
    std::string text = usb == nullptr ? "" : Attribute(usb, "devnum");
    for (const uint64_t part :
         {uint64_t{made.stx_ino}, static_cast<uint64_t>(made.stx_btime.tv_sec), uint64_t{made.stx_btime.tv_nsec}}) {
        text.append(".").append(std::to_string(part));
    }
    return text;
}

// Parents are borrowed from `device`.
void Describe_Place(Camera_Record& record, udev_device* device)
{
    udev_device* usb = udev_device_get_parent_with_subsystem_devtype(device, "usb", "usb_device");
    record.arrival = Arrival(record.info.node, usb);
    if (usb != nullptr) {
        Describe_Usb(record, usb);
    } else {
        udev_device* parent = udev_device_get_parent(device);
        record.device = Text_Or_Empty(udev_device_get_syspath(parent == nullptr ? device : parent));
        record.port = Without_Prefix(record.device);
    }
    const std::string path = Property(device, "ID_PATH");
    if (!path.empty()) {
        record.port = path;
    }
}

// For nodes that this user may not open: takes udev's word, and without one the first node of a driver.
bool Seems_To_Capture(udev_device* device)
{
    const std::string capabilities = Property(device, "ID_V4L_CAPABILITIES");
    return capabilities.empty() ? Attribute(device, "index") == "0"
                                : capabilities.find(":capture:") != std::string::npos;
}

// Appends a record when pictures come from the node.
void Scan_Node(udev* context, const char* syspath, std::vector<Camera_Record>& list)
{
    const Udev_Owner<udev_device> device(udev_device_new_from_syspath(context, syspath));
    const char* node = device ? udev_device_get_devnode(device.get()) : nullptr;
    if (node == nullptr || std::string(Text_Or_Empty(udev_device_get_sysname(device.get()))).find("video") != 0) {
        return;
    }
    Camera_Record record;
    Store_Text(record.info.node, node);
    const Device_File file(node);
    v4l2_capability capability{};
    const int error = file.Error() != 0 ? file.Error() : -file.Request(VIDIOC_QUERYCAP, &capability);
    if (error == 0) {
        if (!Captures_Pictures(capability)) {
            return;
        }
        Store_Capability(record.info, capability);
    } else if (error == ENOENT || error == ENODEV || error == ENXIO || !Seems_To_Capture(device.get())) {
        return;
    } else {
        record.info.error = -error;
        Store_Text(record.info.card, Attribute(device.get(), "name"));
    }
    Describe_Place(record, device.get());
    list.push_back(std::move(record));
}

std::string Ids(const WQZ_Camera_Info& info)
{
    char text[16];
    (void)snprintf(text, sizeof text, "%04x:%04x", info.vendor, info.product);
    return text;
}

bool Same_Model(const WQZ_Camera_Info& one, const WQZ_Camera_Info& other)
{
    return one.vendor == other.vendor && one.product == other.product && std::string(one.serial) == other.serial;
}

std::string Identity(const Camera_Record& record, const std::vector<Camera_Record>& list)
{
    const WQZ_Camera_Info& info = record.info;
    std::string suffix;
    if (record.ordinal > 1) {
        suffix.append("#").append(std::to_string(record.ordinal));
    }
    if (info.vendor == 0 && info.product == 0) {
        return record.port + suffix;
    }
    const bool serial_is_shared = std::any_of(list.begin(), list.end(), [&](const Camera_Record& other) {
        return other.device != record.device && Same_Model(other.info, info);
    });
    if (info.serial[0] == '\0' || serial_is_shared) {
        return Ids(info) + "@" + record.port + suffix;
    }
    return Ids(info) + ":" + info.serial + suffix;
}

void Number_And_Name(std::vector<Camera_Record>& list)
{
    std::sort(list.begin(), list.end(), [](const Camera_Record& one, const Camera_Record& other) {
        return Node_Number(one) < Node_Number(other);
    });
    for (size_t i = 0; i < list.size(); ++i) {
        list[i].info.index = static_cast<uint32_t>(i);
        list[i].ordinal += static_cast<uint32_t>(
            std::count_if(list.begin(), list.begin() + static_cast<std::ptrdiff_t>(i),
                          [&](const Camera_Record& earlier) { return earlier.device == list[i].device; }));
    }
    for (Camera_Record& record : list) {
        Store_Text(record.info.identity, Identity(record, list));
    }
}

}  // namespace

bool Captures_Pictures(const v4l2_capability& capability)
{
    return (Node_Capabilities(capability) & V4L2_CAP_VIDEO_CAPTURE) != 0;
}

std::vector<Camera_Record> List_Cameras()
{
    const Udev_Owner<udev> context(udev_new());
    const Udev_Owner<udev_enumerate> enumeration(context ? udev_enumerate_new(context.get()) : nullptr);
    if (!enumeration || udev_enumerate_add_match_subsystem(enumeration.get(), "video4linux") < 0 ||
        udev_enumerate_scan_devices(enumeration.get()) < 0) {
        throw Failure(EIO, "The list of devices cannot be read from udev; is /sys mounted?");
    }
    std::vector<Camera_Record> list;
    for (udev_list_entry* entry = udev_enumerate_get_list_entry(enumeration.get()); entry != nullptr;
         entry = udev_list_entry_get_next(entry)) {
        Scan_Node(context.get(), udev_list_entry_get_name(entry), list);
    }
    Number_And_Name(list);
    return list;
}

std::optional<Camera_Record> Describe_Unlisted(const Device_File& device)
{
    v4l2_capability capability{};
    const int result = device.Request(VIDIOC_QUERYCAP, &capability);
    if (result != 0 && result != -ENOTTY && result != -EINVAL) {
        throw Step_Failure(device.Node(), "say what it can do", -result);
    }
    if (result != 0 || !Captures_Pictures(capability)) {
        return std::nullopt;
    }
    Camera_Record record;
    Store_Text(record.info.node, device.Node());
    Store_Capability(record.info, capability);
    record.port = record.info.location;
    Store_Text(record.info.identity, record.port);
    return record;
}

// When another camera with the same serial came or went, the identity changes its form. The port still tells then.
const Camera_Record* Find_Again(const std::vector<Camera_Record>& list, const Camera_Record& wanted)
{
    const auto find = [&](auto matches) {
        const auto found = std::find_if(list.begin(), list.end(), matches);
        return found == list.end() ? nullptr : &*found;
    };
    if (const Camera_Record* same = find(
            [&](const Camera_Record& record) { return std::string(record.info.identity) == wanted.info.identity; })) {
        return same;
    }
    return find([&](const Camera_Record& record) {
        return Same_Model(record.info, wanted.info) && record.port == wanted.port && record.ordinal == wanted.ordinal;
    });
}

}  // namespace wqz_camera
