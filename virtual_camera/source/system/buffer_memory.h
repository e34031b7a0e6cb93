// The memory of one buffer as the driver sees it: shared memory of its own that programs map, or memory that a program
// handed over.
#ifndef WQZ_VIRTUAL_CAMERA_BUFFER_MEMORY_H
#define WQZ_VIRTUAL_CAMERA_BUFFER_MEMORY_H

#include <cstddef>
#include <cstdint>

namespace virtual_camera {

/// When there is no memory the object is empty: Data() is null.
class Buffer_Memory {
public:
    explicit Buffer_Memory(size_t bytes);
    explicit Buffer_Memory(void* own);  ///< memory that is not freed
    ~Buffer_Memory();
    Buffer_Memory(const Buffer_Memory&) = delete;
    Buffer_Memory& operator=(const Buffer_Memory&) = delete;

    uint8_t* Data() const { return data; }
    int Descriptor() const { return fd; }

private:
    int fd = -1;
    uint8_t* data = nullptr;
    size_t mapped_bytes = 0;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_BUFFER_MEMORY_H
