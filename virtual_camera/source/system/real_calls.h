// Calls the functions that the intercepted ones hide: the next definition in the search order, usually libc's.
#ifndef WQZ_VIRTUAL_CAMERA_REAL_CALLS_H
#define WQZ_VIRTUAL_CAMERA_REAL_CALLS_H

#include <poll.h>
#include <sys/select.h>
#include <cstddef>

#include "system/monotonic_time.h"

namespace virtual_camera::real {

void* Mmap(void* address, size_t length, int protection, int flags, int fd, int64_t offset);
int Munmap(void* address, size_t length);
int Close(int fd);
int Dup3(int fd, int copy, int flags);
long Syscall(long number, long a, long b, long c, long d, long e, long f);

/// ppoll; `timeout` is a duration, or Never.
int Wait(pollfd* entries, nfds_t count, Time timeout, const sigset_t* mask);

/// The next definition of a function; not null for functions of libc.
void* Next(const char* name);

/// Moves a descriptor of the driver to a high number, so that the program's own files get the usual numbers.
int Move_Up(int fd);

}  // namespace virtual_camera::real

#endif  // WQZ_VIRTUAL_CAMERA_REAL_CALLS_H
