// A capture node as tests of the drivers' rules use it: requests give 0 or the errno.
#ifndef WQZ_CAPTURE_NODE_H
#define WQZ_CAPTURE_NODE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>

constexpr uint32_t Capture = V4L2_BUF_TYPE_VIDEO_CAPTURE;

inline std::string Node_Path()
{
    if (const char* node = std::getenv("WQZ_CONTRACT_NODE")) {
        return node;
    }
    setenv("WQZ_VIRTUAL_CAMERA", "camera", 1);  // read when the first node is opened
    return "/dev/video0";
}

/// 0, or the errno of a failed request.
template <typename Argument>
int Ask(int fd, unsigned long request, Argument& argument)
{
    return ioctl(fd, request, &argument) == 0 ? 0 : errno;
}

inline double Seconds_Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

class Node {
public:
    explicit Node(int flags = 0) : fd(open(Node_Path().c_str(), O_RDWR | flags)) {}
    ~Node() { Close(); }
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    void Close()
    {
        if (fd >= 0) {
            close(fd);
        }
        fd = -1;
    }

    /// Sets a format anew, as a program does that wants to capture.
    int Set_Format() const
    {
        v4l2_format format{};
        format.type = Capture;
        const int error = Ask(fd, VIDIOC_G_FMT, format);
        return error ? error : Ask(fd, VIDIOC_S_FMT, format);
    }

    int Request_Buffers(uint32_t count) const
    {
        v4l2_requestbuffers buffers{};
        buffers.count = count;
        buffers.type = Capture;
        buffers.memory = V4L2_MEMORY_MMAP;
        return Ask(fd, VIDIOC_REQBUFS, buffers);
    }

    static v4l2_buffer Buffer(uint32_t index)
    {
        v4l2_buffer buffer{};
        buffer.index = index;
        buffer.type = Capture;
        buffer.memory = V4L2_MEMORY_MMAP;
        return buffer;
    }

    int Query(v4l2_buffer& buffer) const { return Ask(fd, VIDIOC_QUERYBUF, buffer); }

    int Queue(uint32_t index) const
    {
        v4l2_buffer buffer = Buffer(index);
        return Ask(fd, VIDIOC_QBUF, buffer);
    }

    int Dequeue(v4l2_buffer& buffer) const
    {
        buffer = Buffer(0);
        return Ask(fd, VIDIOC_DQBUF, buffer);
    }

    int Dequeue() const
    {
        v4l2_buffer buffer{};
        return Dequeue(buffer);
    }

    int Stream(bool on) const
    {
        int type = int(Capture);
        return Ask(fd, on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, type);
    }

    bool Is_Ready(double seconds) const
    {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval timeout{static_cast<time_t>(seconds),
                        static_cast<suseconds_t>((seconds - static_cast<double>(static_cast<time_t>(seconds))) * 1e6)};
        return select(fd + 1, &set, nullptr, nullptr, &timeout) == 1;
    }

    /// Format, four buffers queued, streaming.
    void Start() const
    {
        ASSERT_EQ(Set_Format(), 0);
        ASSERT_EQ(Request_Buffers(4), 0);
        for (uint32_t i = 0; i < 4; i++) {
            ASSERT_EQ(Queue(i), 0);
        }
        ASSERT_EQ(Stream(true), 0);
    }

    double Interval() const
    {
        v4l2_streamparm parameters{};
        parameters.type = Capture;
        EXPECT_EQ(Ask(fd, VIDIOC_G_PARM, parameters), 0);
        const v4l2_fract interval = parameters.parm.capture.timeperframe;
        return static_cast<double>(interval.numerator) / interval.denominator;
    }

    int fd;
};

#endif  // WQZ_CAPTURE_NODE_H
