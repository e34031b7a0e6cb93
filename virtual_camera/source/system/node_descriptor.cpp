// Builds node descriptors from epoll, timerfd and eventfd.
#include "system/node_descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <cerrno>
#include <utility>

#include "system/real_calls.h"

namespace virtual_camera {

Node_Descriptor::~Node_Descriptor()
{
    for (int fd : {timer, signal}) {
        if (fd >= 0) {
            real::Close(fd);
        }
    }
}

int Node_Descriptor::Open(int open_flags, int lowest_number)
{
    const bool close_on_exec = (open_flags & O_CLOEXEC) != 0;
    int fd = epoll_create1(close_on_exec ? EPOLL_CLOEXEC : 0);
    if (fd >= 0 && fd < lowest_number) {
        const int low = std::exchange(fd, fcntl(fd, close_on_exec ? F_DUPFD_CLOEXEC : F_DUPFD, lowest_number));
        real::Close(low);
    }
    if (fd < 0) {
        return -errno;
    }
    for (int* shared : {&timer, &signal}) {  // after a fork, these belong to the parent as well
        if (*shared >= 0) {
            real::Close(std::exchange(*shared, -1));
        }
    }
    timer = real::Move_Up(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC));
    epoll_event watch{};
    watch.events = EPOLLIN;
    if (timer < 0 || epoll_ctl(fd, EPOLL_CTL_ADD, timer, &watch) != 0 ||
        fcntl(fd, F_SETFL, open_flags & O_NONBLOCK) != 0) {
        const int error = errno;
        real::Close(fd);
        return -error;
    }
    Arm(At_Once, true);
    return fd;
}

void Node_Descriptor::Arm(Time time, bool settle) const
{
    itimerspec setting{};
    if (time != Never) {
        const Time when = time == At_Once ? 1 : time;  // 0 would switch the timer off
        setting.it_value.tv_sec = static_cast<time_t>(when / Second);
        setting.it_value.tv_nsec = static_cast<long>(when % Second);
    }
    timerfd_settime(timer, TFD_TIMER_ABSTIME, &setting, nullptr);
    if (time == At_Once && settle) {
        // Even a timer in the past fires a moment later.
        pollfd entry{timer, POLLIN, 0};
        (void)real::Wait(&entry, 1, Second / 10, nullptr);
    }
}

int Node_Descriptor::Wait() const
{
    uint64_t expirations = 0;
    return read(timer, &expirations, sizeof expirations) < 0 ? -errno : 0;
}

int Node_Descriptor::Signal_Descriptor()
{
    if (signal < 0) {
        signal = real::Move_Up(eventfd(signalled ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK));
    }
    return signal;
}

void Node_Descriptor::Signal(bool on)
{
    if (on != signalled && signal >= 0) {
        eventfd_t count = 0;
        (void)(on ? eventfd_write(signal, 1) : eventfd_read(signal, &count));
    }
    signalled = on;
}

int Node_Descriptor::Wait_For_Signal() const
{
    pollfd entry{signal, POLLIN, 0};
    return real::Wait(&entry, 1, Never, nullptr) < 0 ? -errno : 0;
}

}  // namespace virtual_camera
