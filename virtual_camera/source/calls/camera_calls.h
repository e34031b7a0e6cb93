// What cameras do at intercepted calls. Only plain types appear here: the interposer runs before a sanitizer's runtime,
// and must not share instrumented templates with the other files.
#ifndef WQZ_VIRTUAL_CAMERA_CAMERA_CALLS_H
#define WQZ_VIRTUAL_CAMERA_CAMERA_CALLS_H

#include <poll.h>
#include <sys/select.h>
#include <cerrno>
#include <cstddef>

#include "system/monotonic_time.h"

namespace virtual_camera::calls {

/// The number of descriptors and mappings of cameras. Read and written atomically; valid before any constructor runs.
extern int in_use;

/// Keeps the program's errno unchanged by calls that the driver makes.
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

// Each returns false and keeps errno when the call concerns no camera. Otherwise it sets errno as the call does.
// Time-outs are durations, or Never. Select replaces its one by the time that is left.
bool Open(const char* path, int flags, int* result);
bool Ioctl(int fd, uint32_t request, void* argument, int* result);
bool Mmap(void* address, size_t length, int protection, int flags, int fd, int64_t offset, void** result);
bool Poll(pollfd* entries, nfds_t count, Time timeout, const sigset_t* mask, int* result);
bool Select(int count, fd_set* read, fd_set* write, fd_set* except, Time& timeout, int* result);

// These keep errno.
void Munmap(void* address, size_t length);
void Close(int fd);
void Duplicate(int original, int copy);

}  // namespace virtual_camera::calls

#endif  // WQZ_VIRTUAL_CAMERA_CAMERA_CALLS_H
