// A minimal capture loop over memory-mapped buffers, to compare with.
#ifndef WQZ_BENCHMARKS_MAPPED_STREAM_H
#define WQZ_BENCHMARKS_MAPPED_STREAM_H

#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

/// The system calls of a program that talks to the kernel directly.
struct Kernel_Calls {
    static int Open(const char* node) { return open(node, O_RDWR); }
    static int Request(int fd, unsigned long request, void* argument) { return ioctl(fd, request, argument); }
    static void* Map(size_t length, int fd, uint32_t offset)
    {
        return mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, offset);
    }
    static int Unmap(void* address, size_t length) { return munmap(address, length); }
    static int Close(int fd) { return close(fd); }
};

/// The least code that captures frames: four mapped buffers, and a check of every result.
template <typename Calls>
class Mapped_Stream {
public:
    Mapped_Stream(const std::string& node, uint32_t fourcc, uint32_t width, uint32_t height)
        : fd(Calls::Open(node.c_str()))
    {
        if (fd < 0) {
            throw std::runtime_error("cannot open " + node);
        }
        v4l2_format format{};
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        format.fmt.pix.width = width;
        format.fmt.pix.height = height;
        format.fmt.pix.pixelformat = fourcc;
        Ask(VIDIOC_S_FMT, &format);
        if (format.fmt.pix.pixelformat != fourcc || format.fmt.pix.width != width) {
            throw std::runtime_error("mode refused");
        }
        v4l2_requestbuffers wanted{};
        wanted.count = 4;
        wanted.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        wanted.memory = V4L2_MEMORY_MMAP;
        Ask(VIDIOC_REQBUFS, &wanted);
        for (uint32_t i = 0; i < wanted.count; ++i) {
            Map_Buffer(i);
        }
        Ask(VIDIOC_STREAMON, &format.type);
    }
    ~Mapped_Stream()
    {
        uint32_t type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        Calls::Request(fd, VIDIOC_STREAMOFF, &type);
        for (const Mapping& mapping : mappings) {
            Calls::Unmap(mapping.address, mapping.length);
        }
        Calls::Close(fd);
    }
    Mapped_Stream(const Mapped_Stream&) = delete;
    Mapped_Stream& operator=(const Mapped_Stream&) = delete;

    int Descriptor() const { return fd; }

    void Wait_By_Select()
    {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        timeval time_out{1, 0};
        if (select(fd + 1, &readable, nullptr, nullptr, &time_out) != 1) {
            throw std::runtime_error("no frame");
        }
    }

    // Asks the kernel itself: the virtual camera's poll would add time that a kernel's driver does not take.
    void Wait_By_Poll()
    {
        pollfd readable{fd, POLLIN, 0};
        if (syscall(SYS_poll, &readable, 1, 1000) != 1) {
            throw std::runtime_error("no frame");
        }
    }

    /// Dequeues a frame that is ready, hands its bytes to `use` and gives the buffer back.
    /// @return the record of the buffer as it was dequeued
    template <typename Use>
    v4l2_buffer Take_Ready_Frame(Use use)
    {
        v4l2_buffer buffer{};
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        Ask(VIDIOC_DQBUF, &buffer);
        const v4l2_buffer dequeued = buffer;
        use(static_cast<uint8_t*>(mappings[buffer.index].address), buffer.bytesused);
        Ask(VIDIOC_QBUF, &buffer);
        return dequeued;
    }

    /// Waits for a frame by select and takes it.
    template <typename Use>
    void Take_Frame(Use use)
    {
        Wait_By_Select();
        Take_Ready_Frame(use);
    }

private:
    struct Mapping {
        void* address;
        size_t length;
    };

    void Ask(unsigned long request, void* argument)
    {
        if (Calls::Request(fd, request, argument) != 0) {
            throw std::runtime_error("request refused");
        }
    }

    void Map_Buffer(uint32_t index)
    {
        v4l2_buffer buffer{};
        buffer.index = index;
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        Ask(VIDIOC_QUERYBUF, &buffer);
        void* const address = Calls::Map(buffer.length, fd, buffer.m.offset);
        if (address == MAP_FAILED) {
            throw std::runtime_error("cannot map");
        }
        mappings.push_back({address, buffer.length});
        Ask(VIDIOC_QBUF, &buffer);
    }

    int fd;
    std::vector<Mapping> mappings;
};

#endif  // WQZ_BENCHMARKS_MAPPED_STREAM_H
