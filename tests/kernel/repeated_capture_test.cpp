// A second capture in one process, after the first was cleared, closed and deleted or not. Each case runs in a child
// process, because a capture that the driver refuses may never return.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <thread>

#include "kernel_test_support.h"

namespace {

using namespace std::chrono_literals;

constexpr size_t Wanted = 10;

struct Put_Away {
    bool clear;       // WQZ_USBCam_Clear_Frame_Buff after the first capture
    bool close;       // UNINIT after it and INIT before the second
    bool new_handle;  // DELETE and CREATE in between
};

// The outcome of the second capture.
struct Outcome {
    size_t frames = 0;
    size_t right = 0;          // of the size that was asked for
    size_t different = 0;      // pictures; neither camera repeats one within so few frames
    bool returned = false;     // after the stop
    int32_t times_listed = 0;  // how often each mode was in the list before it

    bool Good() const { return right == Wanted && different == Wanted && returned; }
    bool Stuck() const { return frames == 0 && !returned; }
};

class Two_Captures {
public:
    explicit Two_Captures(const std::string& driver) : C_Camera(driver) { Open_New(); }

    bool First(const Pix_Format& mode)
    {
        std::thread loop([&] { WQZ_USBCam_Video_DEAL_WITH(pHandle, mode); });
        const size_t frames = Take().size();
        loop.join();
        return frames == Wanted;
    }

    void Between(const Put_Away& how)
    {
        const int32_t modes = WQZ_USBCam_Get_Format_List_Size(pHandle);
        if (how.clear) {
            WQZ_USBCam_Clear_Frame_Buff(pHandle);
        }
        if (how.close) {
            WQZ_USBCam_Video_DEAL_WITH_UNINIT(pHandle);
        }
        if (how.new_handle) {
            WQZ_USBCam_DELETE_DEVICE_POINT(pHandle);
            Open_New();
        } else if (how.close) {
            WQZ_USBCam_Video_DEAL_WITH_INIT(pHandle, 0);
        }
        WQZ_USBCam_EVENT_LoopMode(pHandle, -1);
        S_Outcome.times_listed = WQZ_USBCam_Get_Format_List_Size(pHandle) / modes;
    }

    Outcome Second(const Pix_Format& mode)
    {
        std::packaged_task<int32_t()> loop([=, this] { return WQZ_USBCam_Video_DEAL_WITH(pHandle, mode); });
        const auto result = loop.get_future();
        std::thread(std::move(loop)).detach();
        const auto frames = Take();
        S_Outcome.frames = frames.size();
        S_Outcome.different = std::set(frames.begin(), frames.end()).size();
        for (const auto& bytes : frames) {
            S_Outcome.right += bytes.size() == size_t{mode.u_Width} * mode.u_Height * 3 + 54;
        }
        S_Outcome.returned = result.wait_for(2s) == std::future_status::ready;
        return S_Outcome;
    }

private:
    void Open_New()
    {
        pHandle = WQZ_USBCam_CREATE_DEVICE_POINT(C_Camera.S_Record);
        WQZ_USBCam_Video_DEAL_WITH_INIT(pHandle, 0);
    }

    // Takes frames for three seconds at most, then asks the loop to stop.
    std::vector<std::string> Take()
    {
        std::vector<std::string> frames;
        const auto end = std::chrono::steady_clock::now() + 3s;
        while (frames.size() < Wanted && std::chrono::steady_clock::now() < end) {
            if (Frame_Buffer_Data* const frame = WQZ_USBCam_GET_FRAME_BUFF(pHandle, false)) {
                frames.emplace_back(static_cast<const char*>(frame->pMem), frame->buffer.bytesused);
                WQZ_USBCam_SAVE_FRAME_RES(pHandle, frame);
            } else {
                std::this_thread::sleep_for(2ms);
            }
        }
        WQZ_USBCam_EVENT_LoopMode(pHandle, 0);
        return frames;
    }

    Discovered_Camera C_Camera;
    void* pHandle = nullptr;
    Outcome S_Outcome;
};

/// Captures twice in a child process, whose messages go to the results.
class Two_Captures_Apart {
public:
    Two_Captures_Apart(const std::string& driver, const Put_Away& how, const Pix_Format& first,
                       const Pix_Format& second)
    {
        int channel[2];
        if (pipe(channel) != 0) {
            throw std::runtime_error("no pipe");
        }
        fflush(nullptr);
        Child = fork();
        if (Child == 0) {
            Run(channel[1], driver, how, first, second);
        }
        close(channel[1]);
        Channel = channel[0];
    }

    /// Waits for the child; once.
    Outcome Result()
    {
        Outcome outcome;
        EXPECT_EQ(read(Channel, &outcome, sizeof outcome), ssize_t{sizeof outcome}) << "the child failed";
        close(Channel);
        EXPECT_EQ(waitpid(Child, nullptr, 0), Child);
        return outcome;
    }

private:
    [[noreturn]] static void Run(int channel, const std::string& driver, const Put_Away& how, const Pix_Format& first,
                                 const Pix_Format& second)
    {
        const std::string log = std::string(Results_Directory) + "/repeated-capture-messages.txt";
        if (freopen(log.c_str(), "a", stderr) == nullptr || freopen("/dev/null", "w", stdout) == nullptr) {
            _exit(3);
        }
        Two_Captures captures(driver);
        if (!captures.First(first)) {
            _exit(2);
        }
        captures.Between(how);
        const Outcome outcome = captures.Second(second);
        fflush(nullptr);
        _exit(write(channel, &outcome, sizeof outcome) == sizeof outcome ? 0 : 4);  // the loop may be stuck
    }

    pid_t Child;
    int Channel;
};

std::string Text_Of(const Put_Away& how, const Outcome& outcome)
{
    char text[256];
    snprintf(text, sizeof text,
             "%s, %s, %s: %zu of %zu frames, %zu of the size asked for, %zu different; the loop %s; modes listed %d x",
             how.clear ? "cleared" : "not cleared", how.close ? "UNINIT and INIT" : "left open",
             how.new_handle ? "new handle" : "same handle", outcome.frames, Wanted, outcome.right, outcome.different,
             outcome.returned ? "returned" : "did not return", outcome.times_listed);
    return text;
}

class Repeated_Capture : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        Plug_In_Usb_Camera();
        Make_Vivid_Repeatable();
    }

    // Captures twice, in the same mode and in two, with both cameras at a time.
    static void For_Each(const Put_Away& how, void (*check)(const Outcome&, bool other_mode))
    {
        for (const bool other : {false, true}) {
            Two_Captures_Apart usb("uvcvideo", how, Yuyv(160, 120, 30),
                                   other ? Yuyv(320, 240, 15) : Yuyv(160, 120, 30));
            Two_Captures_Apart vivid("vivid", how, Yuyv(320, 180, 25), other ? Yuyv(640, 360, 10) : Yuyv(320, 180, 25));
            for (Two_Captures_Apart* const captures : {&usb, &vivid}) {
                const Outcome outcome = captures->Result();
                const std::string line = std::string(captures == &usb ? "uvcvideo" : "vivid") +
                                         (other ? ", other mode, " : ", same mode, ") + Text_Of(how, outcome);
                puts(line.c_str());
                SCOPED_TRACE(line);
                check(outcome, other);
            }
        }
    }
};

TEST_F(Repeated_Capture, WorksAfterClearingAndClosing)
{
    For_Each({true, true, true}, [](const Outcome& outcome, bool) {
        EXPECT_TRUE(outcome.Good());
        EXPECT_EQ(outcome.times_listed, 1);
    });
    // The same handle lists every mode once more.
    For_Each({true, true, false}, [](const Outcome& outcome, bool) {
        EXPECT_TRUE(outcome.Good());
        EXPECT_EQ(outcome.times_listed, 2);
    });
}

TEST_F(Repeated_Capture, GetsNoFramesWithoutClearing)
{
    For_Each({false, true, true}, [](const Outcome& outcome, bool) { EXPECT_TRUE(outcome.Stuck()); });
    For_Each({false, true, false}, [](const Outcome& outcome, bool) { EXPECT_TRUE(outcome.Stuck()); });
}

TEST_F(Repeated_Capture, KeepsTheFirstModeWithoutClosing)
{
    For_Each({true, false, false}, [](const Outcome& outcome, bool other_mode) {
        EXPECT_EQ(outcome.Good(), !other_mode);
        EXPECT_EQ(outcome.frames, Wanted);
    });
    For_Each({false, false, false}, [](const Outcome& outcome, bool other_mode) {
        EXPECT_EQ(outcome.right, other_mode ? 0 : Wanted);
        EXPECT_LT(outcome.different, Wanted);
    });
}

}  // namespace
