// The virtual camera's scripting interface: what is laid down happens, once and in order.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <virtual_camera/virtual_camera.h>
#include <cerrno>
#include <cstring>
#include <thread>

namespace vc = virtual_camera;

namespace {

const std::string Node = "/dev/video0";

v4l2_buffer Buffer(uint32_t index = 0)
{
    v4l2_buffer buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
}

bool Is_Ready(int fd, long milliseconds = 0)
{
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval timeout{milliseconds / 1000, milliseconds % 1000 * 1000};
    return select(fd + 1, &set, nullptr, nullptr, &timeout) == 1;
}

}  // namespace

class Scripted_Camera : public ::testing::Test {
protected:
    void SetUp() override
    {
        vc::Reset();
        vc::Add_Camera(vc::Usb_Camera());
        fd = open(Node.c_str(), O_RDWR);
        ASSERT_GE(fd, 0);
    }

    void TearDown() override
    {
        close(fd);
        vc::Reset();
    }

    void Start()
    {
        v4l2_requestbuffers request{};
        request.count = 4;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        ASSERT_EQ(ioctl(fd, VIDIOC_REQBUFS, &request), 0);
        for (uint32_t i = 0; i < request.count; i++) {
            v4l2_buffer buffer = Buffer(i);
            ASSERT_EQ(ioctl(fd, VIDIOC_QBUF, &buffer), 0);
        }
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        ASSERT_EQ(ioctl(fd, VIDIOC_STREAMON, &type), 0);
    }

    int Request(unsigned long request, void* argument = nullptr)
    {
        v4l2_capability scratch{};
        return ioctl(fd, request, argument ? argument : &scratch) >= 0 ? 0 : errno;
    }

    int fd = -1;
};

TEST_F(Scripted_Camera, FaultsHitTheCallsTheyAreMeantFor)
{
    vc::Fail(Node, VIDIOC_QUERYCAP, {.error = EBUSY, .times = 2, .skip = 1});
    vc::Fail(Node, VIDIOC_QUERYCAP, {.error = EAGAIN, .result = -2});
    EXPECT_EQ(Request(VIDIOC_QUERYCAP), 0);
    EXPECT_EQ(Request(VIDIOC_QUERYCAP), EBUSY);
    EXPECT_EQ(Request(VIDIOC_QUERYCAP), EBUSY);
    v4l2_capability capability{};
    EXPECT_EQ(ioctl(fd, VIDIOC_QUERYCAP, &capability), -2);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(capability.version, 0U) << "the driver was not reached";

    vc::Fail(Node, VIDIOC_QUERYCAP, {.error = 0, .result = 1, .perform = true});
    errno = 7;
    EXPECT_EQ(ioctl(fd, VIDIOC_QUERYCAP, &capability), 1);
    EXPECT_EQ(errno, 7);
    EXPECT_NE(capability.version, 0U);

    vc::Fail(Node, vc::Call_Open, {.error = EACCES});
    EXPECT_EQ(open(Node.c_str(), O_RDWR), -1);
    EXPECT_EQ(errno, EACCES);
    vc::Fail(Node, VIDIOC_G_INPUT, {.error = EIO, .times = vc::Always});
    for (int i = 0; i < 10; i++) {
        EXPECT_EQ(Request(VIDIOC_G_INPUT), EIO);
    }
}

TEST_F(Scripted_Camera, CodesHandedOverAsIntAndRawSystemCallsReachIt)
{
    v4l2_capability capability{};
    const auto code = int32_t(VIDIOC_QUERYCAP);
    EXPECT_EQ(ioctl(fd, static_cast<unsigned long>(code), &capability), 0);
    EXPECT_EQ(ioctl(fd, static_cast<unsigned>(code), &capability), 0);
    const long raw = syscall(SYS_openat, AT_FDCWD, Node.c_str(), O_RDWR);
    ASSERT_GE(raw, 0);
    capability = {};
    EXPECT_EQ(syscall(SYS_ioctl, raw, VIDIOC_QUERYCAP, &capability), 0);
    EXPECT_STREQ(reinterpret_cast<char*>(capability.driver), "uvcvideo");
    EXPECT_EQ(syscall(SYS_close, raw), 0);
    int (*volatile plain_open)(const char*, int, ...) = open;  // not declared to refuse null
    EXPECT_EQ(plain_open(nullptr, O_RDWR), -1);
    EXPECT_EQ(errno, EFAULT);
    EXPECT_EQ(close(-1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Scripted_Camera, AnUnpluggedCameraIsReadyAndGone)
{
    vc::Hold_Frames(Node);
    Start();
    std::thread unplugger([] {
        usleep(50000);
        vc::Unplug(Node);
    });
    v4l2_buffer buffer = Buffer();
    EXPECT_EQ(Request(VIDIOC_DQBUF, &buffer), 0) << "the wait ends with a failed buffer";
    EXPECT_NE(buffer.flags & V4L2_BUF_FLAG_ERROR, 0U);
    unplugger.join();
    for (int i = 0; i < 3; i++) {
        EXPECT_TRUE(Is_Ready(fd));
        EXPECT_EQ(Request(VIDIOC_DQBUF, &buffer), ENODEV);
        EXPECT_EQ(Request(VIDIOC_QUERYCAP), ENODEV);
    }
    EXPECT_EQ(open(Node.c_str(), O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(mmap(nullptr, 1, PROT_READ, MAP_SHARED, fd, 0), MAP_FAILED);
    EXPECT_EQ(errno, ENODEV);
    const int copy = dup(fd);
    EXPECT_EQ(close(copy), 0);
}

TEST_F(Scripted_Camera, AForkedChildDoesNotDisturbItsParent)
{
    Start();
    const pid_t child = fork();
    if (child == 0) {
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        const bool stopped = ioctl(fd, VIDIOC_STREAMOFF, &type) == 0;
        _exit(stopped && close(fd) == 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    for (int i = 0; i < 8; i++) {
        ASSERT_TRUE(Is_Ready(fd, 5000));
        v4l2_buffer buffer = Buffer();
        ASSERT_EQ(Request(VIDIOC_DQBUF, &buffer), 0);
        ASSERT_EQ(Request(VIDIOC_QBUF, &buffer), 0);
    }
}

TEST_F(Scripted_Camera, DuplicatesAndHighDescriptorsCount)
{
    vc::Set_Descriptor_Minimum(Node, 700);
    const int high = open(Node.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_GE(high, 700);
    close(high);
    vc::Hold_Frames(Node);
    Start();
    vc::Deliver_Frames(Node, 1);
    const int copy = dup(fd);
    close(fd);
    fd = copy;
    v4l2_buffer buffer = Buffer();
    EXPECT_EQ(Request(VIDIOC_DQBUF, &buffer), 0) << "the stream goes on";
    EXPECT_FALSE(Is_Ready(fd));
    vc::Deliver_Frames(Node, 1);
    EXPECT_TRUE(Is_Ready(fd));
}

TEST(Virtual_Camera, AtMaxRateEachNumberComesWithItsPicture)
{
    vc::Reset();
    vc::Camera_Description description = vc::Usb_Camera();
    description.max_rate = true;
    vc::Add_Camera(description);
    const int fd = open(Node.c_str(), O_RDWR);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    format.fmt.pix.width = 320;
    format.fmt.pix.height = 240;
    ASSERT_EQ(ioctl(fd, VIDIOC_S_FMT, &format), 0);
    v4l2_requestbuffers request{};
    request.count = 1;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    ASSERT_EQ(ioctl(fd, VIDIOC_REQBUFS, &request), 0);
    const size_t length = format.fmt.pix.sizeimage;
    void* memory = mmap(nullptr, length, PROT_READ, MAP_SHARED, fd, 0);
    ASSERT_NE(memory, MAP_FAILED);
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    ASSERT_EQ(ioctl(fd, VIDIOC_STREAMON, &type), 0);
    for (uint32_t i = 0; i < 200; i++) {
        v4l2_buffer buffer = Buffer();
        ASSERT_EQ(ioctl(fd, VIDIOC_QBUF, &buffer), 0);
        EXPECT_TRUE(Is_Ready(fd));
        ASSERT_EQ(ioctl(fd, VIDIOC_DQBUF, &buffer), 0);
        EXPECT_EQ(buffer.sequence, i);
        EXPECT_FALSE(Is_Ready(fd));
        const std::vector<uint8_t> whole = vc::Frame_Bytes(Node, i);
        ASSERT_EQ(std::memcmp(memory, whole.data(), length), 0) << "patched as if painted afresh";
    }
    munmap(memory, length);
    close(fd);
    vc::Reset();
}

TEST(Virtual_Camera, DescriptionsAreReadAndRefusedByLine)
{
    const auto cameras = vc::Parse_Description(
        "refuse QBUF EIO 3\ncamera Left Camera\nusb 046d:0825\nserial\nformat YUYV\nsize 320x240 7.5 30\n"
        "size 16x16-640x480/2x4 from 1/60 to 1 step 1/60\ncamera\nusb none\nbus-info platform:isp\ncapture "
        "/dev/video9\n");
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[0].card, "Left Camera");
    EXPECT_EQ(cameras[0].usb->product_id, 0x0825);
    EXPECT_EQ(cameras[0].metadata_node, "/dev/video1");
    ASSERT_EQ(cameras[0].formats.size(), 1U);
    EXPECT_EQ(cameras[0].formats[0].sizes[0].intervals.front().denominator, 30U);
    EXPECT_EQ(cameras[0].formats[0].sizes[1].step_height, 4U);
    EXPECT_TRUE(cameras[0].formats[0].sizes[1].stepwise_intervals);
    EXPECT_EQ(cameras[1].refusals.at(0).times, 3);
    EXPECT_EQ(cameras[1].bus_info, "platform:isp");
    const std::string tree = vc::Umockdev_Description(cameras);
    EXPECT_NE(tree.find("A: idProduct=0825\n"), std::string::npos);
    EXPECT_EQ(tree.find("A: serial="), std::string::npos);

    for (const char* wrong : {"size 1x1 30", "format LONGER", "usb 1234", "rate fast", "control none more words x y z",
                              "refuse QBUF EWHAT", "capture /dev/null", "nonsense", "jpeg-padding 0"}) {
        try {
            (void)vc::Parse_Description("camera\n" + std::string(wrong));
            ADD_FAILURE() << "accepted: " << wrong;
        } catch (const vc::Description_Error& error) {
            EXPECT_EQ(std::string(error.what()).rfind("line 2: ", 0), 0U) << error.what();
        }
    }
    EXPECT_THROW((void)vc::Parse_Description("camera\ncapture /dev/video3\ncamera\ncapture /dev/video3\n"),
                 vc::Description_Error);
}
