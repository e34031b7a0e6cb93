// The next definitions of the intercepted calls, found by name.
#include "system/real_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <atomic>

// A sanitizer linked into the program keeps its own definitions of the same names; it must see these calls, or it takes
// memory that was unmapped and mapped again for the old one.
#ifdef WQZ_LINKED_WITH_SANITIZER
extern "C" {
__attribute__((weak)) void* __interceptor_mmap(void*, size_t, int, int, int, off_t);
__attribute__((weak)) int __interceptor_munmap(void*, size_t);
__attribute__((weak)) int __interceptor_close(int);
}
#endif

namespace virtual_camera::real {
namespace {

using Ioctl_Call = int(int, unsigned long, ...);
using Mmap_Call = void*(void*, size_t, int, int, int, off_t);
using Munmap_Call = int(void*, size_t);
using Close_Call = int(int);
using Dup3_Call = int(int, int, int);
using Select_Call = int(int, fd_set*, fd_set*, fd_set*, timeval*);
using Poll_Call = int(pollfd*, nfds_t, int);
using Ppoll_Call = int(pollfd*, nfds_t, const timespec*, const sigset_t*);
using Syscall_Call = long(long, ...);

template <typename Function>
Function* Find(std::atomic<Function*>& cache, const char* name)
{
    Function* function = cache.load(std::memory_order_relaxed);
    if (!function) {
        function = reinterpret_cast<Function*>(Next(name));
        cache.store(function, std::memory_order_relaxed);
    }
    return function;
}

}  // namespace

void* Next(const char* name)
{
    return dlsym(RTLD_NEXT, name);
}

int Ioctl(int fd, unsigned long request, void* argument)
{
    static std::atomic<Ioctl_Call*> cache;
    return Find(cache, "ioctl")(fd, request, argument);
}

void* Mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset)
{
#ifdef WQZ_LINKED_WITH_SANITIZER
    if (__interceptor_mmap) {
        return __interceptor_mmap(address, length, protection, flags, fd, offset);
    }
#endif
    static std::atomic<Mmap_Call*> cache;
    return Find(cache, "mmap")(address, length, protection, flags, fd, offset);
}

int Munmap(void* address, size_t length)
{
#ifdef WQZ_LINKED_WITH_SANITIZER
    if (__interceptor_munmap) {
        return __interceptor_munmap(address, length);
    }
#endif
    static std::atomic<Munmap_Call*> cache;
    return Find(cache, "munmap")(address, length);
}

int Close(int fd)
{
#ifdef WQZ_LINKED_WITH_SANITIZER
    if (__interceptor_close) {
        return __interceptor_close(fd);
    }
#endif
    static std::atomic<Close_Call*> cache;
    return Find(cache, "close")(fd);
}

int Dup3(int fd, int copy, int flags)
{
    static std::atomic<Dup3_Call*> cache;
    return Find(cache, "dup3")(fd, copy, flags);
}

int Select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout)
{
    static std::atomic<Select_Call*> cache;
    return Find(cache, "select")(count, read, write, except, timeout);
}

int Poll(pollfd* entries, nfds_t count, int milliseconds)
{
    static std::atomic<Poll_Call*> cache;
    return Find(cache, "poll")(entries, count, milliseconds);
}

int Ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask)
{
    static std::atomic<Ppoll_Call*> cache;
    return Find(cache, "ppoll")(entries, count, timeout, mask);
}

long Syscall(long number, const long (&a)[6])
{
    static std::atomic<Syscall_Call*> cache;
    return Find(cache, "syscall")(number, a[0], a[1], a[2], a[3], a[4], a[5]);
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
