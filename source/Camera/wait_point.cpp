// Waiting on one epoll descriptor.
#include "Camera/wait_point.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "Camera/failure.h"

namespace wqz_camera {

namespace {

bool Add(int poll_descriptor, int descriptor, unsigned cause)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u32 = cause;
    return epoll_ctl(poll_descriptor, EPOLL_CTL_ADD, descriptor, &event) == 0;
}

}  // namespace

Deadline::Deadline(int32_t milliseconds)
    : endless(milliseconds < 0), end(Clock::now() + std::chrono::milliseconds(std::max(milliseconds, 0)))
{
}

bool Deadline::Has_Passed() const
{
    return !endless && Clock::now() >= end;
}

int Deadline::Remaining(int limit) const
{
    if (endless) {
        return limit;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, limit));
}

Udev_Owner<udev_monitor> Watch_Video_Nodes(udev* context, const char* source)
{
    if (context == nullptr) {
        return nullptr;
    }
    Udev_Owner<udev_monitor> monitor(udev_monitor_new_from_netlink(context, source));
    if (!monitor || udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "video4linux", nullptr) < 0 ||
        udev_monitor_enable_receiving(monitor.get()) < 0) {
        return nullptr;
    }
    return monitor;
}

Wait_Point::Wait_Point()
    : poll_descriptor(epoll_create1(EPOLL_CLOEXEC)), wake_descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    if (poll_descriptor < 0 || wake_descriptor < 0 || !Add(poll_descriptor, wake_descriptor, Woken)) {
        const int error = errno;
        throw Failure(error, "The process has no descriptor left for a camera: close files, or raise ulimit -n.");
    }
    context.reset(udev_new());
    plugs = Watch_Video_Nodes(context.get(), "kernel");
    if (plugs && !Add(poll_descriptor, udev_monitor_get_fd(plugs.get()), Plugging)) {
        plugs.reset();
    }
}

void Wait_Point::Watch(int device)
{
    if (!Add(poll_descriptor, device, Device_Ready)) {
        throw Failure(errno, "The camera's descriptor cannot be polled.");
    }
}

void Wait_Point::Forget(int device)
{
    (void)epoll_ctl(poll_descriptor, EPOLL_CTL_DEL, device, nullptr);
}

unsigned Wait_Point::Wait(int milliseconds)
{
    std::array<epoll_event, 3> events{};
    const int count = epoll_wait(poll_descriptor, events.data(), static_cast<int>(events.size()), milliseconds);
    unsigned causes = 0;
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<size_t>(i)];
        causes |= event.data.u32;
        if (event.data.u32 == Device_Ready && (event.events & (EPOLLERR | EPOLLHUP)) != 0) {
            causes |= Device_Failed;
        }
    }
    if ((causes & Woken) != 0) {
        Drain_Wake_Ups();
    }
    if ((causes & Plugging) != 0) {
        Drain_Plug_Events();
    }
    return causes;
}

void Wait_Point::Pause(int milliseconds) const
{
    pollfd woken{wake_descriptor, POLLIN, 0};
    (void)poll(&woken, 1, milliseconds);
}

void Wait_Point::Wake() noexcept
{
    const int kept = errno;
    const uint64_t one = 1;
    (void)!write(wake_descriptor, &one, sizeof one);  // a full counter wakes as well
    errno = kept;
}

void Wait_Point::Cancel() noexcept
{
    cancelled.store(true);
    Wake();
}

// Drains the wake-up before it takes the mark. The other order could drain the wake-up of a Cancel that came in
// between, whose mark would then wait for the next wake-up.
bool Wait_Point::Take_Cancel()
{
    if (!cancelled.load()) {
        return false;
    }
    Drain_Wake_Ups();
    return cancelled.exchange(false);
}

void Wait_Point::Drain_Wake_Ups()
{
    uint64_t count = 0;
    (void)!read(wake_descriptor, &count, sizeof count);
}

void Wait_Point::Drain_Plug_Events()
{
    if (draining.test_and_set()) {
        return;
    }
    while (const Udev_Owner<udev_device> device{udev_monitor_receive_device(plugs.get())}) {
    }
    draining.clear();
}

}  // namespace wqz_camera
