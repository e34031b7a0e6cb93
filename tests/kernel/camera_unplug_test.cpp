// The camera interface when the plug is pulled on the kernel's own drivers: no call hangs, held frames stay readable,
// and the camera comes back as it was.

#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <thread>

#include "camera_support.h"
#include "test_picture.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr char Usb[] = "1209:0001";
// From the kernel's taking the node away until a call says so.
constexpr auto Notice_Limit = 200ms;

class Camera_Unplug : public testing::Test {
protected:
    void SetUp() override { Plug_In_Usb_Camera(); }
    static void TearDownTestSuite() { Plug_In_Usb_Camera(); }
};

WQZ_Camera_Request Small_Mode()
{
    return Exactly(V4L2_PIX_FMT_MJPEG, 160, 120, 30);
}

/// Pulls the plug. @return when the kernel had taken the node away
Clock::time_point Unplug(const std::string& node)
{
    Tell_Usb_Camera("unplug");
    for (int i = 0; i < 10000 && access(node.c_str(), F_OK) == 0; ++i) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_NE(access(node.c_str(), F_OK), 0) << "the camera did not go away";
    return Clock::now();
}

/// Reads until a call fails. @return its result
int Read_To_The_End(Camera& camera, int timeout_ms)
{
    auto frame = Sized<WQZ_Camera_Frame>();
    int result = 0;
    for (int i = 0; i < 1000 && result == 0; ++i) {
        result = camera.Read(frame, timeout_ms);
        if (result == 0) {
            EXPECT_EQ(WQZ_Camera_Release(&frame), 0) << Explanation();
        }
    }
    return result;
}

void Expect_Unplugged(Camera& camera)
{
    const std::string said = Explanation(camera.Handle());
    EXPECT_NE(said.find("unplugged"), std::string::npos) << said;
}

TEST_F(Camera_Unplug, EveryCallOfACameraThatWasNotStartedSaysSo)
{
    Camera camera(Usb);
    (void)Unplug(camera.Node());
    EXPECT_EQ(camera.Start(Small_Mode()), -ENODEV);
    Expect_Unplugged(camera);
    EXPECT_EQ(camera.Set("brightness", "1"), -ENODEV);
    EXPECT_EQ(WQZ_Camera_Stop(camera.Handle()), 0);
    EXPECT_EQ(camera.Close(), 0) << Explanation();
}

TEST_F(Camera_Unplug, ShowsInTheNextReadAndInTheDescriptor)
{
    Camera camera(Usb);
    ASSERT_EQ(camera.Start(Small_Mode()), 0) << Explanation(camera.Handle());
    ASSERT_EQ(camera.Take(3).size(), 3U);
    Tell_Usb_Camera("pause 60");
    EXPECT_EQ(Read_To_The_End(camera, 500), -ETIMEDOUT);
    auto readable = std::async(std::launch::async, [&camera] {
        pollfd descriptor{WQZ_Camera_Descriptor(camera.Handle()), POLLIN, 0};
        for (;;) {
            if (poll(&descriptor, 1, 20000) != 1) {
                return Clock::time_point::max();
            }
            auto frame = Sized<WQZ_Camera_Frame>();
            const int result = camera.Read(frame, 0);
            if (result == -ENODEV) {
                return Clock::now();
            }
            EXPECT_EQ(result, -ETIMEDOUT);
        }
    });
    const auto gone = Unplug(camera.Node());
    EXPECT_LT(readable.get() - gone, Notice_Limit);
    auto frame = Sized<WQZ_Camera_Frame>();
    EXPECT_EQ(camera.Read(frame, -1), -ENODEV);  // again and again
    Expect_Unplugged(camera);
    EXPECT_EQ(WQZ_Camera_Stop(camera.Handle()), 0);
    EXPECT_EQ(camera.Close(), 0) << Explanation();
}

TEST_F(Camera_Unplug, EndsAReadThatWaits)
{
    Camera camera(Usb);
    ASSERT_EQ(camera.Start(Small_Mode()), 0) << Explanation(camera.Handle());
    ASSERT_EQ(camera.Take(3).size(), 3U);
    Tell_Usb_Camera("pause 60");
    EXPECT_EQ(Read_To_The_End(camera, 500), -ETIMEDOUT);
    int result = 0;
    auto ended = std::async(std::launch::async, [&] {
        result = Read_To_The_End(camera, -1);
        return Clock::now();
    });
    std::this_thread::sleep_for(300ms);
    const auto gone = Unplug(camera.Node());
    const auto noticed = ended.get() - gone;
    EXPECT_EQ(result, -ENODEV);
    EXPECT_LT(noticed, Notice_Limit);
    printf("a waiting read noticed the unplug after %lld ms\n",
           static_cast<long long>(std::chrono::duration_cast<std::chrono::milliseconds>(noticed).count()));
    Expect_Unplugged(camera);
}

TEST_F(Camera_Unplug, EndsReadsOfARunningStreamAndLeavesHeldFramesReadable)
{
    Camera camera(Usb);
    ASSERT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_YUYV, 160, 120, 30)), 0) << Explanation(camera.Handle());
    Loans held = camera.Hold(2);
    ASSERT_EQ(held.size(), 2U);
    int result = 0;
    auto ended = std::async(std::launch::async, [&] {
        result = Read_To_The_End(camera, -1);
        return Clock::now();
    });
    const auto gone = Unplug(camera.Node());
    EXPECT_LT(ended.get() - gone, Notice_Limit);
    EXPECT_EQ(result, -ENODEV);
    const auto expect_readable = [&held] {
        for (const auto& loan : held) {
            EXPECT_TRUE(loan->Bytes() == Test_Picture::Yuyv_Frame(160, 120, loan->frame.sequence));
        }
    };
    expect_readable();
    EXPECT_EQ(held[0]->Release(), 0) << Explanation();
    held.erase(held.begin());
    EXPECT_EQ(camera.Close(), 0) << Explanation();
    expect_readable();

    // The same camera, plugged in again, is a camera like any other while the frame is still held.
    Plug_In_Usb_Camera();
    Camera again(Usb);
    ASSERT_EQ(again.Start(Small_Mode()), 0) << Explanation(again.Handle());
    EXPECT_EQ(again.Take(5).size(), 5U);
    expect_readable();
}

TEST_F(Camera_Unplug, RecoverBringsModeControlsAndFramesBack)
{
    const std::string identity = [] {
        auto info = Sized<WQZ_Camera_Info>();
        (void)WQZ_Camera_Describe(Camera(Usb).Handle(), &info);
        return std::string(info.identity);
    }();
    Camera camera(identity);
    ASSERT_EQ(camera.Set("brightness", "33"), 0) << Explanation(camera.Handle());
    ASSERT_EQ(camera.Set("white_balance_automatic", "off"), 0) << Explanation(camera.Handle());
    ASSERT_EQ(camera.Set("white_balance_temperature", "3000"), 0) << Explanation(camera.Handle());
    ASSERT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_YUYV, 160, 120, 15)), 0) << Explanation(camera.Handle());
    Loans held = camera.Hold(1);
    ASSERT_EQ(held.size(), 1U);
    const int descriptor = WQZ_Camera_Descriptor(camera.Handle());
    (void)Unplug(camera.Node());
    EXPECT_EQ(Read_To_The_End(camera, 5000), -ENODEV);

    const auto asked = Clock::now();
    EXPECT_EQ(WQZ_Camera_Recover(camera.Handle(), 300), -ETIMEDOUT);
    EXPECT_LT(Clock::now() - asked, 2s);
    auto frame = Sized<WQZ_Camera_Frame>();
    EXPECT_EQ(camera.Read(frame, 0), -ENODEV);
    std::thread cancel([&] {
        std::this_thread::sleep_for(300ms);
        (void)WQZ_Camera_Cancel(camera.Handle());
    });
    EXPECT_EQ(WQZ_Camera_Recover(camera.Handle(), -1), -ECANCELED);
    cancel.join();

    std::thread plug([] {
        std::this_thread::sleep_for(500ms);
        Plug_In_Usb_Camera();
    });
    EXPECT_EQ(WQZ_Camera_Recover(camera.Handle(), 30000), 0) << Explanation(camera.Handle());
    plug.join();
    EXPECT_EQ(WQZ_Camera_Descriptor(camera.Handle()), descriptor);
    const auto frames = camera.Take(10);
    ASSERT_EQ(frames.size(), 10U);
    for (const Delivered_Frame& taken : frames) {
        EXPECT_TRUE(taken.bytes == Test_Picture::Yuyv_Frame(160, 120, taken.sequence));
    }
    EXPECT_EQ(camera.Counters().delivered, 11U);  // one before the unplug
    EXPECT_TRUE(held[0]->Bytes() == Test_Picture::Yuyv_Frame(160, 120, held[0]->frame.sequence));
    EXPECT_EQ(held[0]->Release(), 0) << Explanation();
    // The camera forgets its settings without power.
    EXPECT_EQ(
        Run_Command("v4l2-ctl -d " + camera.Node() + " -C brightness,white_balance_automatic,white_balance_temperature")
            .output,
        "brightness: 33\nwhite_balance_automatic: 0\nwhite_balance_temperature: 3000\n");
    EXPECT_NE(Run_Command("v4l2-ctl -d " + camera.Node() + " -P").output.find("15.000"), std::string::npos);
    ASSERT_EQ(camera.Set("brightness", "default"), 0);
    ASSERT_EQ(camera.Set("white_balance_automatic", "default"), 0);
}

TEST_F(Camera_Unplug, TheMonitorReportsItAndTheReplug)
{
    WQZ_Camera_Monitor* monitor = nullptr;
    ASSERT_EQ(WQZ_Camera_Monitor_Open(&monitor), 0) << Explanation();
    auto event = Sized<WQZ_Camera_Event>();
    EXPECT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 0), -ETIMEDOUT);
    const std::string node = Camera(Usb).Node();
    (void)Unplug(node);
    pollfd descriptor{WQZ_Camera_Monitor_Descriptor(monitor), POLLIN, 0};
    EXPECT_EQ(poll(&descriptor, 1, 10000), 1);
    ASSERT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 10000), 0);
    EXPECT_EQ(event.kind, static_cast<uint32_t>(WQZ_CAMERA_EVENT_UNPLUGGED));
    EXPECT_EQ(event.info.node, node);
    EXPECT_STREQ(event.info.serial, Test_Picture::Texts[2]);
    Plug_In_Usb_Camera();
    ASSERT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 10000), 0);
    EXPECT_EQ(event.kind, static_cast<uint32_t>(WQZ_CAMERA_EVENT_PLUGGED));
    EXPECT_STREQ(event.info.identity, "1209:0001:KT-0001");
    EXPECT_EQ(Camera(event.info.identity).Node(), event.info.node);
    EXPECT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 0), -ETIMEDOUT);
    EXPECT_EQ(WQZ_Camera_Monitor_Close(monitor), 0);
}

// vivid plays an unplug without its node going away, and comes back when the last program has let go of it.
TEST_F(Camera_Unplug, IsNoticedWithoutAPlugEvent)
{
    Make_Vivid_Repeatable();
    Camera camera(Discovered_Camera("vivid").Node());
    ASSERT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_YUYV, 320, 180, 25)), 0) << Explanation(camera.Handle());
    ASSERT_EQ(camera.Take(3).size(), 3U);
    ASSERT_EQ(camera.Set("disconnect", "1"), 0) << Explanation(camera.Handle());
    const auto gone = Clock::now();
    EXPECT_EQ(Read_To_The_End(camera, 5000), -ENODEV);
    EXPECT_LT(Clock::now() - gone, Notice_Limit);
    EXPECT_EQ(WQZ_Camera_Recover(camera.Handle(), 10000), 0) << Explanation(camera.Handle());
    EXPECT_EQ(camera.Take(3).size(), 3U);
    EXPECT_EQ(camera.Close(), 0) << Explanation();
    Expect_Free_For_Others(Discovered_Camera("vivid").Node(), "GREY", 320, 180);
}

}  // namespace
