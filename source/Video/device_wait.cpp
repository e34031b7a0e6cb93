#include "Video/device_wait.h"

#include <sys/select.h>

#include <vector>

int32_t Wait_Readable(int32_t fd, timeval time_out)
{
    if (fd < 0) {
        return select(fd + 1, nullptr, nullptr, nullptr, &time_out);
    }
    // The kernel takes sets of any size; neighbouring fd_sets make one.
    std::vector<fd_set> readable(static_cast<std::size_t>(fd / FD_SETSIZE + 1));
    for (fd_set& set : readable) {
        FD_ZERO(&set);
    }
    FD_SET(fd % FD_SETSIZE, &readable.back());
    return select(fd + 1, readable.data(), nullptr, nullptr, &time_out);
}
