// The calls that the linker brings here, and the plan that says which of them fail.
#include "reliability/fault_injection.h"

#include <fcntl.h>
#include <libudev.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <virtual_camera/description.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace faults {

namespace {

enum Call : Site {
    Open = Allocation + 1,
    Close,
    Mmap,
    Munmap,
    Select,
    Poll,
    Epoll_Create,
    Epoll_Ctl,
    Epoll_Wait,
    Eventfd,
    Timerfd,
    Read,
    Write,
    Udev_New,
    Udev_Enumerate,
    Udev_Match,
    Udev_Scan,
    Udev_Device,
    Udev_Monitor,
    Udev_Filter,
    Udev_Receive,
    Calls_End
};

constexpr std::array<const char*, Calls_End> Names = {
    "",          "allocation",  "open",         "close",       "mmap",           "munmap",
    "select",    "poll",        "epoll_create", "epoll_ctl",   "epoll_wait",     "eventfd",
    "timerfd",   "read",        "write",        "udev_new",    "udev_enumerate", "udev_match",
    "udev_scan", "udev_device", "udev_monitor", "udev_filter", "udev_receive"};

// Fixed tables, because the allocations that they count must not allocate.
constexpr size_t Most_Requests = 64;
struct Counter {
    Site site = 0;
    int calls = 0;
};
std::mutex mutex;  // guards all below
std::array<Counter, Calls_End + Most_Requests> counters;
std::array<Fault, 4> planned;
bool counting = true;

thread_local int uses = 0;         // In_Library objects of this thread
thread_local bool inside = false;  // a call is being passed on: what it calls is not the library's

int& Calls_Of(Site site)
{
    size_t place = site;
    if (site >= Calls_End) {
        for (place = Calls_End; counters[place].site != site && counters[place].site != 0;) {
            ++place;
        }
    }
    counters[place].site = site;
    return counters[place].calls;
}

// Counts a call.
// @return the errno with which it is to fail, or 0
int Next_Error(Site site)
{
    const std::lock_guard lock(mutex);
    if (!counting) {
        return 0;
    }
    const int occurrence = ++Calls_Of(site);
    for (const Fault& fault : planned) {
        if (fault.site == site && fault.occurrence == occurrence) {
            return fault.error;
        }
    }
    return 0;
}

bool Is_Counted()
{
    return uses > 0 && !inside;
}

// Passes a call on, or fails in its place.
template <typename Result, typename Pass>
Result Answer(Site site, Result failed, Pass pass)
{
    if (!Is_Counted()) {
        return pass();
    }
    if (const int error = Next_Error(site)) {
        errno = error;
        return failed;
    }
    inside = true;
    const Result result = pass();
    inside = false;
    return result;
}

// For calls that have their effect even when they report a failure.
template <typename Pass>
int Answer_Afterwards(Site site, Pass pass)
{
    const int error = Is_Counted() ? Next_Error(site) : 0;
    const bool was_inside = std::exchange(inside, true);
    const int result = pass();
    inside = was_inside;
    if (error != 0) {
        errno = error;
        return -1;
    }
    return result;
}

// libudev's functions return negative errors.
template <typename Pass>
int Answer_Negative(Site site, Pass pass)
{
    const int result = Answer(site, INT32_MIN, pass);
    return result == INT32_MIN ? -errno : result;
}

bool Allocation_Fails()
{
    return Is_Counted() && Next_Error(Allocation) != 0;
}

void* Allocate(size_t bytes)
{
    void* block = Allocation_Fails() ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

std::string Name_Of(Site site)
{
    return site < Calls_End ? Names[site] : virtual_camera::Request_Name(site);
}

std::string Text_Of(const Fault& fault)
{
    return Name_Of(fault.site) + " " + std::to_string(fault.occurrence) + " " + strerrorname_np(fault.error);
}

void Plan(const std::vector<Fault>& failures)
{
    const std::lock_guard lock(mutex);
    counters = {};
    planned = {};
    counting = true;
    for (size_t i = 0; i < failures.size() && i < planned.size(); ++i) {
        planned[i] = failures[i];
    }
}

void End()
{
    const std::lock_guard lock(mutex);
    planned = {};
    counting = false;
}

std::map<Site, int> Counts()
{
    const std::lock_guard lock(mutex);
    std::map<Site, int> counts;
    for (const Counter& counter : counters) {
        if (counter.calls > 0) {
            counts[counter.site] = counter.calls;
        }
    }
    return counts;
}

In_Library::In_Library()
{
    ++uses;
}

In_Library::~In_Library()
{
    --uses;
}

}  // namespace faults

using namespace faults;

// libstdc++ allocates for strings inside its own shared object, which --wrap does not reach. These reach both.
void* operator new(size_t bytes)
{
    return Allocate(bytes);
}

void* operator new[](size_t bytes)
{
    return Allocate(bytes);
}

void* operator new(size_t bytes, const std::nothrow_t& /*tag*/) noexcept
{
    return Allocation_Fails() ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
}

void* operator new[](size_t bytes, const std::nothrow_t& /*tag*/) noexcept
{
    return Allocation_Fails() ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
}

void operator delete(void* block) noexcept
{
    std::free(block);
}

void operator delete[](void* block) noexcept
{
    std::free(block);
}

void operator delete(void* block, size_t /*bytes*/) noexcept
{
    std::free(block);
}

void operator delete[](void* block, size_t /*bytes*/) noexcept
{
    std::free(block);
}

// WRAP(RESULT, NAME, PARAMETERS, ARGUMENTS, ANSWER): the function that takes the place of NAME.
#define WRAP(result, name, parameters, arguments, answer)          \
    extern "C" result __real_##name parameters;                    \
    extern "C" result __wrap_##name parameters;                    \
    extern "C" result __wrap_##name parameters                     \
    {                                                              \
        const auto pass = [=] { return __real_##name arguments; }; \
        return answer;                                             \
    }

WRAP(int, close, (int fd), (fd), Answer_Afterwards(Close, pass))
WRAP(int, munmap, (void* address, size_t length), (address, length), Answer_Afterwards(Munmap, pass))
WRAP(void*, mmap, (void* address, size_t length, int protection, int flags, int fd, off_t offset),
     (address, length, protection, flags, fd, offset), Answer(Mmap, MAP_FAILED, pass))
WRAP(int, select, (int count, fd_set* in, fd_set* out, fd_set* except, timeval* time), (count, in, out, except, time),
     Answer(Select, -1, pass))
WRAP(int, poll, (pollfd * entries, nfds_t count, int time), (entries, count, time), Answer(Poll, -1, pass))
WRAP(int, epoll_create1, (int flags), (flags), Answer(Epoll_Create, -1, pass))
WRAP(int, epoll_ctl, (int set, int change, int fd, epoll_event* event), (set, change, fd, event),
     Answer(Epoll_Ctl, -1, pass))
WRAP(int, epoll_wait, (int set, epoll_event* events, int count, int time), (set, events, count, time),
     Answer(Epoll_Wait, -1, pass))
WRAP(int, eventfd, (unsigned value, int flags), (value, flags), Answer(Eventfd, -1, pass))
WRAP(int, timerfd_create, (int clock, int flags), (clock, flags), Answer(Timerfd, -1, pass))
WRAP(ssize_t, read, (int fd, void* bytes, size_t length), (fd, bytes, length), Answer(Read, ssize_t{-1}, pass))
WRAP(ssize_t, write, (int fd, const void* bytes, size_t length), (fd, bytes, length), Answer(Write, ssize_t{-1}, pass))

WRAP(udev*, udev_new, (), (), Answer(Udev_New, static_cast<udev*>(nullptr), pass))
WRAP(udev_enumerate*, udev_enumerate_new, (udev * context), (context),
     Answer(Udev_Enumerate, static_cast<udev_enumerate*>(nullptr), pass))
WRAP(int, udev_enumerate_add_match_subsystem, (udev_enumerate * list, const char* name), (list, name),
     Answer_Negative(Udev_Match, pass))
WRAP(int, udev_enumerate_scan_devices, (udev_enumerate * list), (list), Answer_Negative(Udev_Scan, pass))
WRAP(udev_device*, udev_device_new_from_syspath, (udev * context, const char* path), (context, path),
     Answer(Udev_Device, static_cast<udev_device*>(nullptr), pass))
WRAP(udev_monitor*, udev_monitor_new_from_netlink, (udev * context, const char* name), (context, name),
     Answer(Udev_Monitor, static_cast<udev_monitor*>(nullptr), pass))
WRAP(int, udev_monitor_filter_add_match_subsystem_devtype,
     (udev_monitor * monitor, const char* subsystem, const char* type), (monitor, subsystem, type),
     Answer_Negative(Udev_Filter, pass))
WRAP(int, udev_monitor_enable_receiving, (udev_monitor * monitor), (monitor), Answer_Negative(Udev_Receive, pass))

WRAP(void*, malloc, (size_t bytes), (bytes), Allocation_Fails() ? nullptr : pass())
WRAP(void*, calloc, (size_t count, size_t bytes), (count, bytes), Allocation_Fails() ? nullptr : pass())
WRAP(char*, strdup, (const char* text), (text), Allocation_Fails() ? nullptr : pass())
WRAP(char*, strndup, (const char* text, size_t length), (text, length), Allocation_Fails() ? nullptr : pass())

extern "C" int __real_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...);
extern "C" int __wrap_open(const char* path, int flags, ...)
{
    return Answer(Open, -1, [=] { return __real_open(path, flags); });  // the library creates no file
}

extern "C" int __real_ioctl(int fd, unsigned long request, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...);
extern "C" int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list list;
    va_start(list, request);
    void* argument = va_arg(list, void*);
    va_end(list);
    return Answer(static_cast<Site>(request), -1, [=] { return __real_ioctl(fd, request, argument); });
}
