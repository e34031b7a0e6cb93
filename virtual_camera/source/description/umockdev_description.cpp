// The device tree of the cameras as umockdev reads it, with the properties and links that udev's rules would add.
#include <virtual_camera/description.h>
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <set>

#include "description/description_parts.h"

namespace virtual_camera {
namespace {

constexpr unsigned Video_Major = 81;

std::string Format_Number(const char* format, unsigned value)
{
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

/// umockdev undoes the escapes of C in an attribute: written so, a value may have any bytes.
std::string Attribute(const char* name, const std::string& value)
{
    std::string escaped;
    for (const char c : value) {
        const bool plain = c >= ' ' && c <= '~' && c != '\\';
        escaped += plain ? std::string(1, c) : Format_Number("\\%03o", static_cast<unsigned char>(c));
    }
    return value.empty() ? "" : "A: " + std::string(name) + "=" + escaped + "\n";
}

/// @return the length of the UTF-8 character at `at`, 0 when there is none
size_t Character_Length(const std::string& text, size_t at)
{
    const auto lead = static_cast<unsigned char>(text[at]);
    const size_t length = lead < 0x80 ? 1 : lead < 0xc2 ? 0 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : lead < 0xf5 ? 4 : 0;
    for (size_t i = 1; i < length; i++) {
        const unsigned next = at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0;
        const unsigned least = i > 1 ? 0x80 : lead == 0xe0 ? 0xa0 : lead == 0xf0 ? 0x90 : 0x80;
        const unsigned most = i > 1 ? 0xbf : lead == 0xed ? 0x9f : lead == 0xf4 ? 0x8f : 0xbf;
        if (next < least || next > most) {
            return 0;
        }
    }
    return length;
}

/// umockdev takes only UTF-8 in a property: other bytes become '_', as udev writes them.
/// @param marks  the only ASCII characters kept beside letters and digits; null: all that can be printed
std::string Property_Value(const std::string& text, const char* marks)
{
    std::string value;
    for (size_t i = 0; i < text.size();) {
        const size_t length = Character_Length(text, i);
        const auto c = static_cast<unsigned char>(text[i]);
        const bool plain = marks ? std::isalnum(c) || std::strchr(marks, c) : std::isprint(c) != 0;
        value += length > 1 || (length == 1 && plain) ? text.substr(i, length) : "_";
        i += std::max(length, size_t{1});
    }
    return value;
}

/// A string of the device as udev makes it a part of names: blanks become one '_'.
std::string Udev_Name(const std::string& text)
{
    std::string name;
    for (const std::string& word : Split(text, " \t\r\v\f")) {
        name += (name.empty() ? "" : "_") + word;
    }
    return Property_Value(name, "#+-.:=@_");
}

std::string Name_Or_Id(const std::string& text, unsigned id)
{
    return text.empty() ? Format_Number("%04x", id) : Udev_Name(text);
}

std::string Property(const char* name, const std::string& value)
{
    return value.empty() ? "" : "E: " + std::string(name) + "=" + value + "\n";
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

std::string Usb_Serial(const Usb_Identity& usb)
{
    std::string serial = Name_Or_Id(usb.manufacturer, usb.vendor) + "_" + Name_Or_Id(usb.product, usb.product_id);
    return usb.serial.empty() ? serial : serial.append("_").append(Udev_Name(usb.serial));
}

std::string Usb_Properties(const Usb_Identity& usb)
{
    return Property("ID_BUS", "usb") + Property("ID_VENDOR_ID", Name_Or_Id("", usb.vendor)) +
           Property("ID_MODEL_ID", Name_Or_Id("", usb.product_id)) +
           Property("ID_VENDOR", Name_Or_Id(usb.manufacturer, usb.vendor)) +
           Property("ID_MODEL", Name_Or_Id(usb.product, usb.product_id)) +
           Property("ID_REVISION", Name_Or_Id("", usb.bcd_device)) + Property("ID_SERIAL", Usb_Serial(usb)) +
           Property("ID_SERIAL_SHORT", Udev_Name(usb.serial)) + Property("ID_USB_INTERFACES", ":0e0100:0e0200:");
}

std::string Usb_Device(const Usb_Identity& usb)
{
    const std::string bus = Format_Number("%03u", usb.bus), device = Format_Number("%03u", usb.device);
    return "P: " + Usb_Path(usb) + "\nN: bus/usb/" + bus + "/" + device + "\nE: DEVNAME=/dev/bus/usb/" + bus + "/" +
           device + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nE: BUSNUM=" + bus + "\nE: DEVNUM=" + device + "\n" +
           Attribute("idVendor", Name_Or_Id("", usb.vendor)) + Attribute("idProduct", Name_Or_Id("", usb.product_id)) +
           Attribute("bcdDevice", Name_Or_Id("", usb.bcd_device)) + Attribute("speed", std::to_string(usb.speed)) +
           Attribute("version", usb.speed < 5000 ? " 2.00" : " 3.20") + Attribute("busnum", std::to_string(usb.bus)) +
           Attribute("devnum", std::to_string(usb.device)) + Attribute("manufacturer", usb.manufacturer) +
           Attribute("product", usb.product) + Attribute("serial", usb.serial) + "\nP: " + Usb_Interface_Path(usb) +
           "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_interface\n" + Attribute("bInterfaceNumber", "00") +
           Attribute("bInterfaceClass", "0e") + "\n";
}

/// Cameras that cannot be told apart share a link, which leads to the first of them.
std::string Links(const std::vector<std::string>& names, std::set<std::string>& described)
{
    std::string lines, all;
    for (const std::string& name : names) {
        lines += described.insert(name).second ? "S: " + name + "\n" : "";
        all += (all.empty() ? "/dev/" : " /dev/") + name;
    }
    return lines + Property("DEVLINKS", all);
}

std::string Video_Node(const Camera_Description& camera, const std::string& parent, bool is_metadata,
                       std::set<std::string>& described)
{
    constexpr size_t Most_Bytes = 31;  // of a name, with which the kernel's drivers fill 32 bytes
    const std::string path = is_metadata ? camera.metadata_node : camera.capture_node;
    const std::string name = Node_Name(path), minor = std::to_string(Node_Number(path));
    const std::string card = camera.card.substr(0, Most_Bytes), end = is_metadata ? "-video-index1" : "-video-index0";
    const std::string place = camera.usb ? "pci-0000:00:14.0-usb-0:" + std::to_string(camera.usb->port) + ":1.0"
                                         : "platform-" + Node_Name(camera.capture_node);
    std::vector<std::string> links{"v4l/by-path/" + place + end};
    if (camera.usb) {
        links.push_back("v4l/by-id/usb-" + Usb_Serial(*camera.usb) + end);
    }
    // A node with contents is a plain file: umockdev makes a terminal of others, which needs /dev/pts.
    return "P: " + parent + "/video4linux/" + name + "\nN: " + name + "=00\n" + Property("DEVNAME", path) +
           Property("SUBSYSTEM", "video4linux") + Property("MAJOR", std::to_string(Video_Major)) +
           Property("MINOR", minor) + Property("ID_V4L_VERSION", "2") +
           Property("ID_V4L_PRODUCT", Property_Value(card, nullptr)) +
           Property("ID_V4L_CAPABILITIES", is_metadata ? ":" : ":capture:") + Property("ID_PATH", place) +
           (camera.usb ? Usb_Properties(*camera.usb) + Property("ID_USB_INTERFACE_NUM", "00") : "") +
           Links(links, described) + Attribute("name", card) + Attribute("index", is_metadata ? "1" : "0") +
           Attribute("dev", std::to_string(Video_Major) + ":" + minor) + "L: device=../../../" + Node_Name(parent) +
           "\n\n";
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
        text += Video_Node(camera, parent, false, described);
        text += camera.has_metadata ? Video_Node(camera, parent, true, described) : "";
    }
    return text;
}

}  // namespace virtual_camera
