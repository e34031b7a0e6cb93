// The camera interface: every call at once on many threads, and a close in the midst of them.
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "support/open_camera.h"
#include "support/waiting.h"

namespace {

using namespace virtual_camera;
using std::chrono::milliseconds;

class Threads : public Open_Camera {
protected:
    ~Threads() override { Join(); }

    void Run(const std::function<void()>& body) { threads.emplace_back(body); }

    void Repeat(const std::function<void()>& body)
    {
        threads.emplace_back([this, body] {
            while (!stop) {
                body();
            }
        });
    }

    void Join()
    {
        stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        threads.clear();
        stop = false;
    }

    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
};

/// Frames on their way from the threads that read to those that release.
class Held_Frames {
public:
    void Put(const WQZ_Camera_Frame& frame)
    {
        const std::lock_guard lock(mutex);
        frames.push_back({frame, {frame.data, frame.data + frame.length}});
    }

    /// Checks that the bytes are still those that came, and gives the frame back.
    void Release_One()
    {
        Held held;
        {
            const std::lock_guard lock(mutex);
            if (frames.empty()) {
                return;
            }
            held = std::move(frames.front());
            frames.pop_front();
        }
        EXPECT_TRUE(std::equal(held.bytes.begin(), held.bytes.end(), held.frame.data));
        EXPECT_EQ(WQZ_Camera_Release(&held.frame), 0);
    }

    bool Is_Empty()
    {
        const std::lock_guard lock(mutex);
        return frames.empty();
    }

private:
    struct Held {
        WQZ_Camera_Frame frame{};
        std::vector<uint8_t> bytes;  // as they came
    };

    std::mutex mutex;
    std::deque<Held> frames;
};

bool Is_Among(int32_t result, std::initializer_list<int32_t> allowed)
{
    return std::find(allowed.begin(), allowed.end(), result) != allowed.end();
}

// Each camera is stopped, started, unplugged, recovered and at last closed while frames are read, held and released.
TEST_F(Threads, EveryCallRunsBesideTheOthers)
{
    accounts_for_frames = false;  // captures begin without Start
    constexpr milliseconds Round{500};
    Held_Frames held;
    std::atomic<int> taken{0};
    std::atomic<int> recovered{0};
    const auto read = [&] {
        auto frame = Sized<WQZ_Camera_Frame>();
        const uint32_t flags = taken % 3 == 0 ? uint32_t{WQZ_CAMERA_READ_NEWEST} : 0U;
        const int32_t result = WQZ_Camera_Read(camera, &frame, 20, flags);
        EXPECT_TRUE(Is_Among(result, {0, -ETIMEDOUT, -ECANCELED, -ENODEV, -ENOBUFS, -EINVAL})) << result;
        if (result == 0) {
            held.Put(frame);
            ++taken;
        }
    };
    const auto change = [&, step = 0]() mutable {
        ++step;
        const auto request = Request_For(step % 2 == 0 ? V4L2_PIX_FMT_YUYV : V4L2_PIX_FMT_MJPEG, 320, 240);
        EXPECT_TRUE(Is_Among(WQZ_Camera_Start(camera, &request, nullptr), {0, -ENODEV})) << Explanation(camera);
        Hold_Frames(Node);
        Deliver_Frames(Node, 50);
        std::this_thread::sleep_for(milliseconds(20));
        if (step % 4 == 0) {
            Unplug(Node);
            std::this_thread::sleep_for(milliseconds(5));
            Replug(Node);
        }
        if (step % 2 == 0) {
            int32_t result = -ECANCELED;
            while (result == -ECANCELED) {
                result = WQZ_Camera_Recover(camera, 1000);
            }
            EXPECT_EQ(result, 0) << Explanation(camera);
            ++recovered;
            Hold_Frames(Node);
            Deliver_Frames(Node, 50);
            std::this_thread::sleep_for(milliseconds(10));
        }
    };
    const auto control = [&] {
        auto setting = Sized<WQZ_Camera_Setting>();
        setting.name = "brightness";
        setting.value = 3;
        EXPECT_TRUE(Is_Among(WQZ_Camera_Set_Controls(camera, &setting, 1), {0, -ENODEV})) << Explanation(camera);
        EXPECT_TRUE(Is_Among(WQZ_Camera_Get_Control(camera, &setting), {0, -ENODEV})) << Explanation(camera);
        (void)Counts();
        (void)WQZ_Camera_Modes(camera, nullptr, 0);
    };
    for (int round = 0; round < 4; ++round) {
        Repeat(read);
        Repeat(read);
        Repeat([&] { held.Release_One(); });
        Repeat(change);
        Repeat(control);
        Repeat([&] {
            std::this_thread::sleep_for(milliseconds(9));
            EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
        });
        Repeat([&] {
            std::this_thread::sleep_for(milliseconds(31));
            EXPECT_EQ(WQZ_Camera_Stop(camera), 0);
        });
        std::this_thread::sleep_for(Round);
        EXPECT_TRUE(Eventually([&] { return taken >= 5 * (round + 1) && recovered >= round + 1; }));
        Join();
        EXPECT_EQ(Close(), 0) << Explanation(nullptr);
        while (!held.Is_Empty()) {
            held.Release_One();
        }
        ASSERT_EQ(WQZ_Camera_Open(&camera, Node), 0) << Explanation(nullptr);
    }
}

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
        Run([&] {
            auto setting = Sized<WQZ_Camera_Setting>();
            setting.name = "brightness";
            EXPECT_EQ(WQZ_Camera_Get_Control(handle, &setting), -EIO);
        });
        Run([&] {
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
        Run([&, handle = camera] { EXPECT_EQ(WQZ_Camera_Recover(handle, -1), -ECANCELED); });
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

TEST_F(Threads, FramesOfBeforeAReplugAreReleasedWhileTheNextOnesAreRead)
{
    Start_Yuyv();
    std::vector<WQZ_Camera_Frame> old;
    for (int i = 0; i < 3; ++i) {
        old.push_back(Next_Frame());
    }
    Unplug(Node);
    Replug(Node);
    Run([&] {
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

}  // namespace
