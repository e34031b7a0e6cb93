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

Buffer_Memory::Buffer_Memory(size_t size) : size_(size)
{
    const int fd = memfd_create("virtual-camera", MFD_CLOEXEC);
    if (fd < 0) {
        return;
    }
    fd_ = Move_Up(fd);
    if (ftruncate(fd_, off_t(size)) != 0) {
        return;
    }
    void* data = real::Mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd_, 0);
    data_ = data == MAP_FAILED ? nullptr : static_cast<uint8_t*>(data);
}

Buffer_Memory::~Buffer_Memory()
{
    if (data_) {
        real::Munmap(data_, size_);
    }
    if (fd_ >= 0) {
        real::Close(fd_);
    }
}

}  // namespace virtual_camera
