#include "system/buffer_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "system/real_calls.h"

namespace virtual_camera {
namespace {

// Out of the way of the numbers that the program gets for its own files.
int Move_Up(int fd)
{
    constexpr int Lowest = 500;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, Lowest);
    if (moved < 0) {
        return fd;
    }
    real::Close(fd);
    return moved;
}

}  // namespace

Buffer_Memory::Buffer_Memory(size_t bytes) : size(bytes)
{
    const int low = memfd_create("virtual-camera", MFD_CLOEXEC);
    if (low < 0) {
        return;
    }
    fd = Move_Up(low);
    if (ftruncate(fd, static_cast<off_t>(bytes)) != 0) {
        return;
    }
    void* mapped = real::Mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    data = mapped == MAP_FAILED ? nullptr : static_cast<uint8_t*>(mapped);
}

Buffer_Memory::~Buffer_Memory()
{
    if (data) {
        real::Munmap(data, size);
    }
    if (fd >= 0) {
        real::Close(fd);
    }
}

}  // namespace virtual_camera
