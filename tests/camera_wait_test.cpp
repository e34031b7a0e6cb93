// The camera interface: waits and what ends them, unplugging and recovery.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <thread>

#include "support/open_camera.h"
#include "support/waiting.h"

namespace {

using namespace virtual_camera;
using std::chrono::milliseconds;

constexpr milliseconds Notice{200};  // within which an unplug shows
constexpr milliseconds Slack{250};   // of a loaded machine

class Waiting : public Open_Camera {
protected:
    Waiting() { Start_Yuyv(); }

    // Does something a little after the call began to wait.
    static std::thread Later(const std::function<void()>& action)
    {
        return std::thread([action] {
            std::this_thread::sleep_for(milliseconds(60));
            action();
        });
    }

    // A Read looks for a frame before it waits.
    static void Await_Readers(int count)
    {
        EXPECT_TRUE(Eventually([=] { return Requests(VIDIOC_DQBUF) >= count; }));
        std::this_thread::sleep_for(milliseconds(20));
    }

    bool Is_Readable(int timeout_ms = 0)
    {
        pollfd polled{WQZ_Camera_Descriptor(camera), POLLIN, 0};
        return poll(&polled, 1, timeout_ms) == 1;
    }

    void Plug_In_Again()
    {
        Camera_Description description = Usb_Camera();
        description.capture_node = Node;
        Add_Camera(description);
        Hold_Frames(Node);
    }

    WQZ_Camera_Frame frame = Sized<WQZ_Camera_Frame>();
};

TEST_F(Waiting, ASilentCameraTimesOut)
{
    const Stopwatch watch;
    EXPECT_EQ(Read(frame, 0), -ETIMEDOUT);
    EXPECT_LT(watch.Elapsed(), milliseconds(50));
    EXPECT_EQ(Read(frame, 250), -ETIMEDOUT);
    EXPECT_GE(watch.Elapsed(), milliseconds(250));
    EXPECT_LT(watch.Elapsed(), milliseconds(250) + Slack);
    EXPECT_NE(Explanation(camera).find("silent"), std::string::npos);
    EXPECT_EQ(frame.data, nullptr);
}

TEST_F(Waiting, AFrameEndsTheWait)
{
    std::thread later = Later([] { Deliver_Frames(Node, 1); });
    const Stopwatch watch;
    EXPECT_EQ(Read(frame, -1), 0);
    EXPECT_GE(watch.Elapsed(), milliseconds(40));
    later.join();
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
}

TEST_F(Waiting, CancelIsRememberedForTheNextWait)
{
    EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
    EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
    Deliver_Frames(Node, 1);
    EXPECT_EQ(Read(frame, 1000), -ECANCELED);
    EXPECT_EQ(Read(frame, 1000), 0);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
}

WQZ_Camera* cancelled_by_signal = nullptr;

TEST_F(Waiting, ASignalHandlerMayCancel)
{
    cancelled_by_signal = camera;
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = [](int) { WQZ_Camera_Cancel(cancelled_by_signal); };
    ASSERT_EQ(sigaction(SIGUSR1, &action, &former), 0);
    const pthread_t reader = pthread_self();
    std::thread later = Later([=] { pthread_kill(reader, SIGUSR1); });
    EXPECT_EQ(Read(frame, -1), -ECANCELED);
    later.join();
    EXPECT_EQ(Read(frame, 20), -ETIMEDOUT);
    ASSERT_EQ(sigaction(SIGUSR1, &former, nullptr), 0);
}

TEST_F(Waiting, ASignalAloneDoesNotEndAWait)
{
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, &former), 0);
    const pthread_t reader = pthread_self();
    std::thread later = Later([=] { pthread_kill(reader, SIGUSR1); });
    const Stopwatch watch;
    EXPECT_EQ(Read(frame, 200), -ETIMEDOUT);
    EXPECT_GE(watch.Elapsed(), milliseconds(200));
    later.join();
    ASSERT_EQ(sigaction(SIGUSR1, &former, nullptr), 0);
}

TEST_F(Waiting, StopEndsEveryWait)
{
    constexpr int Readers = 3;
    Clear_Log();
    std::atomic<int> ended{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < Readers; ++i) {
        readers.emplace_back([&] {
            auto own = Sized<WQZ_Camera_Frame>();
            EXPECT_EQ(WQZ_Camera_Read(camera, &own, -1, 0), -ECANCELED);
            ++ended;
        });
    }
    Await_Readers(Readers);
    EXPECT_EQ(ended, 0);
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
    for (std::thread& reader : readers) {
        reader.join();
    }
    Start_Mjpeg();
    Clear_Log();
    EXPECT_EQ(Read(frame, 100), -ETIMEDOUT);
    EXPECT_LT(Requests(VIDIOC_DQBUF), 20) << "the wake-up of the stop must not keep later waits awake";
    frame = Next_Frame();
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
}

// Drivers that cry wolf -----------------------------------------------------------------------------------------------

TEST_F(Waiting, AFrameThatIsReportedAndNotHandedOutCostsNoProcessor)
{
    Fail(Node, VIDIOC_DQBUF, {EAGAIN, -1, Always});
    Deliver_Frames(Node, 1);
    Clear_Log();
    EXPECT_EQ(Read(frame, 300), -ETIMEDOUT);
    EXPECT_LT(Requests(VIDIOC_DQBUF), 100);
    std::thread later = Later([this] { WQZ_Camera_Cancel(camera); });
    const Stopwatch watch;
    EXPECT_EQ(Read(frame, -1), -ECANCELED);
    EXPECT_LT(watch.Elapsed(), milliseconds(60) + Slack);
    later.join();
}

// The write end of a pipe that nobody reads reports an error without end, in place of the camera's descriptor.
TEST_F(Waiting, AnErrorThatIsReportedWithoutEndIsAFailure)
{
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
    int pipe_ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(pipe_ends, O_CLOEXEC | O_NONBLOCK), 0);
    ASSERT_GE(syscall(SYS_dup3, pipe_ends[1], Log().front().fd, 0), 0) << "behind the virtual camera's back";
    (void)close(pipe_ends[0]);
    (void)close(pipe_ends[1]);
    Start_Yuyv();
    Clear_Log();
    const Stopwatch watch;
    EXPECT_EQ(Read(frame, -1), -EIO);
    EXPECT_LT(watch.Elapsed(), milliseconds(1000));
    EXPECT_LT(Requests(VIDIOC_DQBUF), 100);
    EXPECT_EQ(Read(frame, 0), -EIO) << "a program that polls must not take it for a time-out";
    EXPECT_EQ(Read(frame, 20), -EIO);
    Deliver_Frames(Node, 1);
    EXPECT_EQ(Read(frame, 0), 0) << "frames that come all the same are delivered";
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
}

TEST_F(Waiting, SkippingFramesThatNeverEndStopsAtTheTimeLimit)
{
    auto request = Request_For(V4L2_PIX_FMT_YUYV, 320, 240);
    request.skip = UINT32_MAX;
    ASSERT_EQ(Start(request), 0);
    Deliver_Frames(Node, 1'000'000'000);
    const Stopwatch watch;
    EXPECT_EQ(Read(frame, 100), -ETIMEDOUT);
    EXPECT_LT(watch.Elapsed(), milliseconds(100) + Slack);
    EXPECT_GT(Counts().skipped, 4U);
}

TEST_F(Waiting, EachThreadGetsTheSentenceOfItsOwnFailure)
{
    EXPECT_EQ(Read(frame, 0), -ETIMEDOUT);
    std::thread([this] {
        auto setting = Sized<WQZ_Camera_Setting>();
        setting.name = "no such control";
        EXPECT_EQ(WQZ_Camera_Get_Control(camera, &setting), -EINVAL);
        EXPECT_NE(Explanation(camera).find("no such control"), std::string::npos);
    }).join();
    char own[256] = "";
    EXPECT_GT(WQZ_Camera_Explain_Call(camera, own, sizeof own), 0);
    EXPECT_NE(std::string(own).find("silent"), std::string::npos);
    EXPECT_NE(Explanation(camera).find("no such control"), std::string::npos) << "the camera's last failure";
}

// Unplugging ----------------------------------------------------------------------------------------------------------

TEST_F(Waiting, AnUnplugBeforeAReadShows)
{
    frame = Next_Frame();
    Deliver_Frames(Node, 1);
    Unplug(Node);
    auto next = Sized<WQZ_Camera_Frame>();
    EXPECT_EQ(Read(next, 1000), -ENODEV);
    EXPECT_EQ(Read(next, 1000), -ENODEV) << "and stays";
    EXPECT_NE(Explanation(camera).find("unplugged"), std::string::npos);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0) << "a held frame can be given back";
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240)), -ENODEV);
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
}

TEST_F(Waiting, AnUnplugShowsWhileAllButOneBufferAreHeld)
{
    WQZ_Camera_Frame held[] = {Next_Frame(), Next_Frame(), Next_Frame()};
    EXPECT_EQ(Read(frame, 0), -ENOBUFS);
    Unplug(Node);
    EXPECT_EQ(Read(frame, 0), -ENODEV);
    for (WQZ_Camera_Frame& each : held) {
        EXPECT_EQ(WQZ_Camera_Release(&each), 0);
        EXPECT_EQ(Read(frame, 0), -ENODEV);
    }
}

TEST_F(Waiting, AnUnplugEndsARunningRead)
{
    std::atomic<int64_t> unplugged_at{0};
    const Stopwatch watch;
    std::thread later = Later([&] {
        Unplug(Node);
        unplugged_at = watch.Elapsed().count();
    });
    EXPECT_EQ(Read(frame, -1), -ENODEV);
    EXPECT_LT(watch.Elapsed().count() - unplugged_at, (Notice + Slack).count());
    later.join();
}

TEST_F(Waiting, AnUnplugThatTheDriverDoesNotReportIsNoticedAllTheSame)
{
    std::thread later = Later([] { Fail(Node, VIDIOC_QUERYCAP, {ENODEV, -1, Always}); });
    const Stopwatch watch;
    EXPECT_EQ(Read(frame, -1), -ENODEV);
    EXPECT_LT(watch.Elapsed(), milliseconds(60) + Notice + Slack);
    later.join();
}

TEST_F(Waiting, RecoverBringsModeControlsAndCountsBack)
{
    auto setting = Sized<WQZ_Camera_Setting>();
    setting.name = "brightness";
    setting.value = 7;
    ASSERT_EQ(WQZ_Camera_Set_Controls(camera, &setting, 1), 0) << Explanation(camera);
    frame = Next_Frame();
    const std::vector<uint8_t> bytes = Bytes(frame);
    const int descriptor = WQZ_Camera_Descriptor(camera);
    Unplug(Node);
    auto next = Sized<WQZ_Camera_Frame>();
    ASSERT_EQ(Read(next, 1000), -ENODEV);
    EXPECT_EQ(WQZ_Camera_Recover(camera, 150), -ETIMEDOUT);
    EXPECT_EQ(Read(next, 0), -ENODEV) << "still away";
    std::thread later = Later([this] { Plug_In_Again(); });
    ASSERT_EQ(WQZ_Camera_Recover(camera, 5000), 0) << Explanation(camera);
    later.join();
    EXPECT_EQ(WQZ_Camera_Descriptor(camera), descriptor);
    setting.value = 0;
    EXPECT_EQ(WQZ_Camera_Get_Control(camera, &setting), 0);
    EXPECT_EQ(setting.value, 7);
    next = Next_Frame();
    EXPECT_EQ(next.fourcc, V4L2_PIX_FMT_YUYV);
    EXPECT_EQ(next.width, 320U);
    EXPECT_EQ(Bytes(frame), bytes) << "held over the replug";
    EXPECT_EQ(Counts().delivered, 2U);
    EXPECT_EQ(WQZ_Camera_Release(&next), 0);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
}

TEST_F(Waiting, RecoverSetsTheAcceptedRateAndEachControlOnce)
{
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, {1, 1000})), 0);
    const auto set = [this](const char* name, int64_t value) {
        auto setting = Sized<WQZ_Camera_Setting>();
        setting.name = name;
        setting.value = value;
        return WQZ_Camera_Set_Controls(camera, &setting, 1);
    };
    EXPECT_EQ(set("brightness", 5), 0);
    EXPECT_EQ(set("auto_exposure", 1), 0);
    EXPECT_EQ(set("exposure_time_absolute", 77), 0);
    EXPECT_EQ(set("brightness", 6), 0);
    EXPECT_EQ(set("auto_exposure", 3), 0);
    Unplug(Node);
    Plug_In_Again();
    Clear_Log();
    ASSERT_EQ(WQZ_Camera_Recover(camera, 1000), 0) << "an automatic rules the exposure now: " << Explanation(camera);
    EXPECT_EQ(Requests(VIDIOC_S_EXT_CTRLS), 3);
    for (const Log_Entry& entry : Log()) {
        if (entry.request == VIDIOC_S_PARM) {
            EXPECT_EQ(entry.As<v4l2_streamparm>().parm.capture.timeperframe.denominator, 30U);
        }
    }
    EXPECT_EQ(Requests(VIDIOC_S_PARM), 1);
}

TEST_F(Waiting, RecoverPressesNoButtonsAndFailsWhenAControlDoes)
{
    uint32_t type = V4L2_CTRL_TYPE_BUTTON;
    const auto retype = [&](void* argument) {
        auto& query = *static_cast<v4l2_query_ext_ctrl*>(argument);
        query.type = query.id == V4L2_CID_BRIGHTNESS ? type : query.type;
    };
    Alter(Node, VIDIOC_QUERY_EXT_CTRL, retype, Always);
    auto setting = Sized<WQZ_Camera_Setting>();
    setting.name = "brightness";
    ASSERT_EQ(WQZ_Camera_Set_Controls(camera, &setting, 1), 0) << Explanation(camera);
    Unplug(Node);
    Plug_In_Again();
    Clear_Log();
    ASSERT_EQ(WQZ_Camera_Recover(camera, 1000), 0) << Explanation(camera);
    EXPECT_EQ(Requests(VIDIOC_S_EXT_CTRLS), 0);
    setting.name = "contrast";
    ASSERT_EQ(WQZ_Camera_Set_Controls(camera, &setting, 1), 0) << Explanation(camera);
    Unplug(Node);
    Plug_In_Again();
    Fail(Node, VIDIOC_S_EXT_CTRLS, {EIO, -1, Always});
    EXPECT_EQ(WQZ_Camera_Recover(camera, 100), -EIO);
}

TEST_F(Waiting, RecoverIsCancelledAndWaitsForAStartThatWorks)
{
    Unplug(Node);
    EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
    EXPECT_EQ(WQZ_Camera_Recover(camera, -1), -ECANCELED);
    std::thread cancel = Later([this] { WQZ_Camera_Cancel(camera); });
    EXPECT_EQ(WQZ_Camera_Recover(camera, -1), -ECANCELED);
    cancel.join();
    Plug_In_Again();
    Fail(Node, VIDIOC_STREAMON, {EPROTO, -1, 2});
    EXPECT_EQ(WQZ_Camera_Recover(camera, 2000), 0) << "a camera may fail while it wakes up";
    Unplug(Node);
    Plug_In_Again();
    Fail(Node, VIDIOC_STREAMON, {ENOSPC, -1, Always});
    EXPECT_EQ(WQZ_Camera_Recover(camera, 150), -ENOSPC) << "the reason when it does not get over it";
}

TEST_F(Waiting, AnotherCameraAtTheSameNodeIsNotTakenForTheOneThatLeft)
{
    Unplug(Node);
    Camera_Description other = Usb_Camera(3);
    other.capture_node = Node;
    Add_Camera(other);
    EXPECT_EQ(WQZ_Camera_Recover(camera, 150), -ETIMEDOUT);
}

TEST_F(Waiting, RecoverAfterAStopDoesNotStart)
{
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
    EXPECT_EQ(WQZ_Camera_Recover(camera, 1000), 0);
    EXPECT_EQ(Read(frame, 0), -EINVAL);
}

// The descriptor ------------------------------------------------------------------------------------------------------

TEST_F(Waiting, TheDescriptorTellsWhenAReadIsDue)
{
    EXPECT_FALSE(Is_Readable());
    Deliver_Frames(Node, 1);
    EXPECT_TRUE(Is_Readable(1000));
    ASSERT_EQ(Read(frame, 0), 0);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_FALSE(Is_Readable());
    EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
    EXPECT_TRUE(Is_Readable());
    EXPECT_EQ(Read(frame, 0), -ECANCELED);
    EXPECT_FALSE(Is_Readable());
    EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
    (void)Read(frame, 0);
    Start_Mjpeg();
    EXPECT_EQ(Read(frame, 0), -ETIMEDOUT);
    EXPECT_FALSE(Is_Readable());
    Unplug(Node);
    EXPECT_TRUE(Is_Readable(1000));
    EXPECT_EQ(Read(frame, 0), -ENODEV);
    EXPECT_TRUE(Is_Readable()) << "until it is dealt with";
}

}  // namespace
