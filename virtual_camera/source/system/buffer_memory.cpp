// Memory of buffers: allocated, mapped, lent.
#include "system/buffer_memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include "system/real_calls.h"

namespace virtual_camera {

Buffer_Memory::Buffer_Memory(size_t bytes)
    : fd(real::Move_Up(memfd_create("virtual-camera", MFD_CLOEXEC))), mapped_bytes(bytes)
{
    if (fd >= 0 && ftruncate(fd, static_cast<off_t>(bytes)) == 0) {
        void* mapped = real::Mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        data = mapped == MAP_FAILED ? nullptr : static_cast<uint8_t*>(mapped);
    }
}

Buffer_Memory::Buffer_Memory(void* own) : data(static_cast<uint8_t*>(own))
{
}

Buffer_Memory::~Buffer_Memory()
{
    if (data && mapped_bytes > 0) {
        real::Munmap(data, mapped_bytes);
    }
    if (fd >= 0) {
        real::Close(fd);
    }
}

}  // namespace virtual_camera
