// Unplugging and coming back of a virtual camera, as open files, new ones and udev see it; drivers that keep buffers.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libudev.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <umockdev.h>
#include <unistd.h>
#include <virtual_camera/virtual_camera.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <thread>

namespace vc = virtual_camera;

namespace {

const std::string Node = "/dev/video0";

struct Unref {
    void operator()(udev* context) const { udev_unref(context); }
    void operator()(udev_monitor* monitor) const { udev_monitor_unref(monitor); }
    void operator()(udev_device* device) const { udev_device_unref(device); }
};

int Ask(int fd, unsigned long request, void* argument)
{
    return ioctl(fd, request, argument) == 0 ? 0 : errno;
}

int Request_Buffers(int fd, uint32_t count, uint32_t* capabilities = nullptr)
{
    v4l2_requestbuffers request{};
    request.count = count;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    const int error = Ask(fd, VIDIOC_REQBUFS, &request);
    if (capabilities) {
        *capabilities = request.capabilities;
    }
    return error;
}

void Start(int fd)
{
    ASSERT_EQ(Request_Buffers(fd, 2), 0);
    for (uint32_t i = 0; i < 2; i++) {
        v4l2_buffer buffer{};
        buffer.index = i;
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        ASSERT_EQ(Ask(fd, VIDIOC_QBUF, &buffer), 0);
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ASSERT_EQ(Ask(fd, VIDIOC_STREAMON, &type), 0);
}

v4l2_buffer Dequeue(int fd, uint32_t type = V4L2_BUF_TYPE_VIDEO_CAPTURE)
{
    v4l2_buffer buffer{};
    buffer.type = type;
    buffer.memory = V4L2_MEMORY_MMAP;
    EXPECT_EQ(Ask(fd, VIDIOC_DQBUF, &buffer), 0);
    return buffer;
}

short Poll(int fd, short events)
{
    pollfd entry{fd, events, 0};
    return poll(&entry, 1, 0) >= 0 ? entry.revents : POLLNVAL;
}

}  // namespace

class Plugging : public testing::Test {
protected:
    Plugging() { vc::Reset(); }
    ~Plugging() override { vc::Reset(); }

    /// Waits until a node can be opened.
    static int Reopen()
    {
        for (int tries = 0; tries < 500; tries++) {
            const int fd = open(Node.c_str(), O_RDWR);
            if (fd >= 0) {
                return fd;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return -1;
    }
};

TEST_F(Plugging, ACameraComesBackUnderItsOldNameAndOldFilesStayDead)
{
    vc::Add_Camera(vc::Usb_Camera());
    const int old = open(Node.c_str(), O_RDWR);
    ASSERT_NO_FATAL_FAILURE(Start(old));
    const v4l2_buffer filled = Dequeue(old);
    void* memory = mmap(nullptr, filled.length, PROT_READ, MAP_SHARED, old, filled.m.offset);
    ASSERT_NE(memory, MAP_FAILED);
    const std::vector<uint8_t> bytes(static_cast<uint8_t*>(memory), static_cast<uint8_t*>(memory) + filled.bytesused);

    vc::Unplug(Node);
    EXPECT_EQ(Poll(old, POLLIN | POLLPRI), POLLERR | POLLHUP | POLLPRI);
    EXPECT_EQ(open(Node.c_str(), O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    vc::Replug(Node);
    const int fresh = open(Node.c_str(), O_RDWR);
    ASSERT_GE(fresh, 0);
    v4l2_capability capability{};
    EXPECT_EQ(Ask(old, VIDIOC_QUERYCAP, &capability), ENODEV);
    EXPECT_EQ(Ask(fresh, VIDIOC_QUERYCAP, &capability), 0);
    ASSERT_NO_FATAL_FAILURE(Start(fresh)) << "the dead file's mapping does not hold the new camera";
    EXPECT_EQ(Dequeue(fresh).sequence, 0U);
    EXPECT_EQ(std::memcmp(memory, bytes.data(), bytes.size()), 0) << "the old mapping keeps its frame";
    munmap(memory, filled.length);
    close(old);
    vc::Replug(Node);
    EXPECT_EQ(Ask(fresh, VIDIOC_QUERYCAP, &capability), 0) << "a camera that is plugged in stays";
    close(fresh);
}

TEST_F(Plugging, ADescribedCameraComesBackByItselfAndStays)
{
    vc::Camera_Description description = vc::Usb_Camera();
    description.max_rate = true;
    description.unplug_after_frames = 2;
    description.replug_after_seconds = 0.05;
    vc::Add_Camera(description);
    const int old = open(Node.c_str(), O_RDWR);
    ASSERT_NO_FATAL_FAILURE(Start(old));
    v4l2_buffer buffer = Dequeue(old);
    EXPECT_EQ(Ask(old, VIDIOC_QBUF, &buffer), 0) << "the third frame would be due";
    v4l2_capability capability{};
    EXPECT_EQ(Ask(old, VIDIOC_QUERYCAP, &capability), ENODEV);
    EXPECT_EQ(open(Node.c_str(), O_RDWR), -1);
    close(old);
    const int fresh = Reopen();
    ASSERT_GE(fresh, 0);
    ASSERT_NO_FATAL_FAILURE(Start(fresh));
    for (int i = 0; i < 6; i++) {
        buffer = Dequeue(fresh);
        EXPECT_EQ(Ask(fresh, VIDIOC_QBUF, &buffer), 0);
    }
    close(fresh);
}

TEST_F(Plugging, TheDeviceTreeAndMonitorsOfUdevFollow)
{
    const std::unique_ptr<UMockdevTestbed, decltype(&g_object_unref)> bed(umockdev_testbed_new(), g_object_unref);
    ASSERT_TRUE(umockdev_in_mock_environment()) << "run with libumockdev-preload.so.0 preloaded";
    const vc::Camera_Description description = vc::Usb_Camera();
    ASSERT_TRUE(umockdev_testbed_add_from_string(bed.get(), vc::Umockdev_Description({description}).c_str(), nullptr));
    vc::Add_Camera(description);
    const std::unique_ptr<udev, Unref> context(udev_new());
    const std::unique_ptr<udev_monitor, Unref> monitor(udev_monitor_new_from_netlink(context.get(), "udev"));
    udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "video4linux", nullptr);
    ASSERT_EQ(udev_monitor_enable_receiving(monitor.get()), 0);
    const auto received = [&monitor] {
        std::set<std::string> events;
        pollfd entry{udev_monitor_get_fd(monitor.get()), POLLIN, 0};
        while (poll(&entry, 1, events.size() < 2 ? 5000 : 100) == 1) {
            const std::unique_ptr<udev_device, Unref> device(udev_monitor_receive_device(monitor.get()));
            if (device) {
                events.insert(std::string(udev_device_get_action(device.get())) + " " +
                              udev_device_get_devnode(device.get()));
            }
        }
        return events;
    };
    const auto serial = [&context] {
        const std::unique_ptr<udev_device, Unref> device(
            udev_device_new_from_subsystem_sysname(context.get(), "video4linux", "video0"));
        udev_device* usb =
            device ? udev_device_get_parent_with_subsystem_devtype(device.get(), "usb", "usb_device") : nullptr;
        const char* text = usb ? udev_device_get_sysattr_value(usb, "serial") : nullptr;
        return std::string(text ? text : "");
    };
    ASSERT_EQ(serial(), "0001");
    vc::Unplug(Node);
    EXPECT_EQ(received(), (std::set<std::string>{"remove /dev/video0", "remove /dev/video1"}));
    EXPECT_EQ(serial(), "");
    EXPECT_FALSE(std::filesystem::exists("/sys/class/video4linux/video0"));
    EXPECT_FALSE(std::filesystem::exists(Node));
    vc::Replug(Node);
    EXPECT_EQ(received(), (std::set<std::string>{"add /dev/video0", "add /dev/video1"}));
    EXPECT_EQ(serial(), "0001");
    EXPECT_TRUE(std::filesystem::exists(Node));
}

TEST_F(Plugging, ADriverThatCannotOrphanBuffersKeepsThemWhileTheyAreMapped)
{
    vc::Camera_Description description = vc::Usb_Camera();
    description.orphans_buffers = false;
    vc::Add_Camera(description);
    const int fd = open(Node.c_str(), O_RDWR);
    uint32_t capabilities = 0;
    ASSERT_EQ(Request_Buffers(fd, 2, &capabilities), 0);
    EXPECT_EQ(capabilities & V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS, 0U);
    void* memory = mmap(nullptr, 100, PROT_READ, MAP_SHARED, fd, 0);
    ASSERT_NE(memory, MAP_FAILED);
    EXPECT_EQ(Request_Buffers(fd, 0), EBUSY);
    EXPECT_EQ(Request_Buffers(fd, 4), EBUSY);
    munmap(memory, 100);
    EXPECT_EQ(Request_Buffers(fd, 0), 0);
    close(fd);
}

TEST_F(Plugging, TheMetadataNodeStreamsAlongWithTheFrames)
{
    vc::Add_Camera(vc::Usb_Camera());
    vc::Hold_Frames(Node);
    const int fd = open(Node.c_str(), O_RDWR), metadata = open("/dev/video1", O_RDWR);
    v4l2_requestbuffers request{};
    request.count = 1;
    request.type = V4L2_BUF_TYPE_META_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    ASSERT_EQ(Ask(metadata, VIDIOC_REQBUFS, &request), 0);
    v4l2_buffer buffer{};
    buffer.type = V4L2_BUF_TYPE_META_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    ASSERT_EQ(Ask(metadata, VIDIOC_QBUF, &buffer), 0);
    int type = V4L2_BUF_TYPE_META_CAPTURE;
    ASSERT_EQ(Ask(metadata, VIDIOC_STREAMON, &type), 0);
    ASSERT_NO_FATAL_FAILURE(Start(fd));
    EXPECT_EQ(Poll(metadata, POLLIN), 0);
    vc::Deliver_Frames(Node, 1);
    EXPECT_EQ(Poll(metadata, POLLIN), POLLIN);
    const v4l2_buffer frame = Dequeue(fd), record = Dequeue(metadata, V4L2_BUF_TYPE_META_CAPTURE);
    EXPECT_EQ(record.sequence, frame.sequence);
    EXPECT_EQ(record.timestamp.tv_usec, frame.timestamp.tv_usec);
    EXPECT_GE(record.bytesused, 12U);
    close(metadata);
    close(fd);
}

TEST_F(Plugging, ACameraMayBeSilentFromTheStart)
{
    const auto cameras = vc::Parse_Description("camera\npause-after 0 0.3s\nreplug-after 2s\norphan-buffers no\n");
    EXPECT_EQ(cameras.at(0).replug_after_seconds, 2);
    EXPECT_FALSE(cameras.at(0).orphans_buffers);
    for (const char* wrong : {"unplug-after infs", "unplug-after 1e10s", "unplug-after nans", "pause-after 3 infs",
                              "replug-after 0", "orphan-buffers maybe"}) {
        EXPECT_THROW((void)vc::Parse_Description("camera\n" + std::string(wrong)), vc::Description_Error) << wrong;
    }
    vc::Add_Camera(cameras.at(0));
    const int fd = open(Node.c_str(), O_RDWR);
    ASSERT_NO_FATAL_FAILURE(Start(fd));
    pollfd entry{fd, POLLIN, 0};
    EXPECT_EQ(poll(&entry, 1, 200), 0);
    EXPECT_EQ(poll(&entry, 1, 5000), 1);
    close(fd);
}
