// Finds the next definitions of the intercepted functions by name.

// "ppoll" must mean the function of that name here. With these it would be the one for a 64-bit time_t.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "system/real_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <algorithm>
#include <atomic>
#include <climits>

namespace virtual_camera::real {

void* Next(const char* name)
{
    return dlsym(RTLD_NEXT, name);
}

// A sanitizer linked into the program keeps its own definitions of the same names. It must see these
// calls, or it takes newly mapped memory for memory that was freed at the same address.
#ifdef WQZ_LINKED_WITH_SANITIZER
extern "C" {
__attribute__((weak)) void* __interceptor_mmap64(void*, size_t, int, int, int, int64_t);
__attribute__((weak)) int __interceptor_munmap(void*, size_t);
__attribute__((weak)) int __interceptor_close(int);
}
#else
constexpr std::nullptr_t __interceptor_mmap64 = nullptr, __interceptor_munmap = nullptr, __interceptor_close = nullptr;
#endif

// Defines Wrapper, which calls `preferred` if that is not null, or else libc's function `name`.
// NOLINTBEGIN(bugprone-macro-parentheses): types and lists take no further parentheses
#define DEFINE_REAL(Result, Wrapper, name, preferred, parameters, arguments) \
    Result Wrapper parameters                                                \
    {                                                                        \
        static std::atomic<Result(*) parameters> cache{preferred};           \
        auto* function = cache.load(std::memory_order_relaxed);              \
        if (!function) {                                                     \
            function = reinterpret_cast<Result(*) parameters>(Next(#name));  \
            cache.store(function, std::memory_order_relaxed);                \
        }                                                                    \
        return function arguments;                                           \
    }
// NOLINTEND(bugprone-macro-parentheses)

DEFINE_REAL(void*, Mmap, mmap64, __interceptor_mmap64,
            (void* address, size_t length, int protection, int flags, int fd, int64_t offset),
            (address, length, protection, flags, fd, offset))
DEFINE_REAL(int, Munmap, munmap, __interceptor_munmap, (void* address, size_t length), (address, length))
DEFINE_REAL(int, Close, close, __interceptor_close, (int fd), (fd))
DEFINE_REAL(int, Dup3, dup3, nullptr, (int fd, int copy, int flags), (fd, copy, flags))
static DEFINE_REAL(int, Ppoll, ppoll, nullptr,
                   (pollfd * entries, nfds_t count, const void* timeout, const sigset_t* mask),
                   (entries, count, timeout, mask))
    DEFINE_REAL(long, Syscall, syscall, nullptr, (long number, long a, long b, long c, long d, long e, long f),
                (number, a, b, c, d, e, f)) int Wait(pollfd* entries, nfds_t count, Time timeout, const sigset_t* mask)
{
    const timespec limit{static_cast<time_t>(std::min<Time>(timeout / Second, LONG_MAX)),
                         static_cast<long>(timeout % Second)};
    return Ppoll(entries, count, timeout == Never ? nullptr : &limit, mask);
}

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
