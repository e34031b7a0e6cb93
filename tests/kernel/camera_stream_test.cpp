// The camera interface on the kernel's own drivers: every frame is whole, in order and in the mode that was confirmed.

#include <time.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "camera_support.h"
#include "test_picture.h"

namespace {

using namespace std::chrono_literals;

constexpr char Usb[] = "1209:0001";

class Camera_Stream : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        Plug_In_Usb_Camera();
        Make_Vivid_Repeatable();
    }
    const std::string Vivid = Discovered_Camera("vivid").Node();
};

int64_t Now()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

/// Reads frames one by one, and checks their labels, times, and that lost ones are counted.
std::vector<Delivered_Frame> Take_Checked(Camera& camera, size_t count)
{
    std::vector<Delivered_Frame> frames;
    int64_t time = 0;
    for (uint32_t lost = 0; frames.size() < count;) {
        const Loans loans = camera.Hold(1);
        if (loans.empty()) {
            break;
        }
        const WQZ_Camera_Frame& frame = loans[0]->frame;
        EXPECT_EQ(frame.fourcc, camera.S_Mode.fourcc);
        EXPECT_EQ(frame.width, camera.S_Mode.width);
        EXPECT_EQ(frame.height, camera.S_Mode.height);
        EXPECT_EQ(frame.bytes_per_line, camera.S_Mode.bytes_per_line);
        EXPECT_LE(frame.length, camera.S_Mode.image_size);
        EXPECT_EQ(frame.flags, 0U);
        EXPECT_GT(frame.time_ns, time);
        // vivid stamps a frame with the time at which a sensor would have sent its last line, up to 40 ms ahead.
        const int64_t age = Now() - frame.time_ns;
        EXPECT_TRUE(age > -50'000'000 && age < 5'000'000'000) << age << ": not the monotonic clock's";
        time = frame.time_ns;
        if (!frames.empty()) {
            EXPECT_EQ(frame.lost_before, frame.sequence - frames.back().sequence - 1);
            lost += frame.lost_before;
            EXPECT_EQ(camera.Counters().lost, lost);
        }
        frames.push_back({0, frame.sequence, {}, loans[0]->Bytes()});
    }
    return frames;
}

TEST_F(Camera_Stream, DeliversWholeFramesFromUsbInEachMode)
{
    Camera camera(Usb);
    ASSERT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_MJPEG, 320, 240, 15)), 0) << Explanation(camera.Handle());
    EXPECT_STREQ(camera.S_Mode.format, "MJPG");
    EXPECT_EQ(camera.S_Mode.buffers, 4U);
    auto frames = Take_Checked(camera, 30);
    ASSERT_EQ(frames.size(), 30U);
    for (const Delivered_Frame& frame : frames) {
        EXPECT_EQ(Motion_Jpeg_Counter(frame.bytes), frame.sequence);
    }
    EXPECT_EQ(camera.Counters().delivered, 30U);

    // A second start ends the first, and begins to count again.
    ASSERT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_YUYV, 160, 120, 30)), 0) << Explanation(camera.Handle());
    EXPECT_EQ(camera.S_Mode.bytes_per_line, 320U);
    frames = Take_Checked(camera, 30);
    ASSERT_EQ(frames.size(), 30U);
    for (const Delivered_Frame& frame : frames) {
        EXPECT_TRUE(frame.bytes == Test_Picture::Yuyv_Frame(160, 120, frame.sequence)) << frame.sequence;
    }
    EXPECT_EQ(camera.Counters().delivered, 30U);
}

TEST_F(Camera_Stream, DeliversWholeFramesFromVividInFormatsOfItsOwn)
{
    const struct {
        const char* name;
        uint32_t fourcc;
    } formats[] = {{"GREY", V4L2_PIX_FMT_GREY}, {"YUYV", V4L2_PIX_FMT_YUYV}, {"NV12", V4L2_PIX_FMT_NV12}};
    for (const auto& format : formats) {
        // The sizes of planar pictures are no multiple of their pixels; only their lengths are compared.
        const bool packed = format.fourcc != V4L2_PIX_FMT_NV12;
        const Vivid_Pictures pictures(Vivid, packed ? format.name : "GREY", 320, 180);
        Camera camera(Vivid);
        ASSERT_EQ(camera.Start(Exactly(format.fourcc, 320, 180, 25)), 0) << Explanation(camera.Handle());
        const auto frames = Take_Checked(camera, 10);
        ASSERT_EQ(frames.size(), 10U) << format.name;
        uint32_t picture = 0;  // vivid numbers pictures and frames apart: a lost frame need not be a lost picture
        for (const Delivered_Frame& frame : frames) {
            if (!packed) {
                EXPECT_EQ(frame.bytes.size(), 320U * 180U * 3 / 2);
                continue;
            }
            while (picture < frame.sequence && frame.bytes != pictures.Bytes(picture)) {
                ++picture;
            }
            EXPECT_TRUE(frame.bytes == pictures.Bytes(picture)) << format.name << " " << frame.sequence;
            ++picture;
        }
    }
}

TEST_F(Camera_Stream, RefusesExactModesThatAreNotOfferedAndNamesTheNearest)
{
    const struct {
        std::string camera;
        WQZ_Camera_Request request;
        const char* nearest;
    } cases[] = {
        {Usb, Exactly(V4L2_PIX_FMT_MJPEG, 1000, 1000, 30), "320x240"},
        {Usb, Exactly(V4L2_PIX_FMT_YUYV, 160, 120, 29), "30"},
        {Usb, Exactly(V4L2_PIX_FMT_GREY, 160, 120, 30), "160x120"},
        {Vivid, Exactly(V4L2_PIX_FMT_YUYV, 322, 180, 25), "320x180"},
        {Vivid, Exactly(V4L2_PIX_FMT_YUYV, 320, 180, 24), "25"},
        {Vivid, Exactly(V4L2_PIX_FMT_MJPEG, 320, 180, 25), "320x180"},
    };
    for (const auto& c : cases) {
        Camera camera(c.camera);
        EXPECT_EQ(camera.Start(c.request), -ENOTSUP) << c.nearest;
        const std::string said = Explanation(camera.Handle());
        EXPECT_NE(said.find(c.nearest), std::string::npos) << said;
        EXPECT_LT(said.size(), 500U) << said;
        auto frame = Sized<WQZ_Camera_Frame>();
        EXPECT_EQ(camera.Read(frame, 0), -EINVAL);
        puts(said.c_str());
    }
    // Nothing is left set or reserved.
    Expect_Free_For_Others(Camera(Usb).Node(), "YUYV", 160, 120);
    Expect_Free_For_Others(Vivid, "YUYV", 320, 180);
}

TEST_F(Camera_Stream, TellsWhatTheDriverChoseInstead)
{
    Camera camera(Usb);
    WQZ_Camera_Request request = Exactly(V4L2_PIX_FMT_GREY, 1000, 1000, 100);
    request.flags = 0;
    ASSERT_EQ(camera.Start(request), 0) << Explanation(camera.Handle());
    EXPECT_TRUE(camera.S_Mode.fourcc == V4L2_PIX_FMT_MJPEG || camera.S_Mode.fourcc == V4L2_PIX_FMT_YUYV);
    EXPECT_EQ(camera.S_Mode.width, 320U);
    EXPECT_EQ(camera.S_Mode.height, 240U);
    EXPECT_NEAR(static_cast<double>(camera.S_Mode.interval.denominator) / camera.S_Mode.interval.numerator, 15, 0.01);
    EXPECT_EQ(Take_Checked(camera, 3).size(), 3U);
}

TEST_F(Camera_Stream, SkipsAndPassesOverFramesAndCountsThem)
{
    Camera camera(Usb);
    WQZ_Camera_Request request = Exactly(V4L2_PIX_FMT_MJPEG, 160, 120, 30);
    request.skip = 3;
    request.buffers = 8;
    ASSERT_EQ(camera.Start(request), 0) << Explanation(camera.Handle());
    EXPECT_EQ(camera.S_Mode.buffers, 8U);
    auto frames = camera.Take(1);
    ASSERT_EQ(frames.size(), 1U);
    EXPECT_GE(frames[0].sequence, 3U);
    EXPECT_EQ(camera.Counters().skipped, 3U);

    std::this_thread::sleep_for(500ms);
    Loan newest;
    ASSERT_EQ(camera.Read(newest.frame, 1000, WQZ_CAMERA_READ_NEWEST), 0);
    EXPECT_EQ(Motion_Jpeg_Counter(newest.Bytes()), newest.frame.sequence);
    const WQZ_Camera_Counts counts = camera.Counters();
    EXPECT_GE(counts.skipped, 3U + 3U);  // seven where the host keeps up
    EXPECT_EQ(counts.delivered + counts.skipped + counts.lost, newest.frame.sequence + 1U);
}

TEST_F(Camera_Stream, KeepsOneBufferForTheDriverAndCountsWhatIsLostMeanwhile)
{
    for (const std::string& name : {std::string(Usb), Vivid}) {
        Camera camera(name);
        const bool usb = name == Usb;
        ASSERT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_YUYV, usb ? 160 : 320, usb ? 120 : 180, usb ? 30 : 25)), 0);
        Loans held = camera.Hold(3);
        ASSERT_EQ(held.size(), 3U);
        const uint64_t lost_before = camera.Counters().lost;  // a busy host
        std::vector<std::vector<uint8_t>> bytes;
        for (const auto& loan : held) {
            bytes.push_back(loan->Bytes());
        }
        auto frame = Sized<WQZ_Camera_Frame>();
        const auto asked = std::chrono::steady_clock::now();
        EXPECT_EQ(camera.Read(frame, 5000), -ENOBUFS);
        EXPECT_LT(std::chrono::steady_clock::now() - asked, 2s);
        std::this_thread::sleep_for(600ms);
        for (size_t i = 0; i < held.size(); ++i) {
            EXPECT_TRUE(held[i]->Bytes() == bytes[i]) << name << ": the driver wrote into held frame " << i;
        }
        const uint32_t last_held = held.back()->frame.sequence;
        held.erase(held.begin() + 1);  // in any order
        held.clear();
        const auto after = camera.Take(4);
        ASSERT_EQ(after.size(), 4U);
        const uint64_t lost = camera.Counters().lost - lost_before;
        EXPECT_EQ(after.back().sequence - last_held - 4, lost) << name;
        EXPECT_GE(lost, 3U) << name;
    }
}

TEST_F(Camera_Stream, TimesOutWhileTheCameraPausesAndGoesOn)
{
    Camera camera(Usb);
    ASSERT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_MJPEG, 160, 120, 30)), 0);
    ASSERT_EQ(camera.Take(5).size(), 5U);
    Tell_Usb_Camera("pause 3");
    auto frame = Sized<WQZ_Camera_Frame>();
    int result = 0;
    auto asked = std::chrono::steady_clock::now();
    do {  // what was on its way when the camera paused
        asked = std::chrono::steady_clock::now();
        result = camera.Read(frame, 400);
    } while (result == 0 && WQZ_Camera_Release(&frame) == 0);
    EXPECT_EQ(result, -ETIMEDOUT) << Explanation(camera.Handle());
    EXPECT_GE(std::chrono::steady_clock::now() - asked, 400ms);
    EXPECT_LT(std::chrono::steady_clock::now() - asked, 1s);
    EXPECT_EQ(camera.Read(frame, 0), -ETIMEDOUT);

    std::thread cancel([&] {
        std::this_thread::sleep_for(200ms);
        (void)WQZ_Camera_Cancel(camera.Handle());
    });
    EXPECT_EQ(camera.Read(frame, -1), -ECANCELED);
    cancel.join();

    const auto frames = Take_Checked(camera, 10);
    ASSERT_EQ(frames.size(), 10U);
    for (const Delivered_Frame& taken : frames) {
        EXPECT_EQ(Motion_Jpeg_Counter(taken.bytes), taken.sequence);
    }
}

/// Presses one of the buttons with which vivid fails its next request.
void Press(const std::string& node, const std::string& button)
{
    const Command_Result pressed = Run_Command("v4l2-ctl -d " + node + " -c " + button + "=1");
    ASSERT_EQ(pressed.status, 0) << pressed.output;
}

TEST_F(Camera_Stream, FailsToStartWhenAnyStepFailsAndStartsAfterwards)
{
    const WQZ_Camera_Request request = Exactly(V4L2_PIX_FMT_YUYV, 320, 180, 25);
    Camera camera(Vivid);
    for (const char* button :
         {"inject_vidioc_reqbufs_error", "inject_vidioc_qbuf_error", "inject_vidioc_streamon_error"}) {
        Press(Vivid, button);
        EXPECT_LT(camera.Start(request), 0) << button;
        EXPECT_NE(Explanation(camera.Handle()), "") << button;
        Expect_Free_For_Others(Vivid, "GREY", 640, 360);
        EXPECT_EQ(camera.Start(request), 0) << button << ": " << Explanation(camera.Handle());
        EXPECT_EQ(camera.Take(2).size(), 2U) << button;
        EXPECT_EQ(WQZ_Camera_Stop(camera.Handle()), 0) << button;
    }
}

TEST_F(Camera_Stream, ReportsADriverThatFailsAndStartsAgain)
{
    Camera camera(Vivid);
    const WQZ_Camera_Request request = Exactly(V4L2_PIX_FMT_YUYV, 320, 180, 25);
    ASSERT_EQ(camera.Start(request), 0);
    ASSERT_EQ(camera.Take(2).size(), 2U);
    Press(Vivid, "inject_fatal_streaming_error");
    auto frame = Sized<WQZ_Camera_Frame>();
    int result = 0;
    for (int i = 0; i < 10 && result == 0; ++i) {
        result = camera.Read(frame, 3000);
        (void)WQZ_Camera_Release(&frame);
    }
    EXPECT_EQ(result, -EIO) << Explanation(camera.Handle());
    ASSERT_EQ(camera.Start(request), 0) << Explanation(camera.Handle());
    EXPECT_EQ(camera.Take(3).size(), 3U);
}

TEST_F(Camera_Stream, MarksDamagedFrames)
{
    Camera camera(Vivid);
    ASSERT_EQ(camera.Start(Exactly(V4L2_PIX_FMT_YUYV, 320, 180, 25)), 0);
    ASSERT_EQ(camera.Take(2).size(), 2U);
    Press(Vivid, "inject_v4l2_buf_flag_error");
    int damaged = 0;
    for (int i = 0; i < 40 && damaged == 0; ++i) {
        const Loans loans = camera.Hold(1);
        ASSERT_EQ(loans.size(), 1U);
        damaged += (loans[0]->frame.flags & WQZ_CAMERA_FRAME_DAMAGED) != 0 ? 1 : 0;
    }
    EXPECT_EQ(damaged, 1);
    EXPECT_EQ(camera.Counters().damaged, 1U);
    EXPECT_EQ(camera.Take(3).size(), 3U);
}

}  // namespace
