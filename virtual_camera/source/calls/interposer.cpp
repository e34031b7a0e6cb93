// The system calls of programs arrive here first. Calls that concern no virtual camera go to libc unchanged.
// They may run before any constructor and any sanitizer's runtime, and inside malloc: until a camera is open, they look
// at one counter and at the beginning of paths only. This file is never instrumented.
#include <poll.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <cstdarg>

#include "calls/camera_calls.h"
#include "system/real_calls.h"

#define INTERCEPT extern "C" __attribute__((visibility("default")))

using namespace virtual_camera;

namespace {

constexpr int Working_Folder = -100;  // AT_FDCWD

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

void* Mmap_Any(void* address, size_t length, int protection, int flags, int fd, off_t offset)
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

int Ppoll_Any(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask)
{
    int result = -1;
    if (!calls::Is_Idle() && calls::Poll(entries, count, timeout, mask, &result)) {
        return result;
    }
    return real::Ppoll(entries, count, timeout, mask);
}

int Poll_Any(pollfd* entries, nfds_t count, int milliseconds)
{
    const timespec timeout{milliseconds / 1000, milliseconds % 1000 * 1000000L};
    return Ppoll_Any(entries, count, milliseconds < 0 ? nullptr : &timeout, nullptr);
}

using Open_Call = int(const char*, int, ...);
using Openat_Call = int(int, const char*, int, ...);

template <typename Call, typename... Arguments>
int Pass_On(const char* name, Arguments... arguments)
{
    return reinterpret_cast<Call*>(real::Next(name))(arguments...);
}

// umockdev's open keeps an entry for every path below /dev, even when the open failed, and aborts the process when its
// fifty entries are full. Its openat finds the same files and keeps none.
template <typename Call, typename... Mode>
int Open_Other(const char* name, const char* path, int flags, Mode... mode)
{
    return Is_Device_Path(path) ? Pass_On<Openat_Call>("openat", Working_Folder, path, flags, mode...)
                                : Pass_On<Call>(name, path, flags, mode...);
}

}  // namespace

// This passes a mode on even when the caller gave none; libc uses it only for calls that may create a file.
#define READ_MODE(last)                           \
    va_list list;                                 \
    va_start(list, last);                         \
    const unsigned mode = va_arg(list, unsigned); \
    va_end(list);

#define DEFINE_OPEN(name)                                                                            \
    INTERCEPT int name(const char* path, int flags, ...)                                             \
    {                                                                                                \
        READ_MODE(flags)                                                                             \
        int fd = -1;                                                                                 \
        return Open_Camera(path, flags, &fd) ? fd : Open_Other<Open_Call>(#name, path, flags, mode); \
    }

#define DEFINE_OPENAT(name)                                                                                 \
    INTERCEPT int name(int folder, const char* path, int flags, ...)                                        \
    {                                                                                                       \
        READ_MODE(flags)                                                                                    \
        int fd = -1;                                                                                        \
        return Open_Camera(path, flags, &fd) ? fd : Pass_On<Openat_Call>(#name, folder, path, flags, mode); \
    }

#define DEFINE_CHECKED_OPEN(name)                                                                          \
    INTERCEPT int name(const char* path, int flags)                                                        \
    {                                                                                                      \
        int fd = -1;                                                                                       \
        return Open_Camera(path, flags, &fd) ? fd : Open_Other<int(const char*, int)>(#name, path, flags); \
    }

// NOLINTBEGIN(clang-analyzer-valist.Uninitialized): the checker misses va_start inside the macro
DEFINE_OPEN(open)
DEFINE_OPEN(open64)
DEFINE_OPENAT(openat)
DEFINE_OPENAT(openat64)
// NOLINTEND(clang-analyzer-valist.Uninitialized)
DEFINE_CHECKED_OPEN(__open_2)
DEFINE_CHECKED_OPEN(__open64_2)

// Callers that keep the code in an int pass it sign-extended, so only its lower half counts.
INTERCEPT int ioctl(int fd, unsigned long request, ...)
{
    va_list list;
    va_start(list, request);
    void* argument = va_arg(list, void*);
    va_end(list);
    int result = -1;
    if (fd >= 0 && !calls::Is_Idle() && calls::Ioctl(fd, static_cast<uint32_t>(request), argument, &result)) {
        return result;
    }
    return real::Ioctl(fd, request, argument);
}

INTERCEPT void* mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset)
{
    return Mmap_Any(address, length, protection, flags, fd, offset);
}

INTERCEPT void* mmap64(void* address, size_t length, int protection, int flags, int fd, off_t offset)
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
    return Duplicated(fd, Pass_On<int(int)>("dup", fd));
}

INTERCEPT int dup2(int fd, int copy)
{
    return Duplicated(fd, Pass_On<int(int, int)>("dup2", fd, copy));
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
    return Ppoll_Any(entries, count, timeout, mask);
}

INTERCEPT int __ppoll_chk(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask, size_t)
{
    return Ppoll_Any(entries, count, timeout, mask);
}

INTERCEPT int select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout)
{
    return calls::Is_Idle() ? real::Select(count, read, write, except, timeout)
                            : calls::Select(count, read, write, except, timeout);
}

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
#ifdef SYS_mmap
    if (number == SYS_mmap) {
        return reinterpret_cast<long>(Mmap_Any(reinterpret_cast<void*>(a[0]), static_cast<size_t>(a[1]),
                                               static_cast<int>(a[2]), static_cast<int>(a[3]), static_cast<int>(a[4]),
                                               a[5]));
    }
#endif
    return real::Syscall(number, a[0], a[1], a[2], a[3], a[4], a[5]);
}
