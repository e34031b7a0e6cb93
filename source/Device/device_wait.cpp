// Waiting for a capture device.
#include "Device/device_wait.h"

#include <sys/select.h>

#include <cerrno>
#include <cstdlib>

namespace {

int32_t Select_Readable(int32_t fd, fd_set* sets, timeval& time_out)
{
    FD_SET(fd % FD_SETSIZE, &sets[fd / FD_SETSIZE]);
    return select(fd + 1, sets, nullptr, nullptr, &time_out);
}

// The kernel takes sets of any size, so several of the library's sets in a row make a larger one.
int32_t Select_High_Descriptor(int32_t fd, timeval& time_out)
{
    auto* sets = static_cast<fd_set*>(std::calloc(static_cast<std::size_t>(fd / FD_SETSIZE) + 1, sizeof(fd_set)));
    if (sets == nullptr) {
        return -1;  // calloc has set errno
    }
    const int32_t ready = Select_Readable(fd, sets, time_out);
    const int error = errno;
    std::free(sets);
    errno = error;  // the caller asks why select failed
    return ready;
}

}  // namespace

int32_t Wait_Readable(int32_t fd, timeval time_out)
{
    if (fd < 0) {
        return select(fd + 1, nullptr, nullptr, nullptr, &time_out);
    }
    if (fd >= FD_SETSIZE) {
        return Select_High_Descriptor(fd, time_out);
    }
    fd_set readable;
    FD_ZERO(&readable);
    return Select_Readable(fd, &readable, time_out);
}
