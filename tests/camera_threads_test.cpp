// The camera interface on several threads: what a close, a recovery and a cancel promise those that wait.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "support/open_camera.h"
#include "support/storm.h"
#include "support/waiting.h"

namespace {

using namespace virtual_camera;
using std::chrono::milliseconds;

class Threads : public Open_Camera, protected Crew {};

// The calls fail while Close waits: noting why they failed must not reach into a camera that is gone.
TEST_F(Threads, CloseWaitsForCallsUntilTheyHaveNotedTheirFailure)
{
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> inside{0};
        Alter(
            Node, VIDIOC_QUERY_EXT_CTRL,
            [&](void*) {
                ++inside;
                std::this_thread::sleep_for(milliseconds(2));
            },
            1);
        Fail(Node, VIDIOC_G_EXT_CTRLS, {EIO});
        Start_Yuyv();
        Clear_Log();
        const auto handle = camera;
        Once([&] {
            auto setting = Sized<WQZ_Camera_Setting>();
            setting.name = "brightness";
            EXPECT_EQ(WQZ_Camera_Get_Control(handle, &setting), -EIO);
        });
        Once([&] {
            auto frame = Sized<WQZ_Camera_Frame>();
            EXPECT_EQ(WQZ_Camera_Read(handle, &frame, -1, 0), -ECANCELED);
        });
        ASSERT_TRUE(Eventually([&] { return inside > 0 && Requests(VIDIOC_DQBUF) > 0; }));
        EXPECT_EQ(Close(), 0);
        Join();
        ASSERT_EQ(WQZ_Camera_Open(&camera, Node), 0);
    }
}

TEST_F(Threads, CloseEndsARecoverThatWaits)
{
    for (int round = 0; round < 10; ++round) {
        Start_Yuyv();
        WQZ_Camera_Frame frame = Next_Frame();
        Unplug(Node);
        Clear_Log();
        Once([&, handle = camera] { EXPECT_EQ(WQZ_Camera_Recover(handle, -1), -ECANCELED); });
        ASSERT_TRUE(Eventually([] { return Requests(VIDIOC_STREAMOFF) > 0; })) << "it leaves the camera first";
        const Stopwatch watch;
        EXPECT_EQ(Close(), 0) << Explanation(nullptr);
        EXPECT_LT(watch.Elapsed(), milliseconds(500));
        Join();
        EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
        Replug(Node);
        Hold_Frames(Node);
        ASSERT_EQ(WQZ_Camera_Open(&camera, Node), 0) << Explanation(nullptr);
    }
}

TEST_F(Threads, AStopInTheMidstOfAStartEndsTheCapture)
{
    Alter(Node, VIDIOC_STREAMON, [&](void*) {
        Once([&] { EXPECT_EQ(WQZ_Camera_Stop(camera), 0); });
        std::this_thread::sleep_for(milliseconds(30));
    });
    Start_Yuyv();
    Join();
    WQZ_Camera_Frame frame{};
    EXPECT_EQ(Read(frame, 0), -EINVAL);
}

TEST_F(Threads, FramesOfBeforeAReplugAreReleasedWhileTheNextOnesAreRead)
{
    Start_Yuyv();
    std::vector<WQZ_Camera_Frame> old;
    for (int i = 0; i < 3; ++i) {
        old.push_back(Next_Frame());
    }
    Unplug(Node);
    Replug(Node);
    Once([&] {
        for (WQZ_Camera_Frame& frame : old) {
            std::this_thread::sleep_for(milliseconds(3));
            EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
        }
    });
    ASSERT_EQ(WQZ_Camera_Recover(camera, 2000), 0) << Explanation(camera);
    std::vector<WQZ_Camera_Frame> next(3);
    for (WQZ_Camera_Frame& frame : next) {
        EXPECT_EQ(Read(frame), 0) << Explanation(camera);
    }
    Join();
    for (WQZ_Camera_Frame& frame : next) {
        EXPECT_TRUE(Holds_Its_Bytes(frame));
        EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    }
    EXPECT_EQ(Counts().delivered, 6U);
}

// Each Cancel ends one wait, however many threads wait and however it falls between their steps.
TEST_F(Threads, ACancelEndsExactlyOneOfSeveralWaits)
{
    Start_Yuyv();
    std::atomic<int> cancelled{0};
    for (int i = 0; i < 3; ++i) {
        Repeat([&] {
            auto frame = Sized<WQZ_Camera_Frame>();
            const int32_t result = WQZ_Camera_Read(camera, &frame, 3, 0);
            EXPECT_TRUE(Is_Among(result, {-ECANCELED, -ETIMEDOUT})) << result;
            cancelled += result == -ECANCELED ? 1 : 0;
        });
    }
    for (int sent = 1; sent <= 200; ++sent) {
        EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
        ASSERT_TRUE(Eventually([&] { return cancelled == sent; })) << cancelled << " of " << sent;
    }
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(cancelled, 200);
}

// A read that no wake-up reaches ends only when it looks for the camera again, 90 milliseconds later at most. A cancel
// that comes together with a stop takes its wake-up.
TEST_F(Threads, EveryReadIsWokenByAStopAStopWithACancelAndAClose)
{
    constexpr int Rounds_Each = 24;
    enum End { By_Stop, By_Stop_And_Cancel, By_Close, Ends };
    const std::function<void()> ends[Ends] = {
        [&] { EXPECT_EQ(WQZ_Camera_Stop(camera), 0); },
        [&] {
            EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
            EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
        },
        [&] { EXPECT_EQ(Close(), 0); },
    };
    int late[Ends] = {};
    for (const End end : {By_Stop, By_Stop_And_Cancel, By_Close}) {
        for (int round = 0; round < Rounds_Each; ++round) {
            Start_Yuyv();
            std::atomic<int> begun{0};
            for (int i = 0; i < 3; ++i) {
                Once([&, handle = camera] {
                    auto frame = Sized<WQZ_Camera_Frame>();
                    ++begun;
                    EXPECT_EQ(WQZ_Camera_Read(handle, &frame, -1, 0), -ECANCELED);
                });
            }
            ASSERT_TRUE(Eventually([&] { return begun == 3; }));
            std::this_thread::sleep_for(milliseconds(20));
            const Stopwatch watch;
            ends[end]();
            Join();
            late[end] += watch.Elapsed() > milliseconds(35) ? 1 : 0;
            if (camera == nullptr) {
                ASSERT_EQ(WQZ_Camera_Open(&camera, Node), 0) << Explanation(nullptr);
            }
            auto frame = Sized<WQZ_Camera_Frame>();
            (void)WQZ_Camera_Read(camera, &frame, 0, 0);  // takes the cancel if no other read has
        }
        EXPECT_LE(late[end], Rounds_Each / 3) << "end " << end;
    }
    // The cancel takes the wake-up in some of the rounds only. A busy machine makes reads of all ends late.
    EXPECT_LE(late[By_Stop_And_Cancel], late[By_Stop] + late[By_Close] + 3);
}

}  // namespace
