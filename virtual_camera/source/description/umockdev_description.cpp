#include <virtual_camera/description.h>
#include <cstdio>
#include <set>

#include "description/description_completion.h"

namespace virtual_camera {
namespace {

constexpr unsigned Video_Major = 81;

std::string Format_Number(const char* format, unsigned value)
{
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string Attribute(const char* name, const std::string& value)
{
    return value.empty() ? "" : "A: " + std::string(name) + "=" + value + "\n";
}

std::string Usb_Path(const Usb_Identity& usb)
{
    const std::string bus = std::to_string(usb.bus);
    return "/devices/pci0000:00/0000:00:14.0/usb" + bus + "/" + bus + "-" + std::to_string(usb.port);
}

std::string Usb_Interface_Path(const Usb_Identity& usb)
{
    return Usb_Path(usb) + "/" + std::to_string(usb.bus) + "-" + std::to_string(usb.port) + ":1.0";
}

std::string Usb_Device(const Usb_Identity& usb)
{
    const std::string node = Format_Number("bus/usb/%03u/", usb.bus) + Format_Number("%03u", usb.device);
    std::string text = "P: " + Usb_Path(usb) + "\nN: " + node + "\nE: DEVNAME=/dev/" + node +
                       "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: BUSNUM=" + Format_Number("%03u", usb.bus) +
                       "\nE: DEVNUM=" + Format_Number("%03u", usb.device) + "\n";
    text += Attribute("idVendor", Format_Number("%04x", usb.vendor));
    text += Attribute("idProduct", Format_Number("%04x", usb.product_id));
    text += Attribute("bcdDevice", Format_Number("%04x", usb.bcd_device));
    text += Attribute("busnum", std::to_string(usb.bus)) + Attribute("devnum", std::to_string(usb.device));
    text += Attribute("manufacturer", usb.manufacturer) + Attribute("product", usb.product);
    text += Attribute("serial", usb.serial) + "\n";
    return text + "P: " + Usb_Interface_Path(usb) + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\n" +
           Attribute("bInterfaceNumber", "00") + "\n";
}

std::string Video_Node(const std::string& parent, const std::string& path, const std::string& card, unsigned index)
{
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string minor = std::to_string(Node_Number(path));
    return "P: " + parent + "/video4linux/" + name + "\nN: " + name + "\nE: DEVNAME=/dev/" + name +
           "\nE: SUBSYSTEM=video4linux\nE: MAJOR=" + std::to_string(Video_Major) + "\nE: MINOR=" + minor + "\n" +
           Attribute("name", card) + Attribute("index", std::to_string(index)) +
           Attribute("dev", std::to_string(Video_Major) + ":" + minor) + "\n";
}

}  // namespace

std::string Umockdev_Description(const std::vector<Camera_Description>& cameras)
{
    std::string text;
    std::set<std::string> described;
    for (const Camera_Description& camera : cameras) {
        std::string parent = "/devices/platform/" + Node_Name(camera.capture_node);
        if (camera.usb) {
            parent = Usb_Interface_Path(*camera.usb);
        }
        if (camera.usb && described.insert(parent).second) {
            text += Usb_Device(*camera.usb);
        } else if (!camera.usb) {
            text += "P: " + parent + "\nE: SUBSYSTEM=platform\n\n";
        }
        text += Video_Node(parent, camera.capture_node, camera.card, 0);
        if (camera.has_metadata) {
            text += Video_Node(parent, camera.metadata_node, camera.card, 1);
        }
    }
    return text;
}

}  // namespace virtual_camera
