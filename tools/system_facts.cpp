// Reads what the kernel tells about cameras.
#include "system_facts.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

namespace {

namespace fs = std::filesystem;

constexpr const char* Video_Class = "0e";     // bInterfaceClass of the USB Video Class
constexpr uint32_t Least_Super_Speed = 5000;  // Mbit/s

/// @return the first line of a file without blanks at its ends, empty when it cannot be read
std::string Line_Of(const fs::path& file)
{
    std::ifstream input(file);
    std::string line;
    std::getline(input, line);
    const size_t first = line.find_first_not_of(" \t");
    return first == std::string::npos ? "" : line.substr(first, line.find_last_not_of(" \t") - first + 1);
}

std::string Bytes_Of(const fs::path& file)
{
    std::ifstream input(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(input), {}};
}

uint32_t Number_In(const fs::path& file)
{
    return static_cast<uint32_t>(std::strtoul(Line_Of(file).c_str(), nullptr, 10));
}

/// @return the entries of a folder by name, none when it cannot be read
std::vector<fs::path> Entries(const fs::path& folder)
{
    std::vector<fs::path> entries;
    std::error_code error;
    for (auto entry = fs::directory_iterator(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        entries.push_back(entry->path());
    }
    std::ranges::sort(entries);
    return entries;
}

bool Exists(const fs::path& path)
{
    std::error_code ignored;
    return fs::exists(path, ignored);
}

/// @return whether the kernel's list of a device's abilities has SuperSpeed, which a device also lists while it is
///         connected at a lower speed
bool Lists_Super_Speed(const std::string& descriptors)
{
    constexpr unsigned char Capability_Type = 0x10;  // bDescriptorType DEVICE CAPABILITY
    constexpr unsigned char Super_Speed = 0x03;      // bDevCapabilityType SUPERSPEED_USB
    for (size_t at = 0; at + 2 < descriptors.size();) {
        const auto length = static_cast<unsigned char>(descriptors[at]);
        if (descriptors[at + 1] == Capability_Type && descriptors[at + 2] == Super_Speed) {
            return true;
        }
        at += std::max<size_t>(length, 1);
    }
    return false;
}

bool Is_Super_Speed(const fs::path& device, uint32_t megabits)
{
    const double version = std::strtod(Line_Of(device / "version").c_str(), nullptr);
    return megabits >= Least_Super_Speed || version >= 3 || Lists_Super_Speed(Bytes_Of(device / "bos_descriptors"));
}

bool Is_Bulk_Endpoint(const fs::path& folder)
{
    return folder.filename().string().starts_with("ep_") && Line_Of(folder / "type") == "Bulk" &&
           Line_Of(folder / "direction") == "in";
}

std::vector<fs::path> Video_Interfaces(const fs::path& device)
{
    std::vector<fs::path> interfaces = Entries(device);
    std::erase_if(interfaces, [](const fs::path& folder) {
        return folder.filename().string().find(':') == std::string::npos ||
               Line_Of(folder / "bInterfaceClass") != Video_Class;
    });
    return interfaces;
}

std::string Device_Name(const fs::path& device)
{
    std::string name = Line_Of(device / "idVendor") + ":" + Line_Of(device / "idProduct");
    const std::string product = Line_Of(device / "product");
    return product.empty() ? name : name + " " + product;
}

Usb_Camera Describe(const fs::path& device, const std::vector<fs::path>& interfaces)
{
    Usb_Camera camera;
    camera.port = device.filename();
    camera.name = Device_Name(device);
    camera.bus = Number_In(device / "busnum");
    camera.megabits = Number_In(device / "speed");
    camera.is_super_speed = Is_Super_Speed(device, camera.megabits);
    for (const fs::path& interface : interfaces) {
        const std::vector<fs::path> entries = Entries(interface);
        camera.has_driver = camera.has_driver || Exists(interface / "driver") || Exists(interface / "video4linux");
        camera.has_bulk_frames = camera.has_bulk_frames || std::ranges::any_of(entries, Is_Bulk_Endpoint);
    }
    return camera;
}

/// @return the name of the USB device that a node belongs to, empty without one
std::string Usb_Port_Of(const fs::path& entry)
{
    std::error_code error;
    for (fs::path folder = fs::canonical(entry, error); !error && folder.has_relative_path();
         folder = folder.parent_path()) {
        if (Exists(folder / "idVendor")) {
            return folder.filename();
        }
    }
    return "";
}

std::vector<Video_Node> Video_Nodes(const fs::path& root)
{
    std::vector<Video_Node> nodes;
    const std::string prefix = "video";
    for (const fs::path& entry : Entries(root / "sys/class/video4linux")) {
        const std::string name = entry.filename();
        if (name.starts_with(prefix)) {
            nodes.push_back({"/dev/" + name, Line_Of(entry / "name"), Usb_Port_Of(entry), Exists(root / "dev" / name)});
        }
    }
    std::ranges::stable_sort(nodes, {}, [](const Video_Node& node) { return node.node.size(); });
    return nodes;
}

std::vector<Usb_Camera> Usb_Cameras(const fs::path& root, const std::vector<Video_Node>& nodes)
{
    std::vector<Usb_Camera> cameras;
    for (const fs::path& device : Entries(root / "sys/bus/usb/devices")) {
        const std::vector<fs::path> interfaces = Video_Interfaces(device);
        const bool has_node =
            std::ranges::find(nodes, device.filename().string(), &Video_Node::usb_port) != nodes.end();
        if (has_node || !interfaces.empty()) {
            cameras.push_back(Describe(device, interfaces));
            cameras.back().has_driver = cameras.back().has_driver || has_node;
        }
    }
    return cameras;
}

bool Has_Line_With(const fs::path& file, const std::string& text)
{
    return Bytes_Of(file).find(text) != std::string::npos;
}

Module Find_Uvcvideo(const fs::path& root, const std::string& kernel)
{
    if (Exists(root / "sys/module/uvcvideo") || Has_Line_With(root / "proc/modules", "uvcvideo ")) {
        return Module::Loaded;
    }
    const fs::path folder = root / "lib/modules" / kernel;
    if (!Exists(folder / "modules.dep")) {
        return Module::Unknown;  // as in a container, where the modules are the host's
    }
    const std::string file = "/uvcvideo.ko";
    return Has_Line_With(folder / "modules.dep", file) || Has_Line_With(folder / "modules.builtin", file)
               ? Module::Not_Loaded
               : Module::Missing;
}

bool Is_Container(const fs::path& root)
{
    const std::string groups = Bytes_Of(root / "proc/1/cgroup");
    const auto names = [&](const char* engine) { return groups.find(engine) != std::string::npos; };
    return Exists(root / ".dockerenv") || Exists(root / "run/.containerenv") ||
           Exists(root / "run/systemd/container") || Exists(root / "run/secrets/kubernetes.io") || names("docker") ||
           names("kubepods") || names("lxc");
}

}  // namespace

const Usb_Camera* System_Facts::Usb_Of(const std::string& node) const
{
    const auto found = std::ranges::find(nodes, node, &Video_Node::node);
    const auto device = found == nodes.end() ? usb.end() : std::ranges::find(usb, found->usb_port, &Usb_Camera::port);
    return device == usb.end() ? nullptr : &*device;
}

System_Facts Look_At_System(const fs::path& root)
{
    System_Facts facts;
    facts.kernel = Line_Of(root / "proc/sys/kernel/osrelease");
    facts.uvcvideo = Find_Uvcvideo(root, facts.kernel);
    facts.in_container = Is_Container(root);
    facts.nodes = Video_Nodes(root);
    facts.usb = Usb_Cameras(root, facts.nodes);
    return facts;
}
