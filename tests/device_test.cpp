// The device layer on a virtual camera: opening, set-up, retries, controls, catalogue.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Device/device_wait.h"
#include "support/allocation_watch.h"
#include "support/camera_fixture.h"
#include "Video/Video_Device.h"

namespace {

using namespace virtual_camera;

class Device : public Camera_Fixture {
protected:
    Device() : record(Camera_Record()), device(&record) {}
    ~Device() override { device.Video_Exe_End(); }

    v4l2_dev_sys_data_t record;
    Video_Device device;
};

TEST_F(Device, OpensForReadingAndWritingAndClosesOnce)
{
    const int32_t fd = device.Video_Open();
    ASSERT_GT(fd, 0);
    EXPECT_EQ(device.Get_Video_Device_FD(), fd);
    EXPECT_EQ(device.C_V4L2_VC_Pu.VC_fd, static_cast<uint32_t>(fd));
    EXPECT_EQ(Log().front().value, O_RDWR);
    EXPECT_EQ(device.Video_Close(), 0);
    EXPECT_EQ(device.Video_Close(), 0);
    EXPECT_EQ(Log_Names(), "open close");
    EXPECT_EQ(device.C_V4L2_VC_Pu.VC_fd, static_cast<uint32_t>(fd)) << "the controls keep the old number";
}

// Linux says EBADF; an emulator that knows no V4L2 requests may say something else.
int Error_Of_A_Request_Without_A_Device()
{
    v4l2_control control{};
    return ioctl(-1, VIDIOC_G_CTRL, &control) == 0 ? 0 : errno;
}

TEST_F(Device, AFailedOpenIsReportedAndMakesControlsFail)
{
    const int error = Error_Of_A_Request_Without_A_Device();
    char number[16];
    std::snprintf(number, sizeof number, "0x%x", static_cast<unsigned>(error));
    Fail_With(Call_Open, {EACCES});
    Captured_Stderr printed;
    EXPECT_EQ(device.Video_Open(), -1);
    EXPECT_EQ(device.Get_Video_Device_FD(), -1);
    EXPECT_EQ(device.Video_Close(), -1);
    int32_t value = 7;
    EXPECT_EQ(device.C_V4L2_VC_Pu.V4L2_Static_Pu_Get_Control(V4L2_CID_BRIGHTNESS, &value), -1);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(printed.Text(), "Open false:: Permission denied\nioctl get control error , errno = " +
                                  std::string(number) + ", str = " + std::strerror(error) + "\n");
}

struct Retry_Case {
    std::vector<int> errors;
    int attempts;
    int result;
    int given_up_with;  // 0: silent
};

TEST_F(Device, RequestsAreTriedUpToFiveTimesOnTransientErrors)
{
    const std::vector<Retry_Case> cases = {
        {{}, 1, 0, 0},
        {{EBUSY}, 1, -1, 0},
        {{EINTR, EBUSY}, 2, -1, 0},
        {{EINTR, EAGAIN, EBUSY}, 3, -1, 0},
        {{EINTR, EAGAIN, ETIMEDOUT, EBUSY}, 4, -1, EBUSY},
        {{EINTR, EAGAIN, ETIMEDOUT, EINTR}, 5, 0, 0},
        {{EINTR, EINTR, EINTR, EINTR, EIO}, 5, -1, EIO},
        {{EINTR, EINTR, EINTR, EINTR, EINTR}, 5, -1, EINTR},
    };
    device.Video_Open();
    for (const Retry_Case& one : cases) {
        Clear_Log();
        Fail_With(VIDIOC_S_FMT, one.errors);
        Captured_Stderr printed;
        EXPECT_EQ(device.Video_Stream_Set_Format(V4L2_PIX_FMT_YUYV, 640, 480), one.result);
        EXPECT_EQ(printed.Text(), one.given_up_with == 0 ? "" : Giving_Up(VIDIOC_S_FMT, one.given_up_with));
        EXPECT_EQ(Requests(VIDIOC_S_FMT), one.attempts) << one.errors.size() << " errors";
    }
}

TEST_F(Device, SetUpIssuesItsRequestsInOrder)
{
    device.Video_Open();
    EXPECT_EQ(device.Video_Stream_Set_Format(V4L2_PIX_FMT_MJPEG, 640, 480), 0);
    EXPECT_EQ(device.Video_Stream_Set_Frame_Rate(1, 15), 0);
    EXPECT_EQ(device.Video_Stream_Set_Frame_Buff(2), 0);
    EXPECT_EQ(device.u_VideoStream_Queue_buff, 2U);
    EXPECT_EQ(device.Video_Stream_Start_Stream(), 0);
    EXPECT_EQ(device.Video_Exe_End(), 0);
    EXPECT_EQ(Log_Names(),
              "open VIDIOC_S_FMT VIDIOC_G_PARM VIDIOC_S_PARM VIDIOC_REQBUFS VIDIOC_QUERYBUF mmap VIDIOC_QUERYBUF mmap "
              "VIDIOC_QBUF VIDIOC_QBUF VIDIOC_STREAMON munmap munmap VIDIOC_STREAMOFF close");
    const std::vector<Log_Entry> log = Log();
    EXPECT_EQ(log[1].As<v4l2_format>().fmt.pix.pixelformat, V4L2_PIX_FMT_MJPEG);
    EXPECT_EQ(log[1].As<v4l2_format>().fmt.pix.width, 640U);
    EXPECT_EQ(log[3].As<v4l2_streamparm>().parm.capture.timeperframe.numerator, 1U);
    EXPECT_EQ(log[3].As<v4l2_streamparm>().parm.capture.timeperframe.denominator, 15U);
    EXPECT_EQ(log[4].As<v4l2_requestbuffers>().count, 2U);
    EXPECT_EQ(log[4].As<v4l2_requestbuffers>().memory, static_cast<uint32_t>(V4L2_MEMORY_MMAP));
    EXPECT_EQ(log[7].As<v4l2_buffer>().index, 1U);
    EXPECT_EQ(log[8].offset, log[7].As<v4l2_buffer>().m.offset);
    EXPECT_EQ(log[8].length, log[7].As<v4l2_buffer>().length);
}

TEST_F(Device, SetFrameBuffWithCountZeroMakesOneBuffer)
{
    device.Video_Open();
    Captured_Stderr printed;
    EXPECT_EQ(device.Video_Stream_Set_Frame_Buff(0), 0);
    EXPECT_EQ(device.u_VideoStream_Queue_buff, 1U);
    EXPECT_EQ(device.LC_Buffer_List.size(), 1U);
    EXPECT_EQ(Log_Names(), "open VIDIOC_REQBUFS VIDIOC_QUERYBUF VIDIOC_QBUF");
}

TEST_F(Device, ARefusedReqbufsDoesNotStopTheSetUp)
{
    device.Video_Open();
    Fail_With(VIDIOC_REQBUFS, {EBUSY});
    EXPECT_EQ(device.Video_Stream_Set_Frame_Buff(4), -1);
    EXPECT_EQ(device.LC_Buffer_List.size(), 4U);
    EXPECT_EQ(Requests(VIDIOC_QUERYBUF), 4);
    EXPECT_EQ(Requests(Call_Mmap), 0);
    EXPECT_EQ(Requests(VIDIOC_QBUF), 4);
}

TEST_F(Device, AFailedMappingIsNotUnmapped)
{
    device.Video_Open();
    Fail(Node, Call_Mmap, {ENOMEM});
    EXPECT_EQ(device.Video_Stream_Set_Frame_Buff(1), 0);
    EXPECT_EQ(device.LC_Buffer_List.front().sBuf.pMem, MAP_FAILED);
    std::strcpy(GLOG, "no unmapping");
    EXPECT_EQ(device.Video_Stream_Clear_Frame_Buff(), 0);
    EXPECT_STREQ(GLOG, "no unmapping") << "unmapping writes a trace line";
    EXPECT_TRUE(device.LC_Buffer_List.empty());
    EXPECT_EQ(device.u_VideoStream_Queue_buff, 1U);
    EXPECT_EQ(device.Video_Stream_Clear_Frame_Buff(), 0);
}

TEST_F(Device, ASecondOpenBindsANewDescriptorAndLeavesTheFirstOpen)
{
    const int32_t first = device.Video_Open();
    const int32_t second = device.Video_Open();
    EXPECT_NE(second, first);
    EXPECT_EQ(device.Get_Video_Device_FD(), second);
    EXPECT_EQ(device.C_V4L2_VC_Pu.VC_fd, static_cast<uint32_t>(second));
    EXPECT_EQ(Log_Names(), "open open");
    EXPECT_EQ(close(first), 0);
}

TEST_F(Device, CurrentPixFormatIsTheRequestNotTheDriversAnswer)
{
    device.Video_Open();
    EXPECT_EQ(device.Video_Stream_Set_Format(v4l2_fourcc('N', 'O', 'N', 'E'), 641, 479), 0);
    const Pix_Format format = device.Get_Current_PixFormat();
    EXPECT_EQ(format.u_PixFormat, v4l2_fourcc('N', 'O', 'N', 'E'));
    EXPECT_EQ(format.u_Width, 641U);
    EXPECT_EQ(format.u_Height, 479U);
    EXPECT_NE(Log().back().As<v4l2_format>().fmt.pix.width, 641U) << "the driver adjusts the size";
}

TEST_F(Device, SetFormatKeepsTheRequestedFormatWhenTheDriverRefuses)
{
    device.Video_Open();
    Fail_With(VIDIOC_S_FMT, {EBUSY});
    EXPECT_EQ(device.Video_Stream_Set_Format(V4L2_PIX_FMT_GREY, 320, 240), -1);
    EXPECT_EQ(device.Get_Current_PixFormat().u_PixFormat, V4L2_PIX_FMT_GREY);
}

TEST_F(Device, SetFrameRateSetsTheIntervalWhenItCannotBeRead)
{
    device.Video_Open();
    Fail_With(VIDIOC_G_PARM, {EINVAL});
    EXPECT_EQ(device.Video_Stream_Set_Frame_Rate(1, 15), 0);
    EXPECT_EQ(Log().back().As<v4l2_streamparm>().parm.capture.timeperframe.denominator, 15U);
}

TEST_F(Device, ASecondSetFrameBuffAppendsBuffers)
{
    device.Video_Open();
    EXPECT_EQ(device.Video_Stream_Set_Frame_Buff(2), 0);
    EXPECT_EQ(device.Video_Stream_Set_Frame_Buff(2), 0);
    EXPECT_EQ(device.LC_Buffer_List.size(), 4U);
}

TEST(Wait_Readable, ANegativeDescriptorWaitsUntilTheTimeOut)
{
    EXPECT_EQ(Wait_Readable(-1, {0, 1000}), 0);
}

// A service that closed its standard input gets its camera as descriptor 0.
TEST(Wait_Readable, WaitsForDescriptorZero)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    ASSERT_EQ(dup2(ends[0], STDIN_FILENO), STDIN_FILENO);
    EXPECT_EQ(Wait_Readable(STDIN_FILENO, {0, 1000}), 0);
    EXPECT_EQ(write(ends[1], "", 1), 1);
    EXPECT_EQ(Wait_Readable(STDIN_FILENO, {0, 1000}), 1);
    (void)close(STDIN_FILENO);
    if (kept >= 0) {
        EXPECT_EQ(dup2(kept, STDIN_FILENO), STDIN_FILENO);
        (void)close(kept);
    }
    (void)close(ends[0]);
    (void)close(ends[1]);
}

TEST(Wait_Readable, KeepsTheErrorOfSelectAndAllocatesNothingBelowFdSetsize)
{
    for (const int32_t fd : {FD_SETSIZE - 1, FD_SETSIZE}) {
        const int before = allocation_watch::Allocations();
        const int32_t result = Wait_Readable(fd, {-1, 0});
        const int error = errno;
        const int allocations = allocation_watch::Allocations() - before;
        EXPECT_EQ(result, -1);
        EXPECT_EQ(error, EINVAL) << "a negative time-out, descriptor " << fd;
        EXPECT_TRUE(allocations == 0 || fd >= FD_SETSIZE);
    }
}

TEST_F(Device, DeletingAnOpenDeviceIssuesNoRequestAndKeepsItsMappings)
{
    PVOID stored = nullptr;
    Video_Device_Base_Class* other = creater_Video_Device_Base_Class(&record, &stored);
    other->Video_Open();
    other->Video_Stream_Set_Frame_Buff(2);
    const int32_t fd = other->Get_Video_Device_FD();
    std::vector<Frame_Buffer> buffers;
    for (const Frame_Buffer& buffer : static_cast<Video_Device*>(stored)->LC_Buffer_List) {
        buffers.push_back(buffer);
    }
    Clear_Log();
    delete_Video_Device_Base_Class(other);
    EXPECT_EQ(Log_Names(), "");
    for (Frame_Buffer& buffer : buffers) {
        EXPECT_EQ(buffer.unmap_buff(), 0) << "the mapping was gone";
    }
    EXPECT_EQ(close(fd), 0);
}

TEST_F(Device, ControlsAreReadAndWrittenAndEachOutcomeOfAWriteIsReported)
{
    device.Video_Open();
    Captured_Stderr printed;
    int32_t value = -1;
    V4L2_Video_Control_Pu& controls = device.C_V4L2_VC_Pu;
    EXPECT_EQ(controls.V4L2_Static_Pu_Set_Control(V4L2_CID_BRIGHTNESS, 33), 0);
    EXPECT_EQ(controls.V4L2_Static_Pu_Get_Control(V4L2_CID_BRIGHTNESS, &value), 0);
    EXPECT_EQ(value, 33);
    EXPECT_EQ(controls.V4L2_Static_Pu_Get_Control(V4L2_CID_PAN_SPEED, &value), -1);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(controls.V4L2_Static_Pu_Set_Control(V4L2_CID_PAN_SPEED, 1), -1);
    controls.uninit();
    value = 5;
    EXPECT_EQ(controls.V4L2_Static_Pu_Get_Control(V4L2_CID_BRIGHTNESS, &value), -1);
    EXPECT_EQ(controls.V4L2_Static_Pu_Set_Control(V4L2_CID_BRIGHTNESS, 1), -1);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(printed.Text(),
              "ioctl get control success \n"
              "ioctl get control error , errno = 0x16, str = Invalid argument\n"
              "ioctl get control error , errno = 0x16, str = Invalid argument\n");
    EXPECT_EQ(Requests(VIDIOC_G_CTRL), 2);
    EXPECT_EQ(Requests(VIDIOC_S_CTRL), 2) << "control requests are not retried, unbound ones not made";
}

// A camera with discrete and stepwise sizes and intervals.
class Catalogue : public Camera_Fixture {
protected:
    static constexpr const char* Node = "/dev/video4";

    Catalogue()
    {
        Camera_Description camera = Usb_Camera(1);
        camera.capture_node = Node;
        camera.has_metadata = false;
        const Frame_Size large = Discrete_Size(1280, 720, {{1, 30}, {2, 59}, {1, 5}});
        const Frame_Size small = Discrete_Size(320, 240, {{1, 60}});
        Frame_Size range{32, 16, 640, 480, 8, 4, {{1, 50}, {1, 10}, {1, 100}}, true};
        camera.formats = {{V4L2_PIX_FMT_MJPEG, {large, small}}, {V4L2_PIX_FMT_GREY, {range}}};
        Add_Camera(camera);
        device.Video_Open();
    }
    ~Catalogue() override { device.Video_Close(); }

    v4l2_dev_sys_data_t record = Camera_Record(Node);
    Video_Device device{&record};
};

TEST_F(Catalogue, HoldsFormatsSizesAndIntervalsInDriverOrder)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(device.Video_Frame_Format(), 2);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "**1\n**2\n");

    Format_Info_Base_Class* mjpeg = device.Index_At_Format_Info(0);
    EXPECT_EQ(mjpeg->Format(), static_cast<int32_t>(V4L2_PIX_FMT_MJPEG));
    ASSERT_EQ(mjpeg->Size(), 2U);
    Resolution_Info_Base_Class* large = mjpeg->Index_At(0);
    EXPECT_EQ(large->Width(), 1280);
    EXPECT_EQ(large->High(), 720);
    ASSERT_EQ(large->Size(), 3U);
    EXPECT_EQ(large->Index_At_Numerator(1), 2U);
    EXPECT_EQ(large->Index_At_Denominator(1), 59U);
    EXPECT_EQ(mjpeg->Index_At(1)->Width(), 320);

    Format_Info_Base_Class* grey = device.Index_At_Format_Info(1);
    ASSERT_EQ(grey->Size(), 1U) << "a range of sizes is one entry";
    Resolution_Info_Base_Class* range = grey->Index_At(0);
    EXPECT_EQ(range->Width(), 32) << "smallest width";
    EXPECT_EQ(range->High(), 640) << "largest width: the second word";
    EXPECT_EQ(range->Size(), 0U) << "the driver has no intervals for a size of 32x640";

    EXPECT_EQ(device.Index_At_Format_Info(2), device.Index_At_Format_Info(0));
    EXPECT_EQ(mjpeg->Index_At(9), large);
    EXPECT_EQ(large->Index_At_Denominator(3), 30U);
}

TEST_F(Catalogue, ARepeatedBuildAppendsAndCountsOn)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(device.Video_Frame_Format(), 2);
    EXPECT_EQ(device.Video_Frame_Format(), 2);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "**1\n**2\n**3\n**4\n");
    EXPECT_EQ(device.Index_At_Format_Info(2)->Format(), static_cast<int32_t>(V4L2_PIX_FMT_MJPEG));

    const std::list<Format_Info> copy = device.LC_Format_List;
    device.LC_Format_List.clear();
    EXPECT_EQ(copy.front().LC_Resolution_List.front().LS_Frame_Rata.size(), 3U);

    v4l2_fmtdesc format = copy.front().S_Format;
    v4l2_frmsizeenum size = copy.front().LC_Resolution_List.front().S_Resolution;
    EXPECT_EQ(device.Video_Frame_Sizes(format), 2) << "counting stores nothing";
    EXPECT_EQ(device.Video_Frame_Rate(size), 3);
    EXPECT_TRUE(device.LC_Format_List.empty());
}

TEST_F(Catalogue, AStepwiseIntervalEndsTheEnumeration)
{
    v4l2_frmsizeenum size{};
    size.pixel_format = V4L2_PIX_FMT_GREY;
    size.discrete = {320, 240};
    Resolution_Info resolution;
    EXPECT_EQ(device.Video_Frame_Rate(size, &resolution), 1);
    EXPECT_EQ(resolution.Size(), 1U);
    EXPECT_EQ(resolution.Index_At_Denominator(0), 50U);
    EXPECT_EQ(resolution.Width(), 320);
}

TEST_F(Catalogue, AContinuousIntervalEndsTheEnumeration)
{
    Alter(Node, VIDIOC_ENUM_FRAMEINTERVALS,
          [](void* answer) { static_cast<v4l2_frmivalenum*>(answer)->type = V4L2_FRMIVAL_TYPE_CONTINUOUS; });
    v4l2_frmsizeenum size{};
    size.pixel_format = V4L2_PIX_FMT_MJPEG;
    size.discrete = {1280, 720};
    EXPECT_EQ(device.Video_Frame_Rate(size), 1);
}

TEST_F(Catalogue, EmptyListsReturnNullAndZero)
{
    Format_Info format;
    Resolution_Info resolution;
    EXPECT_EQ(format.Index_At(0), nullptr);
    EXPECT_EQ(resolution.Index_At_Numerator(0), 0U);
    EXPECT_EQ(resolution.Index_At_Denominator(5), 0U);

    Fail(Node, VIDIOC_ENUM_FMT, {EINVAL});
    testing::internal::CaptureStdout();
    EXPECT_EQ(device.Video_Frame_Format(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(device.Index_At_Format_Info(0), nullptr);
}

TEST_F(Catalogue, FormatSupportKnowsItsTableAndAcceptsZero)
{
    for (uint32_t code :
         {V4L2_PIX_FMT_MJPEG, V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_YUV420, V4L2_PIX_FMT_RGB565, V4L2_PIX_FMT_Y16_BE,
          V4L2_PIX_FMT_XRGB555X, V4L2_PIX_FMT_SBGGR8, v4l2_fourcc('B', 'X', '2', '4'), 0U}) {
        EXPECT_EQ(device.Video_Frame_Format_support(code), 1) << Fourcc_Text(code);
    }
    for (uint32_t code : {V4L2_PIX_FMT_HEVC, V4L2_PIX_FMT_SRGGB10, v4l2_fourcc_be('G', 'R', 'E', 'Y'), ~0U}) {
        EXPECT_EQ(device.Video_Frame_Format_support(code), 0) << Fourcc_Text(code);
    }
}

}  // namespace
