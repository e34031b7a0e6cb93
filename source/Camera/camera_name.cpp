// Finding and opening the camera that a name means.
#include "Camera/camera_name.h"

#include <strings.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "Camera/camera_explain.h"
#include "Camera/failure.h"

namespace wqz_camera {

namespace {

using Records = std::vector<Camera_Record>;

std::string Last_Component(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

// One step of a link is enough: udev links straight to the node.
std::string Link_Target(const std::string& path)
{
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    return length <= 0 ? path : std::string(target.data(), static_cast<size_t>(length));
}

bool Same_Device_Number(const std::string& one, const char* other)
{
    struct stat first {};
    struct stat second {};
    return stat(one.c_str(), &first) == 0 && stat(other, &second) == 0 && S_ISCHR(first.st_mode) &&
           S_ISCHR(second.st_mode) && first.st_rdev == second.st_rdev;
}

const Camera_Record* Find_By_Path(const Records& list, const std::string& path)
{
    const std::string target = Last_Component(Link_Target(path));
    const auto found = std::find_if(list.begin(), list.end(), [&](const Camera_Record& record) {
        return path == record.info.node || Same_Device_Number(path, record.info.node) ||
               (path.find("/dev/") == 0 && target != Last_Component(path) &&
                target == Last_Component(record.info.node));
    });
    return found == list.end() ? nullptr : &*found;
}

bool Is_Index(const std::string& name, uint32_t index)
{
    char* end = nullptr;
    errno = 0;
    const unsigned long number = std::strtoul(name.c_str(), &end, 10);
    return name.find_first_not_of("0123456789") == std::string::npos && errno == 0 && number == index;
}

bool Are_Ids(const std::string& name, const WQZ_Camera_Info& info)
{
    char ids[16];
    (void)snprintf(ids, sizeof ids, "%04x:%04x", info.vendor, info.product);
    return (info.vendor != 0 || info.product != 0) && strcasecmp(name.c_str(), ids) == 0;
}

bool Fits(const std::string& name, const WQZ_Camera_Info& info)
{
    return name.empty() || name == info.serial || Are_Ids(name, info) || Is_Index(name, info.index);
}

std::string Candidates(const std::vector<const Camera_Record*>& fitting)
{
    std::string text;
    for (const Camera_Record* record : fitting) {
        text += (text.empty() ? "" : ", ") + std::string(record->info.identity) + " (" + record->info.node + ")";
    }
    return text;
}

const Camera_Record& Find_By_Name(const Records& list, const std::string& name)
{
    std::vector<const Camera_Record*> fitting;
    for (const Camera_Record& record : list) {
        if (!name.empty() && name == record.info.identity) {
            return record;
        }
        if (Fits(name, record.info)) {
            fitting.push_back(&record);
        }
    }
    if (fitting.empty()) {
        throw Failure(ENOENT, name.empty() ? "No camera is connected."
                                           : "No camera has this node, ids, serial, identity or place: " + name);
    }
    if (fitting.size() > 1) {
        std::string sentence = "There are several cameras";
        if (!name.empty()) {
            sentence += " with the name " + name;
        }
        throw Failure(ENOTUNIQ, sentence + ": " + Candidates(fitting) + ". Name one of them.");
    }
    return *fitting.front();
}

std::shared_ptr<Device_File> Open_Node(const std::string& node)
{
    auto device = std::make_shared<Device_File>(node);
    if (device->Error() != 0) {
        throw Open_Failure(node, device->Error());
    }
    return device;
}

// Nodes that udev does not list can be opened by their path all the same.
Opened_Camera Open_Path(const std::string& path)
{
    auto device = Open_Node(path);
    const std::optional<Camera_Record> record = Describe_Unlisted(*device);
    if (!record) {
        throw Failure(ENOTSUP, path + " delivers no pictures: it is not a camera's capture node.");
    }
    return {*record, device};
}

}  // namespace

Opened_Camera Open_By_Name(const std::string& name)
{
    const Records list = List_Cameras();
    if (name.starts_with('/')) {
        const Camera_Record* record = Find_By_Path(list, name);
        return record == nullptr ? Open_Path(name) : Opened_Camera{*record, Open_Node(record->info.node)};
    }
    const Camera_Record& record = Find_By_Name(list, name);
    return {record, Open_Node(record.info.node)};
}

std::shared_ptr<Device_File> Open_Again(Camera_Record& record)
{
    if (record.device.empty()) {
        auto device = std::make_shared<Device_File>(record.info.node);
        const auto found = device->Error() == 0 ? Describe_Unlisted(*device) : std::nullopt;
        const bool same = found && std::string(found->info.identity) == record.info.identity;
        return same ? device : nullptr;
    }
    const Records list = List_Cameras();
    const Camera_Record* found = Find_Again(list, record);
    if (found == nullptr) {
        return nullptr;
    }
    auto device = Open_Node(found->info.node);
    record = *found;
    return device;
}

}  // namespace wqz_camera
