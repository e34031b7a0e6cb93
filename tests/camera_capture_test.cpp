// The camera interface: starting a capture, what can go wrong there, and frames that are held.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "support/open_camera.h"

namespace {

using namespace virtual_camera;

constexpr WQZ_Camera_Fraction Thirty{1, 30};

class Capture : public Open_Camera {
protected:
    // A start that fails leaves nothing behind: no mapping, no buffer, and another handle can start at once.
    void Expect_Camera_Is_Free()
    {
        EXPECT_EQ(Count("mmap"), Count("munmap"));
        const std::vector<Log_Entry> log = Log();
        const auto last = std::find_if(log.rbegin(), log.rend(),
                                       [](const Log_Entry& entry) { return entry.request == VIDIOC_REQBUFS; });
        ASSERT_NE(last, log.rend());
        EXPECT_EQ(last->As<v4l2_requestbuffers>().count, 0U);
        WQZ_Camera* other = nullptr;
        ASSERT_EQ(WQZ_Camera_Open(&other, Node), 0);
        const auto request = Request_For(V4L2_PIX_FMT_YUYV, 640, 480);
        EXPECT_EQ(WQZ_Camera_Start(other, &request, nullptr), 0) << Explanation(other);
        EXPECT_EQ(WQZ_Camera_Close(other), 0);
    }

    // Of those that succeeded.
    static long Count(const std::string& name)
    {
        const std::vector<Log_Entry> log = Log();
        return std::count_if(log.begin(), log.end(),
                             [&](const Log_Entry& entry) { return entry.name == name && entry.error == 0; });
    }
};

TEST_F(Capture, AWholeRunMakesTheseRequests)
{
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty)), 0);
    EXPECT_EQ(Log_Names(),
              "VIDIOC_S_FMT VIDIOC_S_PARM VIDIOC_REQBUFS VIDIOC_QUERYBUF mmap VIDIOC_QUERYBUF mmap VIDIOC_QUERYBUF "
              "mmap VIDIOC_QUERYBUF mmap VIDIOC_QBUF VIDIOC_QBUF VIDIOC_QBUF VIDIOC_QBUF VIDIOC_STREAMON");
    EXPECT_EQ(mode.fourcc, V4L2_PIX_FMT_YUYV);
    EXPECT_STREQ(mode.format, "YUYV");
    EXPECT_EQ(mode.bytes_per_line, 640U);
    EXPECT_EQ(mode.image_size, 320U * 240 * 2);
    EXPECT_EQ(mode.interval.denominator, 30U);
    EXPECT_EQ(mode.buffers, 4U);
    Clear_Log();
    WQZ_Camera_Frame frame = Next_Frame();
    EXPECT_EQ(Log_Names(), "VIDIOC_DQBUF") << "a frame that is ready costs one request";
    EXPECT_EQ(Bytes(frame), Frame_Bytes(Node, frame.sequence));
    EXPECT_EQ(frame.fourcc, V4L2_PIX_FMT_YUYV);
    EXPECT_EQ(frame.width, 320U);
    EXPECT_EQ(frame.height, 240U);
    EXPECT_EQ(frame.bytes_per_line, 640U);
    EXPECT_EQ(frame.flags, 0U);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(frame.data, nullptr);
    EXPECT_EQ(WQZ_Camera_Release(&frame), -EINVAL) << "once";
    Clear_Log();
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(Log_Names(), "VIDIOC_STREAMOFF munmap munmap munmap munmap VIDIOC_REQBUFS close");
}

struct Refused_Step {
    uint32_t request;
    int error;
    int skip;
    const char* words;
};

class Refusal : public Capture, public testing::WithParamInterface<Refused_Step> {};

TEST_P(Refusal, AStartThatFailsLeavesTheCameraFree)
{
    const Refused_Step& step = GetParam();
    Fail(Node, step.request, {step.error, -1, 1, step.skip});
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty)), -step.error);
    EXPECT_NE(Explanation(camera).find(step.words), std::string::npos) << Explanation(camera);
    Expect_Camera_Is_Free();
    WQZ_Camera_Frame frame{};
    EXPECT_EQ(Read(frame, 0), -EINVAL);
    EXPECT_EQ(frame.data, nullptr);
    Start_Mjpeg();
    frame = Next_Frame();
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
}

INSTANTIATE_TEST_SUITE_P(
    EachRequest, Refusal,
    testing::Values(
        Refused_Step{VIDIOC_S_FMT, EBUSY, 0, "busy"}, Refused_Step{VIDIOC_S_FMT, EIO, 0, "set the format"},
        Refused_Step{VIDIOC_S_FMT, EINVAL, 0,
                     "refused YUYV 320x240 at 30 frames per second, although the camera offers"},
        Refused_Step{VIDIOC_S_PARM, EBUSY, 0, "busy"}, Refused_Step{VIDIOC_S_PARM, EIO, 0, "set the frame rate"},
        Refused_Step{VIDIOC_REQBUFS, EBUSY, 0, "busy"}, Refused_Step{VIDIOC_REQBUFS, ENOMEM, 0, "fewer buffers"},
        Refused_Step{VIDIOC_REQBUFS, EINVAL, 0, "provide buffers"},
        Refused_Step{VIDIOC_QUERYBUF, EINVAL, 2, "describe its buffers"},
        Refused_Step{Call_Mmap, ENOMEM, 0, "fewer buffers"}, Refused_Step{Call_Mmap, EACCES, 3, "share its buffers"},
        Refused_Step{VIDIOC_QBUF, EIO, 3, "take its buffers"},
        Refused_Step{VIDIOC_STREAMON, ENOSPC, 0, "USB bus has no room for YUYV 320x240 at 30"},
        Refused_Step{VIDIOC_STREAMON, EIO, 0, "another port"}, Refused_Step{VIDIOC_STREAMON, EACCES, 0, "start"},
        Refused_Step{VIDIOC_STREAMON, EPROTO, 0, "another port"}));

TEST_F(Capture, ADriverThatClaimsBillionsOfBuffersIsNotBelieved)
{
    Alter(Node, VIDIOC_REQBUFS, [](void* answer) { static_cast<v4l2_requestbuffers*>(answer)->count = 0xFFFF'FFFF; });
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240)), -EIO);
    EXPECT_NE(Explanation(camera).find("provide buffers"), std::string::npos) << Explanation(camera);
    Start_Yuyv();
}

// Tools show these sentences to people who call no function.
TEST_F(Capture, ExplanationsAreWordsForUsersWithoutFunctionNames)
{
    const auto expect_plain = [this] {
        EXPECT_NE(Explanation(camera), "");
        EXPECT_EQ(Explanation(camera).find("WQZ_"), std::string::npos) << Explanation(camera);
        EXPECT_EQ(Explanation(camera).find("Recover"), std::string::npos) << Explanation(camera);
    };
    WQZ_Camera_Frame frame{};
    EXPECT_EQ(Read(frame, 0), -EINVAL);
    expect_plain();
    Start_Yuyv();
    EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
    EXPECT_EQ(Read(frame, 0), -ECANCELED);
    expect_plain();
    for (const int error : {EIO, ENODEV}) {
        Fail(Node, VIDIOC_DQBUF, {error});
        EXPECT_EQ(Read(frame, 0), -error);
        expect_plain();
        EXPECT_NE(Explanation(camera).find("again"), std::string::npos) << "the remedy";
    }
    Fail(Node, VIDIOC_STREAMON, {ENODEV});
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240)), -ENODEV);
    expect_plain();
    EXPECT_NE(Explanation(camera).find("Plug it in again"), std::string::npos) << Explanation(camera);
}

TEST_F(Capture, AReleaseThatTheDriverRefusesReleasesTheFrameAllTheSame)
{
    Start_Yuyv();
    for (const int error : {EIO, EINVAL}) {
        WQZ_Camera_Frame frame = Next_Frame();
        Fail(Node, VIDIOC_QBUF, {error});
        EXPECT_EQ(WQZ_Camera_Release(&frame), -error);
        EXPECT_NE(Explanation(nullptr).find("did not take the buffer back"), std::string::npos) << Explanation(nullptr);
        EXPECT_EQ(frame.data, nullptr);
        EXPECT_EQ(WQZ_Camera_Release(&frame), -EINVAL) << "once";
    }
}

// A service may have closed its standard input. The camera's own descriptors then begin with 0.
TEST_F(Capture, WorksWithDescriptorZero)
{
    EXPECT_EQ(Close(), 0);
    const int kept = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    (void)close(STDIN_FILENO);
    EXPECT_EQ(WQZ_Camera_Open(&camera, Node), 0) << Explanation(nullptr);
    EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1) << "the test needs a descriptor 0 that is the camera's";
    Start_Yuyv();
    WQZ_Camera_Frame frame = Next_Frame();
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "left open";
    if (kept >= 0) {
        EXPECT_EQ(dup2(kept, STDIN_FILENO), STDIN_FILENO);
        (void)close(kept);
    }
}

TEST_F(Capture, StartEndsARunningCaptureAndBeginsInAnyMode)
{
    Start_Yuyv();
    WQZ_Camera_Frame held = Next_Frame();
    const std::vector<uint8_t> bytes = Bytes(held);
    Start_Mjpeg();
    WQZ_Camera_Frame frame = Next_Frame();
    EXPECT_EQ(frame.fourcc, V4L2_PIX_FMT_MJPEG);
    EXPECT_EQ(Bytes(held), bytes) << "a held frame survives the next start";
    EXPECT_EQ(WQZ_Camera_Release(&held), 0);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0) << "nothing to stop";
    EXPECT_EQ(Read(frame, 0), -EINVAL);
    Start_Yuyv();
    EXPECT_EQ(Counts().delivered, 0U) << "counted from the start";
}

TEST_F(Capture, FramesHeldAcrossStopUnplugAndCloseKeepTheirBytes)
{
    std::vector<WQZ_Camera_Frame> held;
    std::vector<std::vector<uint8_t>> bytes;
    const auto hold_one = [&] {
        held.push_back(Next_Frame());
        bytes.push_back(Bytes(held.back()));
    };
    Start_Mjpeg();
    hold_one();
    hold_one();
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
    Start_Yuyv();
    hold_one();
    Unplug(Node);
    EXPECT_EQ(Close(), 0);
    for (size_t i = 0; i < held.size(); ++i) {
        EXPECT_EQ(Bytes(held[i]), bytes[i]);
    }
    std::thread other([&] { EXPECT_EQ(WQZ_Camera_Release(&held[0]), 0); });
    EXPECT_EQ(WQZ_Camera_Release(&held[2]), 0);
    other.join();
    EXPECT_EQ(Bytes(held[1]), bytes[1]);
    EXPECT_EQ(WQZ_Camera_Release(&held[1]), 0);
    EXPECT_EQ(Count("munmap"), Count("mmap"));
}

TEST_F(Capture, ADriverThatCannotOrphanBuffersGetsItsCameraBackWithTheLastFrame)
{
    const auto cannot_orphan = [](void* argument) {
        static_cast<v4l2_requestbuffers*>(argument)->capabilities &= ~uint32_t{V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS};
    };
    Alter(Node, VIDIOC_REQBUFS, cannot_orphan, Always);
    Start_Yuyv();
    WQZ_Camera_Frame held = Next_Frame();
    EXPECT_EQ(WQZ_Camera_Stop(camera), -EBUSY);
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_MJPEG, 320, 240)), -EBUSY);
    EXPECT_NE(Explanation(camera).find("held"), std::string::npos) << Explanation(camera);
    EXPECT_EQ(WQZ_Camera_Release(&held), 0);
    Start_Mjpeg();
    held = Next_Frame();
    const std::vector<uint8_t> bytes = Bytes(held);
    EXPECT_EQ(Close(), -EBUSY);
    EXPECT_EQ(Bytes(held), bytes);
    Clear_Log();
    EXPECT_EQ(WQZ_Camera_Release(&held), 0);
    EXPECT_EQ(Log_Names(), "munmap VIDIOC_REQBUFS close");
}

TEST_F(Capture, NothingKeepsACameraThatWasUnplugged)
{
    const auto cannot_orphan = [](void* argument) {
        static_cast<v4l2_requestbuffers*>(argument)->capabilities &= ~uint32_t{V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS};
    };
    Alter(Node, VIDIOC_REQBUFS, cannot_orphan, 1);
    Start_Yuyv();
    WQZ_Camera_Frame held = Next_Frame();
    const std::vector<uint8_t> bytes = Bytes(held);
    Unplug(Node);
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0) << Explanation(camera);
    EXPECT_EQ(Close(), 0) << Explanation(nullptr);
    EXPECT_EQ(Bytes(held), bytes);
    EXPECT_EQ(WQZ_Camera_Release(&held), 0);

    Add_Camera(Usb_Camera());
    ASSERT_EQ(WQZ_Camera_Open(&camera, Node), 0);
    Hold_Frames(Node);
    Alter(Node, VIDIOC_REQBUFS, cannot_orphan, 1);
    Start_Yuyv();
    held = Next_Frame();
    EXPECT_EQ(WQZ_Camera_Stop(camera), -EBUSY);
    Unplug(Node);
    EXPECT_EQ(Close(), 0) << "gone after the stop: " << Explanation(nullptr);
    EXPECT_EQ(WQZ_Camera_Release(&held), 0);
}

TEST_F(Capture, WrongCallsAreAnsweredWithASentence)
{
    Captured_Stderr printed;
    const auto request = Request_For(V4L2_PIX_FMT_YUYV, 320, 240);
    auto frame = Sized<WQZ_Camera_Frame>();
    EXPECT_EQ(WQZ_Camera_Start(nullptr, &request, nullptr), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Start(camera, nullptr, nullptr), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Read(camera, nullptr, 0, 0), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Read(nullptr, &frame, 0, 0), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Release(nullptr), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Close(nullptr), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Cancel(nullptr), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Open(nullptr, Node), -EINVAL);
    for (const WQZ_Camera_Request& wrong :
         {Request_For(0, 320, 240), Request_For(V4L2_PIX_FMT_YUYV, 0, 240), Request_For(V4L2_PIX_FMT_YUYV, 320, 0),
          Request_For(V4L2_PIX_FMT_YUYV, 320, 240, {1, 0}), Request_For(V4L2_PIX_FMT_YUYV, 320, 240, {0, 0}, 0x80)}) {
        EXPECT_EQ(Start(wrong), -EINVAL);
        EXPECT_NE(Explanation(camera), "");
    }
    auto small = request;
    small.size = 8;
    EXPECT_EQ(Start(small), -EINVAL);
    EXPECT_NE(Explanation(camera).find("`size`"), std::string::npos) << Explanation(camera);
    frame.size = 0;
    EXPECT_EQ(WQZ_Camera_Read(camera, &frame, 0, 0), -EINVAL);
    EXPECT_EQ(Log_Names(), "") << "nothing reached the camera";
    EXPECT_EQ(printed.Text(), "");
}

TEST_F(Capture, ARecordOfANewerProgramIsFilledAsFarAsKnown)
{
    struct Newer {
        WQZ_Camera_Counts counts;
        uint64_t more;
        uint8_t behind[256];
    };
    Newer newer{};
    newer.counts.size = offsetof(Newer, behind);
    newer.more = 77;
    std::fill(std::begin(newer.behind), std::end(newer.behind), uint8_t{0xA5});
    EXPECT_EQ(WQZ_Camera_Counters(camera, &newer.counts), 0);
    EXPECT_EQ(newer.counts.size, offsetof(Newer, behind));
    EXPECT_EQ(newer.more, 0U);
    EXPECT_EQ(std::count(std::begin(newer.behind), std::end(newer.behind), 0xA5), 256);
}

}  // namespace
