// The records and calls that carry times. On 32-bit processors this is built for both widths of time_t.
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <ctime>

#include "support/capture_node.h"

namespace {

#ifdef SYS_mmap2
constexpr long Map_Number = SYS_mmap2, Map_Unit = 4096;
#else
constexpr long Map_Number = SYS_mmap, Map_Unit = 1;
#endif

double Seconds(time_t seconds, double rest)
{
    return static_cast<double>(seconds) + rest;
}

}  // namespace

TEST(Times, EventsAreStampedWhenTheControlChanged)
{
    const Node node(O_NONBLOCK);
    v4l2_event_subscription wish{};
    wish.type = V4L2_EVENT_CTRL;
    wish.id = V4L2_CID_CONTRAST;
    wish.flags = V4L2_EVENT_SUB_FL_ALLOW_FEEDBACK;
    ASSERT_EQ(Ask(node.fd, VIDIOC_SUBSCRIBE_EVENT, wish), 0);
    const double before = Seconds_Now();
    v4l2_control control{V4L2_CID_CONTRAST, 77};
    ASSERT_EQ(Ask(node.fd, VIDIOC_S_CTRL, control), 0);
    struct {
        v4l2_event event;
        uint32_t behind = 0x5a5a5a5a;
    } record{};
    ASSERT_EQ(Ask(node.fd, VIDIOC_DQEVENT, record.event), 0);
    EXPECT_GE(Seconds(record.event.timestamp.tv_sec, static_cast<double>(record.event.timestamp.tv_nsec) * 1e-9),
              before);
    EXPECT_LE(Seconds(record.event.timestamp.tv_sec, static_cast<double>(record.event.timestamp.tv_nsec) * 1e-9),
              Seconds_Now());
    EXPECT_EQ(record.event.id, uint32_t{V4L2_CID_CONTRAST});
    EXPECT_EQ(record.event.u.ctrl.value, 77);
    EXPECT_EQ(record.behind, 0x5a5a5a5aU);
}

TEST(Times, TimeOutsLastAsLongAsAskedAndSelectTellsTheRest)
{
    const Node node;
    ASSERT_EQ(node.Set_Format(), 0);
    ASSERT_EQ(node.Request_Buffers(4), 0);
    ASSERT_EQ(node.Queue(0), 0);
    ASSERT_EQ(node.Stream(true), 0);
    ASSERT_EQ(node.Dequeue(), 0) << "nothing is queued from now on";
    const double start = Seconds_Now();
    const timespec short_wait{0, 200'000'000};
    pollfd entry{node.fd, POLLIN, 0};
    EXPECT_EQ(ppoll(&entry, 1, &short_wait, nullptr), 0);
    EXPECT_GE(Seconds_Now() - start, 0.19);
    EXPECT_LT(Seconds_Now() - start, 5);

    ASSERT_EQ(node.Queue(0), 0);
    fd_set set;
    FD_ZERO(&set);
    FD_SET(node.fd, &set);
    timeval rest{100, 500'000};
    EXPECT_EQ(select(node.fd + 1, &set, nullptr, nullptr, &rest), 1);
    EXPECT_LT(Seconds(rest.tv_sec, static_cast<double>(rest.tv_usec) * 1e-6), 100.5);
    EXPECT_GT(Seconds(rest.tv_sec, static_cast<double>(rest.tv_usec) * 1e-6), 90);
}

TEST(Times, RawSystemCallsServeBuffersAlike)
{
    const Node node;
    ASSERT_EQ(node.Set_Format(), 0);
    ASSERT_EQ(node.Request_Buffers(4), 0);
    struct {
        v4l2_buffer buffer = Node::Buffer(3);
        uint32_t behind = 0x5a5a5a5a;
    } record;
    ASSERT_EQ(syscall(SYS_ioctl, node.fd, VIDIOC_QUERYBUF, &record.buffer), 0);
    const uint32_t length = record.buffer.length, offset = record.buffer.m.offset;
    const auto address =
        syscall(Map_Number, nullptr, length, PROT_READ, MAP_SHARED, node.fd, static_cast<long>(offset) / Map_Unit);
    ASSERT_NE(address, -1);
    ASSERT_EQ(syscall(SYS_ioctl, node.fd, VIDIOC_QBUF, &record.buffer), 0);
    ASSERT_EQ(node.Stream(true), 0);
    const double before = Seconds_Now();
    ASSERT_EQ(syscall(SYS_ioctl, node.fd, VIDIOC_DQBUF, &record.buffer), 0);
    EXPECT_EQ(record.buffer.index, 3U);
    EXPECT_EQ(record.buffer.length, length);
    EXPECT_EQ(record.buffer.m.offset, offset);
    EXPECT_NEAR(Seconds(record.buffer.timestamp.tv_sec, static_cast<double>(record.buffer.timestamp.tv_usec) * 1e-6),
                before, 5);
    EXPECT_EQ(record.behind, 0x5a5a5a5aU);
    EXPECT_EQ(munmap(reinterpret_cast<void*>(address), length), 0);
}
