// What a program may rely on from a capture node when it waits, shares the node, or brings memory of its own. As the
// other rules, these also run on real nodes.
#include <poll.h>
#include <sys/mman.h>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "support/capture_node.h"

namespace {

short Poll(const Node& node, short events, int milliseconds = 0)
{
    pollfd entry{node.fd, events, 0};
    return poll(&entry, 1, milliseconds) >= 0 ? entry.revents : POLLNVAL;
}

/// Whether the driver offers read, for which poll without buffers starts the capture.
bool Is_Read(const Node& node)
{
    v4l2_capability capability{};
    EXPECT_EQ(Ask(node.fd, VIDIOC_QUERYCAP, capability), 0);
    return (capability.device_caps & V4L2_CAP_READWRITE) != 0;
}

int Subscribe(const Node& node, uint32_t id, uint32_t flags = 0)
{
    v4l2_event_subscription wish{};
    wish.type = V4L2_EVENT_CTRL;
    wish.id = id;
    wish.flags = flags;
    return Ask(node.fd, VIDIOC_SUBSCRIBE_EVENT, wish);
}

int Set_Brightness(const Node& node, int value)
{
    v4l2_control control{V4L2_CID_BRIGHTNESS, value};
    return Ask(node.fd, VIDIOC_S_CTRL, control);
}

int Set_Priority(const Node& node, uint32_t priority)
{
    return Ask(node.fd, VIDIOC_S_PRIORITY, priority);
}

/// @return ready for the exceptional condition
bool Has_Exception(const Node& node)
{
    fd_set except;
    FD_ZERO(&except);
    FD_SET(node.fd, &except);
    timeval timeout{0, 0};
    return select(node.fd + 1, nullptr, nullptr, &except, &timeout) == 1 && FD_ISSET(node.fd, &except);
}

}  // namespace

TEST(Waiting, PollTellsErrorsFromFrames)
{
    const Node node;
    if (!Is_Read(node)) {
        EXPECT_EQ(Poll(node, POLLIN), POLLERR) << "no buffers";
    }
    EXPECT_EQ(Poll(node, POLLPRI | POLLOUT), 0) << "only who reads is told";
    ASSERT_EQ(node.Set_Format(), 0);
    ASSERT_EQ(node.Request_Buffers(4), 0);
    EXPECT_EQ(Poll(node, POLLIN | POLLRDNORM), POLLERR) << "not streaming";
    ASSERT_EQ(node.Stream(true), 0);
    EXPECT_EQ(Poll(node, POLLIN), POLLERR) << "nothing queued since the stream began";
    for (uint32_t i = 0; i < 4; i++) {
        ASSERT_EQ(node.Queue(i), 0);
    }
    EXPECT_EQ(Poll(node, POLLIN | POLLRDNORM, 5000), POLLIN | POLLRDNORM);
    EXPECT_EQ(Poll(node, POLLIN, 5000), POLLIN);
    ASSERT_EQ(node.Stream(false), 0);
    EXPECT_EQ(Poll(node, POLLIN, 5000), POLLERR);

    fd_set write;
    FD_ZERO(&write);
    FD_SET(node.fd, &write);
    timeval timeout{0, 0};
    EXPECT_EQ(select(node.fd + 1, nullptr, &write, nullptr, &timeout), 0) << "a capture node is never written to";
}

TEST(Waiting, PollLeavesOtherDescriptorsAndTimeOutsAsTheyAre)
{
    const Node node;
    ASSERT_NO_FATAL_FAILURE(node.Start());
    ASSERT_EQ(node.Stream(false), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    pollfd entries[]{{ends[0], POLLIN, 0}, {-1, POLLIN, 7}, {node.fd, POLLPRI, 0}, {ends[1], POLLOUT, 0}};
    EXPECT_EQ(poll(entries, 4, 5000), 1);
    EXPECT_EQ(entries[0].revents, 0);
    EXPECT_EQ(entries[1].revents, 0);
    EXPECT_EQ(entries[2].revents, 0);
    EXPECT_EQ(entries[3].revents, POLLOUT);
    const double start = Seconds_Now();
    EXPECT_EQ(poll(entries, 3, 100), 0);
    EXPECT_GE(Seconds_Now() - start, 0.09);
    close(ends[1]);
    EXPECT_EQ(poll(entries, 3, 5000), 1);
    EXPECT_EQ(entries[0].revents, POLLHUP);
    close(ends[0]);
}

TEST(Waiting, ANodeWithoutTheCapabilityIsNotRead)
{
    const Node node;
    if (Is_Read(node)) {
        return;
    }
    char bytes[16];
    EXPECT_EQ(read(node.fd, bytes, sizeof bytes), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(write(node.fd, bytes, sizeof bytes), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Control_Events, AChangeIsToldToOtherFiles)
{
    const Node watcher(O_NONBLOCK), setter;
    v4l2_event event{};
    EXPECT_EQ(Ask(watcher.fd, VIDIOC_DQEVENT, event), ENOENT);
    EXPECT_EQ(Subscribe(watcher, V4L2_CID_BRIGHTNESS + 0x8000), EINVAL);
    ASSERT_EQ(Subscribe(watcher, V4L2_CID_BRIGHTNESS), 0);
    ASSERT_EQ(Subscribe(setter, V4L2_CID_BRIGHTNESS), 0);
    EXPECT_EQ(Poll(watcher, POLLPRI), 0);
    std::thread thread([&setter] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(Set_Brightness(setter, 11), 0);
        EXPECT_EQ(Set_Brightness(setter, 12), 0);
    });
    EXPECT_EQ(Poll(watcher, POLLPRI, 5000), POLLPRI);
    thread.join();
    EXPECT_TRUE(Has_Exception(watcher));
    ASSERT_EQ(Ask(watcher.fd, VIDIOC_DQEVENT, event), 0);
    EXPECT_EQ(event.type, uint32_t{V4L2_EVENT_CTRL});
    EXPECT_EQ(event.id, uint32_t{V4L2_CID_BRIGHTNESS});
    EXPECT_EQ(event.u.ctrl.value, 12) << "the newest value, once";
    EXPECT_NE(event.u.ctrl.changes & V4L2_EVENT_CTRL_CH_VALUE, 0U);
    EXPECT_EQ(Ask(watcher.fd, VIDIOC_DQEVENT, event), ENOENT);
    EXPECT_FALSE(Has_Exception(watcher));
    EXPECT_FALSE(Has_Exception(setter)) << "a file does not hear of what it did itself";

    v4l2_event_subscription all{};
    all.type = V4L2_EVENT_ALL;
    EXPECT_EQ(Ask(watcher.fd, VIDIOC_UNSUBSCRIBE_EVENT, all), 0);
    EXPECT_EQ(Set_Brightness(setter, 13), 0);
    EXPECT_EQ(Poll(watcher, POLLPRI), 0);
}

TEST(Control_Events, ThePresentStateIsToldOnDemandAndWaitedFor)
{
    const Node node;
    ASSERT_EQ(Set_Brightness(node, 20), 0);
    ASSERT_EQ(Subscribe(node, V4L2_CID_BRIGHTNESS, V4L2_EVENT_SUB_FL_SEND_INITIAL | V4L2_EVENT_SUB_FL_ALLOW_FEEDBACK),
              0);
    v4l2_event event{};
    ASSERT_EQ(Ask(node.fd, VIDIOC_DQEVENT, event), 0);
    EXPECT_EQ(event.u.ctrl.value, 20);
    EXPECT_EQ(event.sequence, 0U);
    std::thread thread([&node] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(Set_Brightness(node, 21), 0);
    });
    EXPECT_EQ(Ask(node.fd, VIDIOC_DQEVENT, event), 0) << "waits";
    thread.join();
    EXPECT_EQ(event.u.ctrl.value, 21) << "feedback";
    EXPECT_EQ(event.sequence, 1U);
}

TEST(Priorities, TheHighestPriorityRefusesLowerOnesUntilItsFileCloses)
{
    Node recorder;
    const Node viewer;
    ASSERT_EQ(Set_Priority(recorder, V4L2_PRIORITY_RECORD), 0);
    uint32_t highest = 0;
    EXPECT_EQ(Ask(viewer.fd, VIDIOC_G_PRIORITY, highest), 0);
    EXPECT_EQ(highest, uint32_t{V4L2_PRIORITY_RECORD});
    EXPECT_EQ(viewer.Set_Format(), EBUSY);
    EXPECT_EQ(Set_Brightness(viewer, 30), EBUSY);
    EXPECT_EQ(Set_Priority(viewer, V4L2_PRIORITY_INTERACTIVE), EBUSY);
    v4l2_control control{V4L2_CID_BRIGHTNESS, 0};
    EXPECT_EQ(Ask(viewer.fd, VIDIOC_G_CTRL, control), 0) << "reading is free";
    EXPECT_EQ(Set_Brightness(recorder, 30), 0);
    recorder.Close();
    EXPECT_EQ(Set_Brightness(viewer, 31), 0);
    EXPECT_EQ(Set_Priority(viewer, V4L2_PRIORITY_RECORD + 1), EINVAL);
}

TEST(Buffers, MoreAreCreatedAndExported)
{
    const Node node;
    ASSERT_EQ(node.Set_Format(), 0);
    ASSERT_EQ(node.Request_Buffers(2), 0);
    v4l2_create_buffers create{};
    create.format.type = Capture;
    ASSERT_EQ(Ask(node.fd, VIDIOC_G_FMT, create.format), 0);
    create.count = 1;
    create.memory = V4L2_MEMORY_MMAP;
    ASSERT_EQ(Ask(node.fd, VIDIOC_CREATE_BUFS, create), 0);
    EXPECT_NE(create.capabilities & V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS, 0U);
    v4l2_exportbuffer exported{};
    exported.type = Capture;
    exported.index = create.index;
    exported.flags = O_RDWR;
    ASSERT_EQ(Ask(node.fd, VIDIOC_EXPBUF, exported), 0);
    for (uint32_t i = 0; i <= create.index; i++) {
        ASSERT_EQ(node.Queue(i), 0);
    }
    ASSERT_EQ(node.Stream(true), 0);
    v4l2_buffer filled{};
    do {
        ASSERT_EQ(node.Dequeue(filled), 0);
    } while (filled.index != create.index);
    void* from_node = mmap(nullptr, filled.length, PROT_READ, MAP_SHARED, node.fd, filled.m.offset);
    void* from_export = mmap(nullptr, filled.length, PROT_READ, MAP_SHARED, exported.fd, 0);
    ASSERT_NE(from_node, MAP_FAILED);
    ASSERT_NE(from_export, MAP_FAILED);
    EXPECT_EQ(std::memcmp(from_node, from_export, filled.bytesused), 0);
    munmap(from_node, filled.length);
    munmap(from_export, filled.length);
    close(exported.fd);
    create.format.fmt.pix.sizeimage = 16;
    EXPECT_EQ(Ask(node.fd, VIDIOC_CREATE_BUFS, create), EINVAL) << "too small for the format";
}

TEST(Buffers, FramesArriveInMemoryOfTheProgram)
{
    std::vector<std::vector<uint8_t>> memory;  // outlives the node, which may fill it until it is closed
    const Node node;
    ASSERT_EQ(node.Set_Format(), 0);
    v4l2_requestbuffers request{};
    request.count = 2;
    request.type = Capture;
    request.memory = V4L2_MEMORY_USERPTR;
    if (Ask(node.fd, VIDIOC_REQBUFS, request) != 0) {
        return;  // not every driver takes it
    }
    v4l2_buffer buffer = Node::Buffer(0);
    ASSERT_EQ(node.Query(buffer), 0);
    const uint32_t length = buffer.length;
    memory.assign(request.count, std::vector<uint8_t>(length));
    buffer.memory = V4L2_MEMORY_USERPTR;
    buffer.m.userptr = 0;
    EXPECT_EQ(Ask(node.fd, VIDIOC_QBUF, buffer), EFAULT);
    for (uint32_t i = 0; i < request.count; i++) {
        buffer.index = i;
        buffer.length = length;
        buffer.m.userptr = reinterpret_cast<uintptr_t>(memory[i].data());
        ASSERT_EQ(Ask(node.fd, VIDIOC_QBUF, buffer), 0);
    }
    ASSERT_EQ(node.Stream(true), 0);
    buffer.memory = V4L2_MEMORY_USERPTR;
    ASSERT_EQ(Ask(node.fd, VIDIOC_DQBUF, buffer), 0);
    EXPECT_EQ(buffer.m.userptr, reinterpret_cast<uintptr_t>(memory[buffer.index].data()));
    EXPECT_NE(std::vector<uint8_t>(length), memory[buffer.index]) << "something was written";
}
