// What a program may rely on from a capture node: the state rules of the kernel's drivers. It runs on the virtual
// camera that is linked in, and on real nodes: set WQZ_CONTRACT_NODE to the path of one.
#include <sys/mman.h>
#include <algorithm>
#include <cstring>

#include "support/capture_node.h"

TEST(Capture_Node, SettingsAreLockedWhileItStreams)
{
    Node node;
    ASSERT_GE(node.fd, 0);
    EXPECT_NE(node.Stream(true), 0) << "without buffers";
    node.Start();
    EXPECT_EQ(node.Set_Format(), EBUSY);
    EXPECT_EQ(node.Request_Buffers(4), EBUSY);
    EXPECT_EQ(node.Request_Buffers(0), EBUSY);
    EXPECT_EQ(node.Stream(true), 0) << "again";
    v4l2_buffer buffer{};
    ASSERT_EQ(node.Dequeue(buffer), 0);
    EXPECT_EQ(node.Queue(buffer.index), 0);
    EXPECT_EQ(node.Queue(buffer.index), EINVAL) << "already queued";
    EXPECT_EQ(node.Stream(false), 0);
}

TEST(Capture_Node, AStoppedStreamHoldsItsFormatUntilTheBuffersAreGivenBack)
{
    Node node;
    node.Start();
    ASSERT_EQ(node.Dequeue(), 0);
    ASSERT_EQ(node.Stream(false), 0);
    EXPECT_EQ(node.Dequeue(), EINVAL);
    EXPECT_TRUE(node.Is_Ready(0));
    EXPECT_EQ(node.Set_Format(), EBUSY);
    EXPECT_EQ(node.Request_Buffers(4), 0);
    EXPECT_EQ(node.Set_Format(), EBUSY);
    EXPECT_EQ(node.Queue(0), 0) << "the stop gave every buffer back";
    EXPECT_EQ(node.Request_Buffers(0), 0);
    EXPECT_EQ(node.Set_Format(), 0);
}

TEST(Capture_Node, AMappingKeepsTheCameraBusyAfterClose)
{
    Node first;
    ASSERT_EQ(first.Set_Format(), 0);
    ASSERT_EQ(first.Request_Buffers(2), 0);
    v4l2_buffer buffer = Node::Buffer(0);
    ASSERT_EQ(first.Query(buffer), 0);
    void* memory = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, first.fd, buffer.m.offset);
    ASSERT_NE(memory, MAP_FAILED);
    buffer = Node::Buffer(0);
    ASSERT_EQ(first.Query(buffer), 0);
    EXPECT_NE(buffer.flags & V4L2_BUF_FLAG_MAPPED, 0U);
    first.Close();

    Node second;
    EXPECT_EQ(second.Set_Format(), EBUSY);
    EXPECT_EQ(second.Request_Buffers(4), EBUSY);
    EXPECT_EQ(munmap(memory, buffer.length), 0);
    EXPECT_EQ(second.Set_Format(), 0);
    EXPECT_EQ(second.Request_Buffers(4), 0);
}

TEST(Capture_Node, BuffersGivenBackWhileMappedStayReadable)
{
    Node node;
    ASSERT_EQ(node.Set_Format(), 0);
    ASSERT_EQ(node.Request_Buffers(2), 0);
    v4l2_buffer buffer = Node::Buffer(1);
    ASSERT_EQ(node.Query(buffer), 0);
    void* memory = mmap(nullptr, buffer.length, PROT_READ | PROT_WRITE, MAP_SHARED, node.fd, buffer.m.offset);
    ASSERT_NE(memory, MAP_FAILED);
    std::memset(memory, 0x5a, buffer.length);
    EXPECT_EQ(node.Request_Buffers(0), 0);
    EXPECT_EQ(node.Set_Format(), 0);
    EXPECT_EQ(node.Request_Buffers(4), 0);
    EXPECT_EQ(static_cast<uint8_t*>(memory)[buffer.length - 1], 0x5a);
    EXPECT_EQ(munmap(memory, buffer.length), 0);
    buffer = Node::Buffer(1);
    ASSERT_EQ(node.Query(buffer), 0);
    EXPECT_EQ(buffer.flags & V4L2_BUF_FLAG_MAPPED, 0U) << "the mapping was of the earlier buffers";
}

TEST(Capture_Node, TheFirstDescriptorOwnsTheBuffers)
{
    Node first, second;
    first.Start();
    EXPECT_EQ(second.Set_Format(), EBUSY);
    EXPECT_EQ(second.Request_Buffers(4), EBUSY);
    EXPECT_EQ(second.Queue(0), EBUSY);
    EXPECT_EQ(second.Dequeue(), EBUSY);
    EXPECT_EQ(second.Stream(true), EBUSY);
    EXPECT_EQ(second.Stream(false), EBUSY);
    v4l2_format format{};
    format.type = Capture;
    EXPECT_EQ(Ask(second.fd, VIDIOC_G_FMT, format), 0);
    EXPECT_EQ(Ask(second.fd, VIDIOC_TRY_FMT, format), 0);
    EXPECT_EQ(first.Dequeue(), 0);
    first.Close();
    second.Start();
    EXPECT_EQ(second.Dequeue(), 0);
}

TEST(Capture_Node, FramesComeInOrderWithTheirDescriptions)
{
    Node node;
    node.Start();
    constexpr int Frames = 20;
    double last_time = Seconds_Now() - 0.5;  // a driver may stamp the beginning of a frame that is on its way
    uint32_t last_sequence = 0;
    const double start = Seconds_Now();
    for (int i = 0; i < Frames; i++) {
        ASSERT_TRUE(node.Is_Ready(5));
        v4l2_buffer buffer{};
        ASSERT_EQ(node.Dequeue(buffer), 0);
        const double time =
            static_cast<double>(buffer.timestamp.tv_sec) + static_cast<double>(buffer.timestamp.tv_usec) * 1e-6;
        EXPECT_GT(time, last_time);
        EXPECT_LE(time, Seconds_Now() + node.Interval()) << "a driver may stamp the nominal end of a frame";
        EXPECT_TRUE(i == 0 || buffer.sequence > last_sequence);
        EXPECT_LT(buffer.index, 4U);
        EXPECT_GT(buffer.bytesused, 0U);
        EXPECT_LE(buffer.bytesused, buffer.length);
        EXPECT_EQ(buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK, unsigned(V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC));
        EXPECT_EQ(buffer.flags & (V4L2_BUF_FLAG_QUEUED | V4L2_BUF_FLAG_DONE | V4L2_BUF_FLAG_ERROR), 0U);
        last_time = time;
        last_sequence = buffer.sequence;
        ASSERT_EQ(node.Queue(buffer.index), 0);
        v4l2_buffer queued = Node::Buffer(buffer.index);
        ASSERT_EQ(node.Query(queued), 0);
        EXPECT_NE(queued.flags & (V4L2_BUF_FLAG_QUEUED | V4L2_BUF_FLAG_DONE), 0U);
    }
    EXPECT_GT(Seconds_Now() - start, (Frames - 3) * node.Interval() * 0.8) << "no faster than asked";
}

TEST(Capture_Node, NumbersOfFramesWithoutABufferAreSkipped)
{
    Node node(O_NONBLOCK);
    node.Start();
    v4l2_buffer buffer{};
    for (int i = 0; i < 4; i++) {
        ASSERT_TRUE(node.Is_Ready(5));
        ASSERT_EQ(node.Dequeue(buffer), 0);
    }
    const uint32_t last = buffer.sequence;
    EXPECT_EQ(node.Dequeue(), EAGAIN);
    EXPECT_FALSE(node.Is_Ready(std::max(0.1, 6 * node.Interval()))) << "nothing is queued";
    ASSERT_EQ(node.Queue(2), 0);
    ASSERT_TRUE(node.Is_Ready(5));
    ASSERT_EQ(node.Dequeue(buffer), 0);
    EXPECT_EQ(buffer.index, 2U);
    EXPECT_GT(buffer.sequence, last + 3);
}

TEST(Capture_Node, DequeueBlocksAndSelectWaits)
{
    Node node;
    ASSERT_EQ(node.Set_Format(), 0);
    ASSERT_EQ(node.Request_Buffers(4), 0);
    ASSERT_EQ(node.Stream(true), 0);
    EXPECT_TRUE(node.Is_Ready(0)) << "an error state until a buffer was queued";
    ASSERT_EQ(node.Queue(3), 0);
    ASSERT_EQ(node.Queue(1), 0) << "some drivers start with two";
    v4l2_buffer buffer{};
    EXPECT_EQ(node.Dequeue(buffer), 0) << "waited for the frame";
    EXPECT_EQ(buffer.index, 3U);
}

TEST(Capture_Node, MappingsAreSharedReadableAndOfTheBuffersLength)
{
    Node node;
    ASSERT_EQ(node.Set_Format(), 0);
    ASSERT_EQ(node.Request_Buffers(2), 0);
    v4l2_buffer buffer = Node::Buffer(1);
    ASSERT_EQ(node.Query(buffer), 0);
    const auto error_of = [&](size_t length, int protection, int flags, off_t offset) {
        void* memory = mmap(nullptr, length, protection, flags, node.fd, offset);
        return memory != MAP_FAILED ? munmap(memory, length) : errno;
    };
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), length = buffer.length;
    const off_t offset = buffer.m.offset;
    EXPECT_EQ(error_of(length, PROT_READ, MAP_SHARED, offset), 0);
    EXPECT_EQ(error_of(100, PROT_READ | PROT_WRITE, MAP_SHARED, offset), 0);
    EXPECT_EQ(error_of(length, PROT_READ, MAP_PRIVATE, offset), EINVAL);
    EXPECT_EQ(error_of(length, PROT_WRITE, MAP_SHARED, offset), EINVAL);
    EXPECT_EQ(error_of(length, PROT_READ, MAP_SHARED, offset + off_t(page)), EINVAL);
    EXPECT_EQ(error_of(length + page, PROT_READ, MAP_SHARED, offset), EINVAL);
    EXPECT_EQ(error_of(0, PROT_READ, MAP_SHARED, offset), EINVAL);
}

TEST(Capture_Node, InvalidArgumentsAreRefused)
{
    Node node;
    EXPECT_EQ(ioctl(node.fd, VIDIOC_QUERYCAP, nullptr), -1);
    EXPECT_EQ(errno, EFAULT);
    int argument = 0;
    EXPECT_EQ(Ask(node.fd, _IOWR('V', 250, int), argument), ENOTTY);
    ASSERT_EQ(node.Set_Format(), 0);
    ASSERT_EQ(node.Request_Buffers(2), 0);
    v4l2_buffer buffer = Node::Buffer(2);
    EXPECT_EQ(node.Query(buffer), EINVAL);
    EXPECT_EQ(node.Queue(2), EINVAL);
    EXPECT_EQ(node.Dequeue(), EINVAL) << "not streaming";
    buffer = Node::Buffer(0);
    buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    EXPECT_EQ(Ask(node.fd, VIDIOC_QBUF, buffer), EINVAL);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    EXPECT_EQ(Ask(node.fd, VIDIOC_G_FMT, format), EINVAL);
    v4l2_requestbuffers many{};
    many.count = 1000;
    many.type = Capture;
    many.memory = V4L2_MEMORY_MMAP;
    EXPECT_EQ(Ask(node.fd, VIDIOC_REQBUFS, many), 0);
    EXPECT_LE(many.count, unsigned(VIDEO_MAX_FRAME));
    EXPECT_GT(many.count, 2U);
}

TEST(Capture_Node, CaptureAndMetadataNodesDifferInDeviceCapabilitiesOnly)
{
    Node node;
    v4l2_capability capture{};
    ASSERT_EQ(Ask(node.fd, VIDIOC_QUERYCAP, capture), 0);
    EXPECT_NE(capture.device_caps & V4L2_CAP_VIDEO_CAPTURE, 0U);
    EXPECT_EQ(capture.device_caps & V4L2_CAP_META_CAPTURE, 0U);
    EXPECT_NE(capture.capabilities & V4L2_CAP_DEVICE_CAPS, 0U);
    if ((capture.capabilities & V4L2_CAP_META_CAPTURE) == 0) {
        return;  // a camera of one node
    }
    std::string path = Node_Path();
    path = "/dev/video" + std::to_string(std::stoi(path.substr(path.find_first_of("0123456789"))) + 1);
    const int fd = open(path.c_str(), O_RDWR);
    ASSERT_GE(fd, 0);
    v4l2_capability metadata{};
    EXPECT_EQ(Ask(fd, VIDIOC_QUERYCAP, metadata), 0);
    EXPECT_EQ(metadata.capabilities, capture.capabilities);
    EXPECT_NE(metadata.device_caps & V4L2_CAP_META_CAPTURE, 0U);
    EXPECT_EQ(metadata.device_caps & V4L2_CAP_VIDEO_CAPTURE, 0U);
    EXPECT_STREQ(reinterpret_cast<char*>(metadata.bus_info), reinterpret_cast<char*>(capture.bus_info));
    v4l2_fmtdesc description{};
    description.type = Capture;
    EXPECT_EQ(Ask(fd, VIDIOC_ENUM_FMT, description), EINVAL);
    close(fd);
}
