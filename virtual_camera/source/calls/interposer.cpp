// The system calls of programs arrive here first. Calls that concern no virtual camera go to libc unchanged.
// They may run before any constructor and any sanitizer's runtime, and inside malloc: until a camera is open, they look
// at one counter and at the beginning of paths only. This file is never instrumented.

// It defines both "mmap" and "mmap64", both "ppoll" and "__ppoll64". With these the headers would make one of the two.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include <linux/time_types.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cstdarg>

#include "calls/camera_calls.h"
#include "system/real_calls.h"

#define INTERCEPT extern "C" __attribute__((visibility("default")))

using namespace virtual_camera;

namespace {

constexpr int Working_Folder = -100;  // AT_FDCWD

Time Duration(int64_t seconds, int64_t nanoseconds)
{
    return seconds > Never / Second - 1 ? Never : seconds * Second + nanoseconds;
}

using Openat_Call = int(int, const char*, int, ...);

/// A name as a template argument.
template <size_t Size>
struct Name {
    char text[Size];
    constexpr Name(const char (&name)[Size]) { std::copy_n(name, Size, text); }
};

/// Calls the next definition of a function, usually libc's.
template <Name name, typename Call, typename... Arguments>
auto Pass_On(Arguments... arguments)
{
    static std::atomic<Call*> cache;
    Call* function = cache.load(std::memory_order_relaxed);
    if (!function) {
        function = reinterpret_cast<Call*>(real::Next(name.text));
        cache.store(function, std::memory_order_relaxed);
    }
    return function(arguments...);
}

bool Is_Device_Path(const char* path)
{
    const char* prefix = "/dev/";
    while (path && *prefix != '\0' && *path == *prefix) {
        path++;
        prefix++;
    }
    return path && *prefix == '\0';
}

bool Open_Camera(const char* path, int flags, int* fd)
{
    return Is_Device_Path(path) && calls::Open(path, flags, fd);
}

void* Mmap_Any(void* address, size_t length, int protection, int flags, int fd, int64_t offset)
{
    void* result = nullptr;
    if (fd >= 0 && !calls::Is_Idle() && calls::Mmap(address, length, protection, flags, fd, offset, &result)) {
        return result;
    }
    return real::Mmap(address, length, protection, flags, fd, offset);
}

// The registry forgets the mapping first, because another thread may map a buffer at this address at once.
int Munmap_Any(void* address, size_t length)
{
    if (!calls::Is_Idle()) {
        calls::Munmap(address, length);
    }
    return real::Munmap(address, length);
}

int Close_Any(int fd)
{
    if (fd >= 0 && !calls::Is_Idle()) {
        calls::Close(fd);
    }
    return real::Close(fd);
}

int Duplicated(int original, int copy)
{
    if (copy >= 0 && !calls::Is_Idle()) {
        calls::Duplicate(original, copy);
    }
    return copy;
}

// Callers that keep the code in an int pass it sign-extended, so only its lower half counts.
template <Name name>
int Ioctl_Any(int fd, unsigned long request, void* argument)
{
    int result = -1;
    if (fd >= 0 && !calls::Is_Idle() && calls::Ioctl(fd, static_cast<uint32_t>(request), argument, &result)) {
        return result;
    }
    return Pass_On<name, int(int, unsigned long, ...)>(fd, request, argument);
}

template <Name name, typename Timespec>
int Ppoll_Any(pollfd* entries, nfds_t count, const Timespec* timeout, const sigset_t* mask)
{
    if (!calls::Is_Idle()) {
        int result = -1;
        const Time limit = timeout ? Duration(timeout->tv_sec, static_cast<long>(timeout->tv_nsec)) : Never;
        if (calls::Poll(entries, count, limit, mask, &result)) {
            return result;
        }
    }
    return Pass_On<name, int(pollfd*, nfds_t, const Timespec*, const sigset_t*)>(entries, count, timeout, mask);
}

template <Name name, typename Timeval>
int Select_Any(int count, fd_set* read, fd_set* write, fd_set* except, Timeval* timeout)
{
    if (!calls::Is_Idle()) {
        int result = -1;
        Time limit = timeout ? Duration(timeout->tv_sec, timeout->tv_usec * int64_t{1000}) : Never;
        if (calls::Select(count, read, write, except, limit, &result)) {
            if (timeout && limit != Never) {
                timeout->tv_sec = static_cast<decltype(timeout->tv_sec)>(limit / Second);
                timeout->tv_usec = static_cast<decltype(timeout->tv_usec)>(limit % Second / 1000);
            }
            return result;
        }
    }
    return Pass_On<name, int(int, fd_set*, fd_set*, fd_set*, Timeval*)>(count, read, write, except, timeout);
}

int Poll_Any(pollfd* entries, nfds_t count, int milliseconds)
{
    const timespec timeout{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    return Ppoll_Any<"ppoll">(entries, count, milliseconds < 0 ? nullptr : &timeout, nullptr);
}

// umockdev's open keeps an entry for every path below /dev, even when the open failed, and aborts the process when its
// fifty entries are full. Its openat finds the same files and keeps none.
template <Name name, typename Call, typename... Mode>
int Open_Any(const char* path, int flags, Mode... mode)
{
    int fd = -1;
    if (!Is_Device_Path(path)) {
        return Pass_On<name, Call>(path, flags, mode...);
    }
    return calls::Open(path, flags, &fd) ? fd : Pass_On<"openat", Openat_Call>(Working_Folder, path, flags, mode...);
}

template <Name name>
int Openat_Any(int folder, const char* path, int flags, unsigned mode)
{
    int fd = -1;
    return Open_Camera(path, flags, &fd) ? fd : Pass_On<name, Openat_Call>(folder, path, flags, mode);
}

}  // namespace

// This passes a mode on even when the caller gave none; libc uses it only for calls that may create a file.
#define READ_MODE(last)                           \
    va_list list;                                 \
    va_start(list, last);                         \
    const unsigned mode = va_arg(list, unsigned); \
    va_end(list);

#define DEFINE_OPEN(name)                                                      \
    INTERCEPT int name(const char* path, int flags, ...)                       \
    {                                                                          \
        READ_MODE(flags)                                                       \
        return Open_Any<#name, int(const char*, int, ...)>(path, flags, mode); \
    }

#define DEFINE_OPENAT(name)                                          \
    INTERCEPT int name(int folder, const char* path, int flags, ...) \
    {                                                                \
        READ_MODE(flags)                                             \
        return Openat_Any<#name>(folder, path, flags, mode);         \
    }

#define DEFINE_CHECKED_OPEN(name)                                   \
    INTERCEPT int name(const char* path, int flags)                 \
    {                                                               \
        return Open_Any<#name, int(const char*, int)>(path, flags); \
    }

// NOLINTBEGIN(clang-analyzer-valist.Uninitialized): the checker misses va_start inside the macro
DEFINE_OPEN(open)
DEFINE_OPEN(open64)
DEFINE_OPENAT(openat)
DEFINE_OPENAT(openat64)
// NOLINTEND(clang-analyzer-valist.Uninitialized)
DEFINE_CHECKED_OPEN(__open_2)
DEFINE_CHECKED_OPEN(__open64_2)

#define DEFINE_IOCTL(name)                                 \
    INTERCEPT int name(int fd, unsigned long request, ...) \
    {                                                      \
        va_list list;                                      \
        va_start(list, request);                           \
        void* argument = va_arg(list, void*);              \
        va_end(list);                                      \
        return Ioctl_Any<#name>(fd, request, argument);    \
    }

DEFINE_IOCTL(ioctl)

// A 32-bit offset counts as unsigned: kernel buffers lie beyond 2 GiB.
INTERCEPT void* mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset)
{
    return Mmap_Any(address, length, protection, flags, fd, static_cast<int64_t>(static_cast<size_t>(offset)));
}

INTERCEPT void* mmap64(void* address, size_t length, int protection, int flags, int fd, off64_t offset)
{
    return Mmap_Any(address, length, protection, flags, fd, offset);
}

INTERCEPT int munmap(void* address, size_t length)
{
    return Munmap_Any(address, length);
}

INTERCEPT int close(int fd)
{
    return Close_Any(fd);
}

INTERCEPT int dup(int fd)
{
    return Duplicated(fd, Pass_On<"dup", int(int)>(fd));
}

INTERCEPT int dup2(int fd, int copy)
{
    return Duplicated(fd, Pass_On<"dup2", int(int, int)>(fd, copy));
}

INTERCEPT int dup3(int fd, int copy, int flags)
{
    return Duplicated(fd, real::Dup3(fd, copy, flags));
}

INTERCEPT int poll(pollfd* entries, nfds_t count, int milliseconds)
{
    return Poll_Any(entries, count, milliseconds);
}

INTERCEPT int __poll_chk(pollfd* entries, nfds_t count, int milliseconds, size_t)
{
    return Poll_Any(entries, count, milliseconds);
}

INTERCEPT int ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask)
{
    return Ppoll_Any<"ppoll">(entries, count, timeout, mask);
}

INTERCEPT int __ppoll_chk(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask, size_t)
{
    return Ppoll_Any<"ppoll">(entries, count, timeout, mask);
}

INTERCEPT int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout)
{
    return Select_Any<"select">(count, read, write, except, timeout);
}

// glibc's names for programs with a 64-bit time_t on 32-bit processors. The upper half of tv_nsec may hold anything.
#if __SIZEOF_LONG__ == 4
DEFINE_IOCTL(__ioctl_time64)

INTERCEPT int __ppoll64(pollfd* entries, nfds_t count, const __kernel_timespec* timeout, const sigset_t* mask)
{
    return Ppoll_Any<"__ppoll64">(entries, count, timeout, mask);
}

INTERCEPT int __ppoll64_chk(pollfd* entries, nfds_t count, const __kernel_timespec* timeout, const sigset_t* mask,
                            size_t)
{
    return Ppoll_Any<"__ppoll64">(entries, count, timeout, mask);
}

INTERCEPT int __select64(int count, fd_set* read, fd_set* write, fd_set* except, __kernel_sock_timeval* timeout)
{
    return Select_Any<"__select64">(count, read, write, except, timeout);
}
#endif

#ifdef SYS_mmap2
constexpr long Mmap_Number = SYS_mmap2;
constexpr int64_t Mmap_Unit = 4096;
#else
constexpr long Mmap_Number = SYS_mmap;
constexpr int64_t Mmap_Unit = 1;
#endif

// libv4l2 calls the kernel this way, so that programs can wrap the functions above around it.
INTERCEPT long syscall(long number, ...)
{
    long a[6];
    va_list list;
    va_start(list, number);
    for (long& argument : a) {
        argument = va_arg(list, long);
    }
    va_end(list);
    int result = -1;
    if (number == SYS_openat && Open_Camera(reinterpret_cast<const char*>(a[1]), static_cast<int>(a[2]), &result)) {
        return result;
    }
#ifdef SYS_open
    if (number == SYS_open && Open_Camera(reinterpret_cast<const char*>(a[0]), static_cast<int>(a[1]), &result)) {
        return result;
    }
#endif
    if (calls::Is_Idle()) {
        return real::Syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
    }
    if (number == SYS_ioctl &&
        calls::Ioctl(static_cast<int>(a[0]), static_cast<uint32_t>(a[1]), reinterpret_cast<void*>(a[2]), &result)) {
        return result;
    }
    if (number == SYS_close) {
        return Close_Any(static_cast<int>(a[0]));
    }
    if (number == SYS_munmap) {
        return Munmap_Any(reinterpret_cast<void*>(a[0]), static_cast<size_t>(a[1]));
    }
    if (number == Mmap_Number) {
        const auto offset = static_cast<int64_t>(static_cast<size_t>(a[5])) * Mmap_Unit;
        return reinterpret_cast<long>(Mmap_Any(reinterpret_cast<void*>(a[0]), static_cast<size_t>(a[1]),
                                               static_cast<int>(a[2]), static_cast<int>(a[3]), static_cast<int>(a[4]),
                                               offset));
    }
    return real::Syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
