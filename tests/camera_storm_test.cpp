// The camera interface on many threads: stops, unplugs and closes at random moments beside four readers.
#include <gtest/gtest.h>

#include <deque>
#include <mutex>

#include "support/open_camera.h"
#include "support/storm.h"
#include "support/waiting.h"

namespace {

using namespace virtual_camera;
using namespace std::chrono_literals;
using std::chrono::milliseconds;

constexpr int Readers = 4;

/// Frames on their way from the threads that read to those that release, in any order.
class Held_Frames {
public:
    void Put(const WQZ_Camera_Frame& frame)
    {
        const std::lock_guard lock(mutex);
        frames.push_back({frame, {frame.data, frame.data + frame.length}});
    }

    /// Checks that the bytes are still those that came, and gives the frame back.
    /// @return false when there is no frame
    bool Release_One(Random& random)
    {
        Held held;
        {
            const std::lock_guard lock(mutex);
            if (frames.empty()) {
                return false;
            }
            std::swap(frames[random.Below(static_cast<uint32_t>(frames.size()))], frames.back());
            held = std::move(frames.back());
            frames.pop_back();
        }
        EXPECT_TRUE(std::equal(held.bytes.begin(), held.bytes.end(), held.frame.data));
        EXPECT_EQ(WQZ_Camera_Release(&held.frame), 0);
        return true;
    }

private:
    struct Held {
        WQZ_Camera_Frame frame{};
        std::vector<uint8_t> bytes;  // as they came
    };

    std::mutex mutex;
    std::deque<Held> frames;
};

class Camera_Storm : public Open_Camera {
protected:
    ~Camera_Storm() override
    {
        (void)WQZ_Camera_Stop(camera);  // so that no thread waits for a frame
        crew.Join();
        Random random(0);
        while (held.Release_One(random)) {
        }
    }

    /// Reads until there is no capture, which the reader notes, and then waits for the next capture.
    void Read_Until_Stopped(int reader, Random& random)
    {
        const uint32_t number = capture;
        if (left[reader] == number) {
            random.Sleep_Up_To(300us);
            return;
        }
        auto frame = Sized<WQZ_Camera_Frame>();
        const int32_t timeout = random.Below(3) == 0 ? 1 : -1;
        const int32_t result =
            WQZ_Camera_Read(camera, &frame, timeout, random.Below(4) == 0 ? WQZ_CAMERA_READ_NEWEST : 0);
        EXPECT_TRUE(Is_Among(result, {0, -EINVAL, -ETIMEDOUT, -ECANCELED, -ENODEV, -ENOBUFS})) << result;
        if (result == -EINVAL) {
            left[reader] = number;
        } else if (result == 0) {
            tally.Add(frame);
            EXPECT_TRUE(!accounts_for_frames || taken % 8 != 0 || Holds_Its_Bytes(frame));
            ++taken;
            held.Put(frame);
        } else {
            random.Sleep_Up_To(300us);
        }
    }

    /// Everything that asks, in no order.
    void Ask(Random& random)
    {
        auto setting = Sized<WQZ_Camera_Setting>();
        setting.name = "brightness";
        setting.value = 3;
        auto info = Sized<WQZ_Camera_Info>();
        switch (random.Below(6)) {
            case 0:
                EXPECT_TRUE(Is_Among(WQZ_Camera_Set_Controls(camera, &setting, 1), {0, -ENODEV}));
                break;
            case 1:
                EXPECT_TRUE(Is_Among(WQZ_Camera_Get_Control(camera, &setting), {0, -ENODEV}));
                break;
            case 2:
                EXPECT_NE(WQZ_Camera_Controls(camera, nullptr, 0), 0);
                break;
            case 3:
                EXPECT_EQ(WQZ_Camera_Describe(camera, &info), 0);
                break;
            case 4:
                (void)Counts();
                break;
            default:
                (void)Explanation(camera);
                break;
        }
        random.Sleep_Up_To(500us);
    }

    static void Deliver_A_Frame()
    {
        try {
            Deliver_Frames(Node, 1);
        } catch (const std::invalid_argument&) {  // the camera is unplugged
        }
    }

    void Man_All_Posts(Rounds& rounds)
    {
        for (int i = 0; i < Readers; ++i) {
            crew.Repeat([this, i, random = rounds.New_Random()]() mutable { Read_Until_Stopped(i, random); });
        }
        for (int i = 0; i < 2; ++i) {
            crew.Repeat([this, random = rounds.New_Random()]() mutable {
                random.Sleep_Up_To(400us);
                (void)held.Release_One(random);
            });
        }
        crew.Repeat([this, random = rounds.New_Random()]() mutable { Ask(random); });
        crew.Repeat([random = rounds.New_Random()]() mutable {
            random.Sleep_Up_To(1500us);
            Deliver_A_Frame();
        });
        crew.Repeat([this, random = rounds.New_Random()]() mutable {
            random.Sleep_Up_To(6ms);
            if (capturing) {
                EXPECT_EQ(WQZ_Camera_Cancel(camera), 0);
            }
        });
    }

    void Begin_Capture(uint32_t round)
    {
        Clear_Log();  // which would grow in a long run
        ASSERT_EQ(Start(Request_For(round % 2 == 0 ? V4L2_PIX_FMT_YUYV : V4L2_PIX_FMT_MJPEG, 320, 240)), 0)
            << Explanation(camera);
        capturing = true;
        ++capture;
    }

    bool All_Have_Left()
    {
        return std::all_of(std::begin(left), std::end(left), [&](uint32_t number) { return number == capture; });
    }

    /// Brings the camera back, however often a cancel ends that.
    void Recover()
    {
        int32_t result = -ECANCELED;
        while (result == -ECANCELED) {
            result = WQZ_Camera_Recover(camera, -1);
        }
        EXPECT_EQ(result, 0) << Explanation(camera);
    }

    // The two take the handle by value, because Close clears the member.
    void Read_One(WQZ_Camera* handle)
    {
        auto frame = Sized<WQZ_Camera_Frame>();
        ++begun;
        const int32_t result = WQZ_Camera_Read(handle, &frame, -1, 0);
        EXPECT_TRUE(Is_Among(result, {0, -ECANCELED, -ENOBUFS})) << result;
        if (result == 0) {
            held.Put(frame);
            ++taken;
        }
    }

    static void Begin_Again(WQZ_Camera* handle, bool starts)
    {
        const auto request = Request_For(V4L2_PIX_FMT_MJPEG, 320, 240);
        const int32_t result = starts ? WQZ_Camera_Start(handle, &request, nullptr) : WQZ_Camera_Recover(handle, -1);
        EXPECT_TRUE(Is_Among(result, {0, -ECANCELED})) << result;
    }

    /// Expects that no capture is running and that every reader has noticed it.
    void Expect_The_End()
    {
        const Stopwatch watch;
        EXPECT_TRUE(Eventually([&] { return All_Have_Left(); })) << "a thread still reads";
        EXPECT_LT(watch.Elapsed(), Slack);
        if (accounts_for_frames) {
            tally.Expect_Balance(Counts());
        }
    }

    Held_Frames held;
    std::atomic<uint32_t> capture{0};  // number of the last one that began
    std::atomic<uint32_t> left[Readers] = {};
    std::atomic<int> begun{0};  // reads of threads that read once
    std::atomic<bool> capturing{false};
    std::atomic<uint32_t> taken{0};
    Crew crew;
};

TEST_F(Camera_Storm, AStopAtAnyMomentEndsEveryRead)
{
    Rounds rounds(40);
    Random random = rounds.New_Random();
    Man_All_Posts(rounds);
    while (rounds.Next() && !HasFailure()) {
        Crew early;
        if (rounds.Begun() % 4 == 0) {
            early.Once([this, draws = rounds.New_Random()]() mutable {
                draws.Sleep_Up_To(2ms);
                EXPECT_EQ(WQZ_Camera_Stop(camera), 0) << "beside Start";
            });
        }
        Begin_Capture(rounds.Begun());
        random.Sleep_Up_To(8ms);
        early.Join();
        const Stopwatch watch;
        capturing = false;
        EXPECT_EQ(WQZ_Camera_Stop(camera), 0) << Explanation(camera);
        Expect_The_End();
        rounds.Ended_In(watch.Elapsed());
    }
    EXPECT_GT(taken, rounds.Begun());
}

// The camera is unplugged, plugged in again and recovered meanwhile, in any order.
TEST_F(Camera_Storm, AfterAStopNoRecoveryBeginsACaptureAgain)
{
    accounts_for_frames = false;  // a frame's number does not tell whether it came before the unplug
    Rounds rounds(20);
    Random random = rounds.New_Random();
    Man_All_Posts(rounds);
    while (rounds.Next() && !HasFailure()) {
        Begin_Capture(rounds.Begun());
        Crew changes;
        changes.Once([draws = rounds.New_Random()]() mutable {
            draws.Sleep_Up_To(4ms);
            Unplug(Node);
            draws.Sleep_Up_To(4ms);
            Replug(Node);
            Hold_Frames(Node);
        });
        changes.Once([this, draws = rounds.New_Random()]() mutable {
            draws.Sleep_Up_To(4ms);
            Recover();
        });
        random.Sleep_Up_To(random.Below(2) == 0 ? 8ms : 150ms);
        const Stopwatch watch;
        EXPECT_EQ(WQZ_Camera_Stop(camera), 0) << Explanation(camera);
        EXPECT_LT(watch.Elapsed(), Slack);
        rounds.Ended_In(watch.Elapsed());
        changes.Join();
        capturing = false;
        Expect_The_End();
        Recover();  // in case that the unplug came last
        auto frame = Sized<WQZ_Camera_Frame>();
        EXPECT_EQ(WQZ_Camera_Read(camera, &frame, 0, 0), -EINVAL);
    }
    EXPECT_GT(taken, rounds.Begun());
}

// While four threads wait for frames that come just now, and others start or recover the camera and release frames.
TEST_F(Camera_Storm, ACloseAtAnyMomentEndsEveryCall)
{
    accounts_for_frames = false;  // frames are taken until the handle is gone
    Rounds rounds(18);
    Random random = rounds.New_Random();
    while (rounds.Next() && !HasFailure()) {
        Resume_Frames(Node);  // forgets what was not delivered
        Hold_Frames(Node);
        Start_Yuyv();
        Clear_Log();
        Crew calls;
        begun = 0;
        for (int i = 0; i < Readers; ++i) {
            calls.Once([this, handle = camera] { Read_One(handle); });
        }
        const Stopwatch beginning;
        ASSERT_TRUE(Eventually([&] { return begun == Readers && Requests(VIDIOC_DQBUF) >= Readers; }));
        // No call may begin after Close. A read looks again after 90 ms, and then the log does not tell that all began.
        std::this_thread::sleep_for(beginning.Elapsed() < 80ms ? 20ms : 500ms);
        if (rounds.Begun() % 3 != 0) {
            calls.Once([handle = camera, starts = rounds.Begun() % 3 == 1] { Begin_Again(handle, starts); });
            ASSERT_TRUE(Eventually([] { return Requests(VIDIOC_STREAMOFF) > 0; })) << "it ends the capture first";
        }
        calls.Once([this, draws = rounds.New_Random()]() mutable {
            for (int i = 0; i < 8; ++i) {
                draws.Sleep_Up_To(1ms);
                Deliver_Frames(Node, 1);
                (void)held.Release_One(draws);
            }
        });
        random.Sleep_Up_To(5ms);
        const Stopwatch watch;
        EXPECT_EQ(Close(), 0) << Explanation(nullptr);
        EXPECT_LT(watch.Elapsed(), Slack);
        rounds.Ended_In(watch.Elapsed());
        calls.Join();
        while (held.Release_One(random)) {
        }
        ASSERT_EQ(WQZ_Camera_Open(&camera, Node), 0) << Explanation(nullptr);
    }
    EXPECT_GT(taken, 0U);
}

}  // namespace
