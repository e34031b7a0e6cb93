// The next definitions of the intercepted calls, found by name.
#include "system/real_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <atomic>

namespace virtual_camera::real {

void* Next(const char* name)
{
    return dlsym(RTLD_NEXT, name);
}

// A function `name` of libc under the name `Wrapper`; the second form is for calls of which a sanitizer must hear.
#define DEFINE_REAL(Result, Wrapper, name, parameters, arguments)           \
    Result Wrapper parameters                                               \
    {                                                                       \
        static std::atomic<Result(*) parameters> cache;                     \
        auto* function = cache.load(std::memory_order_relaxed);             \
        if (!function) {                                                    \
            function = reinterpret_cast<Result(*) parameters>(Next(#name)); \
            cache.store(function, std::memory_order_relaxed);               \
        }                                                                   \
        return function arguments;                                          \
    }

// A sanitizer linked into the program keeps its own definitions of the same names. It must see these calls, or it takes
// memory that was unmapped and mapped again for the old one.
#ifdef WQZ_LINKED_WITH_SANITIZER
#define DEFINE_REAL_SEEN(Result, Wrapper, name, parameters, arguments)                                  \
    extern "C" __attribute__((weak)) Result __interceptor_##name parameters;                            \
    static DEFINE_REAL(Result, Unseen_##Wrapper, name, parameters, arguments) Result Wrapper parameters \
    {                                                                                                   \
        return __interceptor_##name ? __interceptor_##name arguments : Unseen_##Wrapper arguments;      \
    }
#else
#define DEFINE_REAL_SEEN DEFINE_REAL
#endif

DEFINE_REAL_SEEN(void*, Mmap, mmap, (void* address, size_t length, int protection, int flags, int fd, off_t offset),
                 (address, length, protection, flags, fd, offset))
DEFINE_REAL_SEEN(int, Munmap, munmap, (void* address, size_t length), (address, length))
DEFINE_REAL_SEEN(int, Close, close, (int fd), (fd))
DEFINE_REAL(int, Ioctl, ioctl, (int fd, unsigned long request, void* argument), (fd, request, argument))
DEFINE_REAL(int, Dup3, dup3, (int fd, int copy, int flags), (fd, copy, flags))
DEFINE_REAL(int, Select, select, (int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout),
            (count, read, write, except, timeout))
DEFINE_REAL(int, Poll, poll, (pollfd * entries, nfds_t count, int milliseconds), (entries, count, milliseconds))
DEFINE_REAL(int, Ppoll, ppoll, (pollfd * entries, nfds_t count, const timespec* timeout, const sigset_t* mask),
            (entries, count, timeout, mask))
DEFINE_REAL(long, Syscall, syscall, (long number, long a, long b, long c, long d, long e, long f),
            (number, a, b, c, d, e, f))

int Move_Up(int fd)
{
    constexpr int Lowest = 500;
    const int moved = fd < 0 ? -1 : fcntl(fd, F_DUPFD_CLOEXEC, Lowest);
    if (moved < 0) {
        return fd;
    }
    Close(fd);
    return moved;
}

}  // namespace virtual_camera::real
