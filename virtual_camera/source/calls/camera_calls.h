// The intercepted calls as far as they concern cameras. Plain types only: the interposer, which must run before a
// sanitizer's runtime does, shares no template with the rest.
#ifndef WQZ_VIRTUAL_CAMERA_CAMERA_CALLS_H
#define WQZ_VIRTUAL_CAMERA_CAMERA_CALLS_H

#include <poll.h>
#include <sys/select.h>
#include <sys/types.h>
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace virtual_camera::calls {

/// The number of descriptors and mappings of cameras. Read and written atomically; valid before any constructor runs.
extern int in_use;

/// Keeps errno as the program knows it, across what the driver does inside.
class Errno_Keeper {
public:
    ~Errno_Keeper() { errno = value; }
    void Set(int error) { value = error != 0 ? error : value; }

private:
    int value = errno;
};

inline bool Is_Idle()
{
    return __atomic_load_n(&in_use, __ATOMIC_ACQUIRE) == 0;
}

// Each gives false when the call concerns no camera, and leaves errno alone then; else it sets errno as the call does.
bool Open(const char* path, int flags, int* result);
bool Ioctl(int fd, uint32_t request, void* argument, int* result);
bool Mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset, void** result);

// These leave errno alone.
void Munmap(void* address, size_t length);
void Close(int fd);
void Duplicate(int original, int copy);

bool Poll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask, int* result);

/// The whole call, scripted or real.
int Select(int count, fd_set* read, fd_set* write, fd_set* except, timeval* timeout);

}  // namespace virtual_camera::calls

#endif  // WQZ_VIRTUAL_CAMERA_CAMERA_CALLS_H
