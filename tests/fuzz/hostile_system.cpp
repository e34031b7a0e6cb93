// The calls that the linker brings here, and their answers.
#include "fuzz/hostile_system.h"

#include <fcntl.h>
#include <libudev.h>
#include <linux/videodev2.h>
#include <sys/select.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <deque>

namespace {

constexpr int Most_Requests = 3000;
constexpr uint32_t Most_Nodes = 4;
constexpr uint32_t Most_Frame_Bytes = 8192;          // the camera's frames have up to 1,024
constexpr uint32_t Longest_Sum_Start = 0xFFFF'FEFF;  // a session adds 256 bytes to the length of each frame

Fuzz_Input* source = nullptr;
int requests = 0;
std::deque<std::string> texts;  // handed out by libudev; they live as long as the input

bool Has_Addresses(unsigned long request)
{
    return request == VIDIOC_G_EXT_CTRLS || request == VIDIOC_S_EXT_CTRLS || request == VIDIOC_TRY_EXT_CTRLS;
}

// A session takes as much memory as the driver names for a frame. Frames of gigabytes would only take time, so the
// lengths that remain are those of small frames, and those to which nothing can be added in 32 bits.
void Bound_Frame(v4l2_buffer& buffer)
{
    if (buffer.bytesused <= Longest_Sum_Start) {
        buffer.bytesused %= Most_Frame_Bytes;
    }
}

// One byte decides whether an answer is left as it is, changed in places, made up, or a failure.
int Change_Bytes(unsigned long request, void* answer, int result)
{
    const size_t size = _IOC_SIZE(request);
    auto* const bytes = static_cast<uint8_t*>(answer);
    switch (source->Take<uint8_t>() % 8) {
        case 0:
            source->Fill(bytes, size);
            return 0;
        case 1:
        case 2:
            for (uint32_t changes = source->Below(4); changes > 0; --changes) {
                bytes[source->Below(static_cast<uint32_t>(size))] = source->Take<uint8_t>();
            }
            return result;
        case 3:
            errno = 1 + source->Take<uint8_t>() % 132;
            return -1;
        default:
            return result;
    }
}

int Change_Answer(unsigned long request, void* answer, int result)
{
    const int changed = Change_Bytes(request, answer, result);
    if (request == VIDIOC_DQBUF) {
        Bound_Frame(*static_cast<v4l2_buffer*>(answer));
    }
    return changed;
}

const char* Text()
{
    if (source == nullptr || source->Is_Empty() || source->Take<uint8_t>() % 4 == 0) {
        return nullptr;
    }
    return texts.emplace_back(source->Text()).c_str();
}

// Objects of libudev that only stand for themselves.
std::array<char, Most_Nodes + 2> objects;
template <typename Object>
Object* Stand_In(size_t place)
{
    return reinterpret_cast<Object*>(&objects[place]);
}

}  // namespace

Hostile_System::Hostile_System(Fuzz_Input& input)
{
    source = &input;
    requests = 0;
}

Hostile_System::~Hostile_System()
{
    source = nullptr;
    texts.clear();
}

extern "C" {

int __real_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...);
int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list list;
    va_start(list, request);
    void* argument = va_arg(list, void*);
    va_end(list);
    const int result = __real_ioctl(fd, request, argument);
    if (source == nullptr) {
        return result;
    }
    if (++requests > Most_Requests) {
        source = nullptr;
        throw Too_Many_Requests();
    }
    return source->Is_Empty() || Has_Addresses(request) ? result : Change_Answer(request, argument, result);
}

// A session waits inside the driver, without end when it has lost all buffers to lies.
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...)
{
    return __real_open(path, flags | O_NONBLOCK);
}

// Pauses would only make the fuzzer slow.
int __wrap_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t /*microseconds*/)
{
    return 0;
}

int __real_select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* time);
int __wrap_select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* time);
int __wrap_select(int count, fd_set* in, fd_set* out, fd_set* except, timeval* /*time*/)
{
    timeval none{};
    return __real_select(count, in, out, except, &none);
}

udev* __wrap_udev_new();
udev* __wrap_udev_new()
{
    return Stand_In<udev>(0);
}
udev* __wrap_udev_unref(udev* context);
udev* __wrap_udev_unref(udev* /*context*/)
{
    return nullptr;
}
udev_enumerate* __wrap_udev_enumerate_new(udev* context);
udev_enumerate* __wrap_udev_enumerate_new(udev* /*context*/)
{
    return Stand_In<udev_enumerate>(0);
}
udev_enumerate* __wrap_udev_enumerate_unref(udev_enumerate* list);
udev_enumerate* __wrap_udev_enumerate_unref(udev_enumerate* /*list*/)
{
    return nullptr;
}
int __wrap_udev_enumerate_add_match_subsystem(udev_enumerate* list, const char* name);
int __wrap_udev_enumerate_add_match_subsystem(udev_enumerate* /*list*/, const char* /*name*/)
{
    return 0;
}
int __wrap_udev_enumerate_scan_devices(udev_enumerate* list);
int __wrap_udev_enumerate_scan_devices(udev_enumerate* /*list*/)
{
    return 0;
}
udev_list_entry* __wrap_udev_enumerate_get_list_entry(udev_enumerate* list);
udev_list_entry* __wrap_udev_enumerate_get_list_entry(udev_enumerate* /*list*/)
{
    return Stand_In<udev_list_entry>(1);
}
udev_list_entry* __wrap_udev_list_entry_get_next(udev_list_entry* entry);
udev_list_entry* __wrap_udev_list_entry_get_next(udev_list_entry* entry)
{
    const auto place = static_cast<size_t>(reinterpret_cast<char*>(entry) - objects.data());
    const bool more = place < Most_Nodes && source != nullptr && source->Take<uint8_t>() % 2 == 1;
    return more ? Stand_In<udev_list_entry>(place + 1) : nullptr;
}
const char* __wrap_udev_list_entry_get_name(udev_list_entry* entry);
const char* __wrap_udev_list_entry_get_name(udev_list_entry* /*entry*/)
{
    return "/sys/class/video4linux/video0";
}
udev_device* __wrap_udev_device_new_from_syspath(udev* context, const char* path);
udev_device* __wrap_udev_device_new_from_syspath(udev* /*context*/, const char* /*path*/)
{
    return Stand_In<udev_device>(0);
}
udev_device* __wrap_udev_device_unref(udev_device* device);
udev_device* __wrap_udev_device_unref(udev_device* /*device*/)
{
    return nullptr;
}
const char* __wrap_udev_device_get_devnode(udev_device* device);
const char* __wrap_udev_device_get_devnode(udev_device* /*device*/)
{
    return source != nullptr && source->Take<uint8_t>() % 8 == 7 ? Text() : "/dev/video0";
}
const char* __wrap_udev_device_get_sysname(udev_device* device);
const char* __wrap_udev_device_get_sysname(udev_device* /*device*/)
{
    return source != nullptr && source->Take<uint8_t>() % 8 == 7 ? Text() : "video0";
}
const char* __wrap_udev_device_get_syspath(udev_device* device);
const char* __wrap_udev_device_get_syspath(udev_device* /*device*/)
{
    return Text();
}
const char* __wrap_udev_device_get_sysattr_value(udev_device* device, const char* name);
const char* __wrap_udev_device_get_sysattr_value(udev_device* /*device*/, const char* /*name*/)
{
    return Text();
}
const char* __wrap_udev_device_get_property_value(udev_device* device, const char* name);
const char* __wrap_udev_device_get_property_value(udev_device* /*device*/, const char* /*name*/)
{
    return Text();
}
udev_device* __wrap_udev_device_get_parent(udev_device* device);
udev_device* __wrap_udev_device_get_parent(udev_device* device)
{
    return device;
}
udev_device* __wrap_udev_device_get_parent_with_subsystem_devtype(udev_device* device, const char* system,
                                                                  const char* type);
udev_device* __wrap_udev_device_get_parent_with_subsystem_devtype(udev_device* device, const char* /*system*/,
                                                                  const char* /*type*/)
{
    return source != nullptr && source->Take<uint8_t>() % 4 == 3 ? nullptr : device;
}
udev_monitor* __wrap_udev_monitor_new_from_netlink(udev* context, const char* name);
udev_monitor* __wrap_udev_monitor_new_from_netlink(udev* /*context*/, const char* /*name*/)
{
    return nullptr;  // as in a container
}

}  // extern "C"
