#include "system/node_timer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/timerfd.h>
#include <unistd.h>
#include <cerrno>

#include "system/real_calls.h"

namespace virtual_camera {

int Make_Timer(int open_flags, int lowest_number)
{
    const int flags =
        ((open_flags & O_NONBLOCK) != 0 ? TFD_NONBLOCK : 0) | ((open_flags & O_CLOEXEC) != 0 ? TFD_CLOEXEC : 0);
    int fd = timerfd_create(CLOCK_MONOTONIC, flags);
    if (fd < 0) {
        return -errno;
    }
    if (fd < lowest_number) {
        const int moved = fcntl(fd, (open_flags & O_CLOEXEC) != 0 ? F_DUPFD_CLOEXEC : F_DUPFD, lowest_number);
        const int error = errno;
        real::Close(fd);
        if (moved < 0) {
            return -error;
        }
        fd = moved;
    }
    Arm_Timer(fd, At_Once, true);
    return fd;
}

void Arm_Timer(int fd, Time time, bool settle)
{
    itimerspec setting{};
    if (time != Never) {
        const Time when = time == At_Once ? 1 : time;  // 0 would switch the timer off
        setting.it_value.tv_sec = when / Second;
        setting.it_value.tv_nsec = when % Second;
    }
    timerfd_settime(fd, TFD_TIMER_ABSTIME, &setting, nullptr);
    if (time == At_Once && settle) {
        // Even a timer in the past fires a moment later.
        constexpr int Patience_Ms = 100;
        pollfd timer{fd, POLLIN, 0};
        (void)poll(&timer, 1, Patience_Ms);
    }
}

int Wait_For_Timer(int fd)
{
    uint64_t expirations = 0;
    return read(fd, &expirations, sizeof expirations) < 0 ? -errno : 0;
}

}  // namespace virtual_camera
