// The shared memory of one allocation of buffers, mapped for the driver; the program maps parts of it by itself.
#ifndef WQZ_VIRTUAL_CAMERA_BUFFER_MEMORY_H
#define WQZ_VIRTUAL_CAMERA_BUFFER_MEMORY_H

#include <cstddef>
#include <cstdint>

namespace virtual_camera {

class Buffer_Memory {
public:
    /// On failure the object is empty (Data() is null).
    explicit Buffer_Memory(size_t bytes);
    ~Buffer_Memory();
    Buffer_Memory(const Buffer_Memory&) = delete;
    Buffer_Memory& operator=(const Buffer_Memory&) = delete;

    uint8_t* Data() const { return data; }
    int Descriptor() const { return fd; }

private:
    int fd = -1;
    uint8_t* data = nullptr;
    size_t size = 0;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_BUFFER_MEMORY_H
