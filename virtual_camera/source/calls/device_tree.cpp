// Shows unplugging and plugging to programs that use udev: moves entries of the tree, and sends udev's messages.
#include "calls/device_tree.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>

#include "system/monotonic_time.h"
#include "system/real_calls.h"

namespace virtual_camera {
namespace {

namespace fs = std::filesystem;

struct Device {
    std::string path;                  // in sysfs
    std::vector<std::string> entries;  // the files that umockdev made for it, relative to its root
    std::map<std::string, std::string> properties;
};

/// The folder of umockdev's tree; empty without umockdev.
fs::path Root()
{
    const char* root = std::getenv("UMOCKDEV_DIR");
    return root ? root : "";
}

/// This file tells the launcher that its command, or a program the command started, has loaded this object.
__attribute__((constructor)) void Leave_Mark()
{
    const fs::path root = Root();
    if (!root.empty()) {
        real::Close(creat((root / "preloaded").c_str(), S_IRUSR | S_IWUSR));
    }
}

fs::path Set_Aside(const fs::path& root, std::string entry)
{
    std::replace(entry.begin(), entry.end(), '/', '!');
    return root / "unplugged" / entry;
}

void Add_Property(Device& device, const std::string& name, const std::string& value)
{
    device.properties[name] = value;
    const std::string own_name = fs::path(device.path).filename();
    if (name == "SUBSYSTEM") {
        device.entries.insert(device.entries.end(),
                              {"sys/class/" + value + "/" + own_name, "sys/bus/" + value + "/devices/" + own_name});
    } else if (name == "MINOR") {
        device.entries.push_back("sys/dev/char/" + device.properties["MAJOR"] + ":" + value);
    }
}

/// The devices of a camera, parents first. A parent's folder contains those of its children.
std::vector<Device> Devices_Of(const Camera_Description& camera)
{
    std::vector<Device> devices;
    std::istringstream lines(Umockdev_Description({camera}));
    for (std::string line; std::getline(lines, line);) {
        const std::string value = line.substr(std::min<size_t>(line.size(), 3));
        const size_t equals = value.find('=');
        if (line.rfind("P:", 0) == 0) {
            devices.push_back({value, {"sys" + value}, {}});
        } else if (line.rfind("N:", 0) == 0 || line.rfind("S:", 0) == 0) {
            const std::string file = line[0] == 'S' ? value : value.substr(0, equals);
            std::string flat = file;
            std::replace(flat.begin(), flat.end(), '/', '_');
            devices.back().entries.insert(devices.back().entries.end(), {"dev/.node/" + flat, "dev/" + file});
        } else if (line.rfind("E:", 0) == 0 && equals != std::string::npos) {
            Add_Property(devices.back(), value.substr(0, equals), value.substr(equals + 1));
        }
    }
    return devices;
}

/// libudev's hashes of these names, by which its socket filters select messages.
uint32_t Filter_Hash(const std::string& name)
{
    static const std::map<std::string, uint32_t> Hashes{{"video4linux", 0xe9cf3931},
                                                        {"usb", 0x0577c5e5},
                                                        {"usb_device", 0x27f8f50c},
                                                        {"usb_interface", 0xb1024765},
                                                        {"platform", 0x748f983b}};
    const auto found = Hashes.find(name);
    return htonl(found == Hashes.end() ? 0 : found->second);
}

/// Stands before the properties in udev's messages.
struct Message_Header {
    char prefix[8] = "libudev";
    uint32_t magic = htonl(0xfeedcafe);
    uint32_t header_size = sizeof(Message_Header);
    uint32_t properties_offset = sizeof(Message_Header);
    uint32_t properties_length = 0;
    uint32_t subsystem_hash = 0;
    uint32_t device_type_hash = 0;
    uint64_t tags = 0;
};

void Send_To(const fs::path& listener, Message_Header& header, std::string& properties)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int fd = socket(AF_UNIX, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd >= 0 && listener.native().size() < sizeof address.sun_path) {
        std::memcpy(address.sun_path, listener.c_str(), listener.native().size());
        iovec parts[]{{&header, sizeof header}, {properties.data(), properties.size()}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = std::size(parts);
        // connect fails for a closed monitor, which leaves its socket file behind.
        if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
            (void)sendmsg(fd, &message, 0);
        }
    }
    real::Close(fd);
}

void Tell_Monitors(const fs::path& root, const Device& device, const std::string& action)
{
    static uint64_t number = static_cast<uint64_t>(Now());  // larger than the numbers of earlier processes
    std::map<std::string, std::string> all = device.properties;
    all["ACTION"] = action;
    all["DEVPATH"] = device.path;
    all["SEQNUM"] = std::to_string(__atomic_add_fetch(&number, 1, __ATOMIC_RELAXED));
    std::string properties;
    for (const auto& [name, value] : all) {
        properties.append(name).append("=").append(value).push_back('\0');
    }
    Message_Header header;
    header.properties_length = static_cast<uint32_t>(properties.size());
    header.subsystem_hash = Filter_Hash(all["SUBSYSTEM"]);
    header.device_type_hash = Filter_Hash(all["DEVTYPE"]);
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(root, ignored)) {
        if (entry.path().filename().native().rfind("event", 0) == 0) {
            Send_To(entry.path(), header, properties);
        }
    }
}

/// Moves the files of a device. @return whether there were any
bool Move(const fs::path& root, const Device& device, bool out)
{
    bool moved = false;
    for (const std::string& entry : device.entries) {
        const fs::path place = root / entry, aside = Set_Aside(root, entry);
        std::error_code error;
        fs::rename(out ? place : aside, out ? aside : place, error);
        moved = moved || !error;
    }
    return moved;
}

}  // namespace

std::string Linked_Node(const std::string& path)
{
    std::error_code error;
    const fs::path target = path.rfind("/dev/v4l/", 0) == 0 ? fs::read_symlink(path, error) : fs::path();
    return target.empty() ? path : "/dev/" + target.filename().string();
}

void Move_In_Tree(const Camera_Description& camera, bool out)
{
    const fs::path root = Root();
    if (root.empty()) {
        return;
    }
    std::error_code ignored;
    fs::create_directory(root / "unplugged", ignored);
    std::vector<Device> devices = Devices_Of(camera);
    if (out) {
        std::reverse(devices.begin(), devices.end());
    }
    for (const Device& device : devices) {
        if (Move(root, device, out)) {
            Tell_Monitors(root, device, out ? "remove" : "add");
        }
    }
}

}  // namespace virtual_camera
