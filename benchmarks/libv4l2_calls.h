// The calls of libv4l2, for Mapped_Stream.
#ifndef WQZ_BENCHMARKS_LIBV4L2_CALLS_H
#define WQZ_BENCHMARKS_LIBV4L2_CALLS_H

#include <fcntl.h>
#include <libv4l2.h>
#include <sys/mman.h>
#include <cstddef>
#include <cstdint>

struct Libv4l2_Calls {
    static int Open(const char* node) { return v4l2_open(node, O_RDWR); }
    static int Request(int fd, unsigned long request, void* argument) { return v4l2_ioctl(fd, request, argument); }
    static void* Map(size_t length, int fd, uint32_t offset)
    {
        return v4l2_mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, offset);
    }
    static int Unmap(void* address, size_t length) { return v4l2_munmap(address, length); }
    static int Close(int fd) { return v4l2_close(fd); }
};

#endif  // WQZ_BENCHMARKS_LIBV4L2_CALLS_H
