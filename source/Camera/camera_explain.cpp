// The sentences on failures, and who holds a busy camera.
#include "Camera/camera_explain.h"

#include <dirent.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>

#include "Camera/camera_modes.h"

namespace wqz_camera {

namespace {

std::atomic<uint64_t> Failures_Made =
    0;  // numbers each Last_Failure, so that a new one at an old address is not taken for it

struct Close_Folder {
    void operator()(DIR* folder) const { (void)closedir(folder); }
};
using Folder = std::unique_ptr<DIR, Close_Folder>;

// How many descriptors of the node the process has, as far as this user may see them.
int Times_Open(const std::string& process, const std::string& node)
{
    int times = 0;
    const std::string path = "/proc/" + process + "/fd";
    const Folder folder(opendir(path.c_str()));
    std::array<char, PATH_MAX> target{};
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        const ssize_t length = readlinkat(dirfd(folder.get()), entry->d_name, target.data(), target.size());
        times += length > 0 && node == std::string(target.data(), static_cast<size_t>(length)) ? 1 : 0;
    }
    return times;
}

std::string Process_Name(const std::string& process)
{
    std::ifstream file("/proc/" + process + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
}

std::string System_Text(int error)
{
    return std::string(strerror(error)) + ".";
}

std::string Busy_Sentence(const std::string& node)
{
    const std::vector<std::string> holders = Holders_Of(node);
    if (holders.empty()) {
        return node + " is busy: another capture uses the camera. `sudo fuser -v " + node + "` names its process.";
    }
    std::string names;
    for (const std::string& holder : holders) {
        names += (names.empty() ? "" : ", ") + holder;
    }
    return node + " is busy: " + names + (holders.size() == 1 ? " has" : " have") + " it open. End the capture there.";
}

}  // namespace

Last_Failure::Last_Failure(bool per_thread) : number(per_thread ? ++Failures_Made : 0)
{
}

Last_Failure::Sentence& Last_Failure::Of_This_Thread()
{
    static thread_local Sentence sentence;
    return sentence;
}

void Last_Failure::Set(const char* sentence) noexcept
{
    try {
        Set_Copy(sentence);
    } catch (const std::bad_alloc&) {
        Set_Fixed("A call failed, and the process has no memory left to say why.");
    }
}

void Last_Failure::Set_Copy(const char* sentence)
{
    if (number != 0) {
        Of_This_Thread() = {sentence, nullptr, number};
    }
    const std::lock_guard lock(mutex);
    last.text = sentence;
    last.fixed = nullptr;
}

void Last_Failure::Set_Fixed(const char* sentence) noexcept
{
    if (number != 0) {
        Of_This_Thread().fixed = sentence;
        Of_This_Thread().owner = number;
    }
    const std::lock_guard lock(mutex);
    last.fixed = sentence;
}

std::string Last_Failure::Text() const
{
    const std::lock_guard lock(mutex);
    return last.fixed == nullptr ? last.text : last.fixed;
}

std::string Last_Failure::Text_Of_This_Thread() const
{
    const Sentence& own = Of_This_Thread();
    if (number != 0 && own.owner == number) {
        return own.fixed == nullptr ? own.text : own.fixed;
    }
    return Text();
}

std::vector<std::string> Holders_Of(const std::string& node)
{
    std::vector<std::string> holders;
    const Folder folder(opendir("/proc"));
    const std::string self = std::to_string(getpid());
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string process = entry->d_name;
        if (process.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        const int own_descriptor = process == self ? 1 : 0;
        if (Times_Open(process, node) > own_descriptor) {
            holders.push_back(Process_Name(process) + " (process " + process + ")");
        }
    }
    return holders;
}

Failure Open_Failure(const std::string& node, int error)
{
    switch (error) {
        case EACCES:
        case EPERM:
            return {error, "This user may not open " + node +
                               ". Add the user to the group video (`sudo usermod -aG video $USER`, then log in again), "
                               "or add a udev rule that grants the access."};
        case ENOENT:
            return {error, "There is no " + node + ": no camera is connected there."};
        case ENODEV:
        case ENXIO:
            return {error, "There is no camera behind " + node + " any more: it was unplugged."};
        case EBUSY:
            return {error, Busy_Sentence(node)};
        case EMFILE:
        case ENFILE:
            return {error, "No descriptor is left to open " + node + ": close files, or raise ulimit -n."};
        default:
            return {error, node + " cannot be opened: " + System_Text(error)};
    }
}

Failure Step_Failure(const std::string& node, const char* step, int error)
{
    const std::string what = "The camera at " + node + " did not " + step + ": ";
    switch (error) {
        case EBUSY:
            return {error, Busy_Sentence(node)};
        case ENODEV:
        case ENXIO:
            return {error, what + "it was unplugged. Plug it in again."};
        case ENOMEM:
            return {error, what + "memory is missing. Ask for fewer buffers or a smaller mode."};
        case EIO:
        case EPROTO:
        case EPIPE:
        case ETIMEDOUT:
            return {error, what + System_Text(error) + " Plug the camera in again, or into another port."};
        default:
            return {error, what + System_Text(error)};
    }
}

Failure Bandwidth_Failure(const WQZ_Camera_Mode& mode, const std::vector<WQZ_Camera_Offer>& offers)
{
    std::string text = "The USB bus has no room for " + Mode_Text(mode);
    const double needed = Bytes_Per_Second(mode);
    if (needed > 0) {
        text += ", which needs up to " + Megabytes_Text(needed) + " a second";
    }
    text += ". Stop other cameras on this bus, plug the camera into another one, or choose a mode that needs less";
    const std::string lighter = Lighter_Modes(mode, offers);
    return {ENOSPC, text + (lighter.empty() ? "." : ": " + lighter + ".")};
}

const char* Read_Sentence(int error)
{
    switch (error) {
        case ETIMEDOUT:
            return "No frame came in the time given. If that goes on, the camera is silent: check its cable, or plug "
                   "it in again.";
        case ECANCELED:
            return "The wait was cancelled, or the capture was stopped meanwhile.";
        case ENODEV:
            return "The camera was unplugged. Plug it in again.";
        case ENOBUFS:
            return "Only one buffer is left to the driver: release a held frame, or start with more buffers.";
        case EINVAL:
            return "No capture is running: start one first.";
        case EIO:
            return "The camera or its driver failed to deliver a frame. Start the capture again, or plug the camera in "
                   "again.";
        default:
            return "The driver refused to hand out a frame. Start the capture again.";
    }
}

}  // namespace wqz_camera
