// Captures from the kernel's own drivers: every frame is whole, in order and converted by the formulas.

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "kernel_test_support.h"
#include "Stream/frame_buffer.h"
#include "test_picture.h"
#include "Video/Video_Device.h"

namespace {

using namespace std::chrono_literals;

constexpr size_t Many = 100;

class Capture : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        Plug_In_Usb_Camera();
        Make_Vivid_Repeatable();
    }
};

/// Checks that the session delivered each frame that it read.
void Expect_Consecutive(const std::vector<Delivered_Frame>& frames)
{
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i].index, frames[0].index + i);
    }
}

void Expect_Motion_Jpeg(const Delivered_Frame& frame, const Pix_Format& mode)
{
    EXPECT_EQ(Motion_Jpeg_Counter(frame.bytes), frame.sequence) << "index " << frame.index;
    std::vector<uint8_t> bytes = frame.bytes;
    v4l2_buffer buffer{};
    buffer.bytesused = static_cast<uint32_t>(bytes.size());
    EXPECT_EQ(Frame_Buffer::MJPEG_Length(bytes.data(), &buffer), static_cast<int32_t>(bytes.size()));
    EXPECT_EQ(frame.format.u_PixFormat, 0U);
    EXPECT_EQ(frame.format.u_Width, mode.u_Width);
    EXPECT_EQ(frame.format.u_Height, mode.u_Height);
}

/// @return how many frames the USB camera had produced, by its own number in the picture
uint64_t Produced(const Delivered_Frame& last)
{
    return static_cast<uint64_t>(Motion_Jpeg_Counter(last.bytes)) + 1;
}

// Prints the first difference instead of long vectors.
void Expect_Bitmap(const Delivered_Frame& frame, const std::vector<uint8_t>& yuyv, const Pix_Format& mode)
{
    const std::vector<uint8_t> expected = Expected_Bitmap(yuyv, mode.u_Width, mode.u_Height);
    ASSERT_EQ(frame.bytes.size(), expected.size()) << "index " << frame.index;
    const auto differ = std::mismatch(expected.begin(), expected.end(), frame.bytes.begin());
    EXPECT_TRUE(differ.first == expected.end())
        << "index " << frame.index << " differs first at byte " << differ.first - expected.begin();
    EXPECT_EQ(frame.format.u_PixFormat, 1U);
}

void Expect_Usb_Yuyv(const Delivered_Frame& frame, const Pix_Format& mode)
{
    Expect_Bitmap(frame, Test_Picture::Yuyv_Frame(mode.u_Width, mode.u_Height, frame.sequence), mode);
}

// vivid counts pictures and sequence numbers apart: a gap in its sequence need not show in the pictures.
void Expect_Vivid_Yuyv(const std::vector<Delivered_Frame>& frames, const Vivid_Pictures& pictures,
                       const Pix_Format& mode)
{
    uint32_t picture = 0, sequence = 0;
    for (const Delivered_Frame& frame : frames) {
        const uint32_t last = picture + frame.sequence - sequence;
        while (picture < last && frame.bytes != Expected_Bitmap(pictures.Bytes(picture), mode.u_Width, mode.u_Height)) {
            ++picture;
        }
        Expect_Bitmap(frame, pictures.Bytes(picture), mode);
        ++picture;
        sequence = frame.sequence + 1;
    }
}

TEST_F(Capture, DeliversAHundredWholeMotionJpegFramesFromUsb)
{
    const Discovered_Camera camera("uvcvideo");
    Capture_Session session(camera);
    const Pix_Format mode = Motion_Jpeg(320, 240, 15);
    session.Start(mode);
    const auto frames = session.Take(Many);
    EXPECT_EQ(session.Stop(), 0);
    ASSERT_EQ(frames.size(), Many);
    Expect_Consecutive(frames);
    for (const Delivered_Frame& frame : frames) {
        Expect_Motion_Jpeg(frame, mode);
    }
    session.Tally().Expect_Balance(Produced(frames.back()));
    // The rate that was asked for, counted in whole seconds; a busy machine may be slower, never faster.
    EXPECT_GE(frames.back().format.u_Fps, 5U);
    EXPECT_LE(frames.back().format.u_Fps, 17U);
}

TEST_F(Capture, DeliversAHundredConvertedYuyvFramesFromUsb)
{
    const Discovered_Camera camera("uvcvideo");
    Capture_Session session(camera);
    const Pix_Format mode = Yuyv(160, 120, 30);
    session.Start(mode);
    const auto frames = session.Take(Many);
    EXPECT_EQ(session.Stop(), 0);
    ASSERT_EQ(frames.size(), Many);
    Expect_Consecutive(frames);
    for (const Delivered_Frame& frame : frames) {
        Expect_Usb_Yuyv(frame, mode);
    }
}

TEST_F(Capture, DeliversAHundredConvertedYuyvFramesFromVivid)
{
    const Discovered_Camera camera("vivid");
    const Pix_Format mode = Yuyv(320, 180, 25);
    const Vivid_Pictures pictures(camera.Node(), "YUYV", mode.u_Width, mode.u_Height);
    EXPECT_NE(pictures.Bytes(0), pictures.Bytes(1));
    Capture_Session session(camera);
    session.Start(mode);
    const auto frames = session.Take(Many);
    EXPECT_EQ(session.Stop(), 0);
    ASSERT_EQ(frames.size(), Many);
    Expect_Consecutive(frames);
    Expect_Vivid_Yuyv(frames, pictures, mode);
}

TEST_F(Capture, AStallingConsumerLosesOnlyTheOldestFrames)
{
    const Discovered_Camera camera("uvcvideo");
    Capture_Session session(camera);
    const Pix_Format mode = Motion_Jpeg(160, 120, 30);
    session.Start(mode);
    const auto before = session.Take(10);
    std::this_thread::sleep_for(2s);
    const int32_t waiting = WQZ_USBCam_Video_STREAM_STATUS(session.Handle(), false);
    const auto after = session.Take(30);
    EXPECT_EQ(session.Stop(), 0);
    ASSERT_EQ(before.size() + after.size(), 40U);
    EXPECT_GE(waiting, 7);  // eight records, one may be in the loop's hands
    EXPECT_LE(waiting, 8);
    Expect_Consecutive(before);
    Expect_Consecutive(after);
    EXPECT_GE(session.Tally().Overtaken(), 20U);
    session.Tally().Expect_Balance(Produced(after.back()));
    for (const Delivered_Frame& frame : after) {
        Expect_Motion_Jpeg(frame, mode);
    }
}

TEST_F(Capture, TwoCamerasAtOnceDeliverTheirOwnFramesInOrder)
{
    const Discovered_Camera usb("uvcvideo"), vivid("vivid");
    const Pix_Format usb_mode = Yuyv(160, 120, 15), vivid_mode = Yuyv(320, 180, 15);
    const Vivid_Pictures pictures(vivid.Node(), "YUYV", 320, 180);
    Capture_Session usb_session(usb), vivid_session(vivid);
    usb_session.Start(usb_mode);
    vivid_session.Start(vivid_mode);
    auto usb_frames = std::async(std::launch::async, [&] { return usb_session.Take(40); });
    const auto vivid_frames = vivid_session.Take(40);
    const auto from_usb = usb_frames.get();
    EXPECT_EQ(vivid_session.Stop(), 0);
    EXPECT_EQ(usb_session.Stop(), 0);
    ASSERT_EQ(from_usb.size(), 40U);
    ASSERT_EQ(vivid_frames.size(), 40U);
    Expect_Consecutive(from_usb);
    Expect_Consecutive(vivid_frames);
    for (const Delivered_Frame& frame : from_usb) {
        Expect_Usb_Yuyv(frame, usb_mode);
    }
    Expect_Vivid_Yuyv(vivid_frames, pictures, vivid_mode);
}

TEST_F(Capture, AStopEndsTheLoopAndTheStream)
{
    for (const char* driver : {"uvcvideo", "vivid"}) {
        const Discovered_Camera camera(driver);
        Capture_Session session(camera);
        session.Start(Yuyv(driver[0] == 'u' ? 320 : 640, driver[0] == 'u' ? 240 : 360, 5));
        EXPECT_EQ(session.Take(3).size(), 3U) << driver;
        const auto asked = std::chrono::steady_clock::now();
        EXPECT_EQ(session.Stop(), 0) << driver;
        EXPECT_LT(std::chrono::steady_clock::now() - asked, 3s) << driver;  // a time-out of 1.002 s and a frame
        EXPECT_EQ(WQZ_USBCam_GET_FRAME_BUFF(session.Handle(), false), nullptr) << driver;
    }
    // Another program gets the cameras at once afterwards.
    for (const char* driver : {"uvcvideo", "vivid"}) {
        const Command_Result other = Run_Command("v4l2-ctl -d " + Discovered_Camera(driver).Node() +
                                                 " --stream-mmap --stream-count=2 --stream-to=/tmp/other");
        EXPECT_EQ(other.output.find("failed"), std::string::npos) << driver << ": " << other.output;
    }
}

TEST_F(Capture, ACameraThatPausesCausesTimeOutsAndGoesOn)
{
    const Discovered_Camera camera("uvcvideo");
    testing::internal::CaptureStderr();
    Capture_Session session(camera);
    const Pix_Format mode = Motion_Jpeg(160, 120, 30);
    session.Start(mode);
    auto frames = session.Take(20);
    Tell_Usb_Camera("pause 5");
    const auto paused = std::chrono::steady_clock::now();
    const auto more = session.Take(60);
    EXPECT_EQ(session.Stop(), 0);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_GE(std::chrono::steady_clock::now() - paused, 5s);
    frames.insert(frames.end(), more.begin(), more.end());
    ASSERT_EQ(frames.size(), 80U);
    Expect_Consecutive(frames);
    for (const Delivered_Frame& frame : frames) {
        Expect_Motion_Jpeg(frame, mode);
    }
    size_t time_outs = 0;
    for (size_t at = 0; (at = said.find("select Timeout\n", at)) != std::string::npos; ++at) {
        ++time_outs;
    }
    EXPECT_GE(time_outs, 3U) << said;
    EXPECT_LE(time_outs, 5U) << said;
    printf("paused for 5 s: %zu time-outs\n", time_outs);
}

struct Seen_By_Task {
    std::vector<std::vector<uint8_t>> frames;
    std::vector<uint32_t> sequences;
    std::vector<uint32_t> formats;
    std::vector<int64_t> lengths;  // first argument of the task, -1 when null
};

int32_t Note_Frame(void* length, Frame_Buffer_Data* frame, void* argument)
{
    auto* const seen = static_cast<Seen_By_Task*>(argument);
    const auto* const bytes = static_cast<const uint8_t*>(frame->pMem);
    seen->frames.emplace_back(bytes, bytes + frame->buffer.bytesused);
    seen->sequences.push_back(frame->buffer.sequence);
    seen->formats.push_back(frame->PixFormat.u_PixFormat);
    seen->lengths.push_back(length == nullptr ? -1 : int64_t{*static_cast<uint32_t*>(length)});
    return 0;
}

int32_t Refuse_Frame(void*, Frame_Buffer_Data*, void*)
{
    ADD_FAILURE() << "the task of another format was called";
    return 0;
}

void Run_Tasks(Video_Device& device, uint32_t fourcc, uint32_t width, uint32_t height, uint32_t fps, Seen_By_Task* seen)
{
    ASSERT_GT(device.Video_Open(), 0);
    EXPECT_EQ(device.Video_Stream_Set_Format(fourcc, width, height), 0);
    EXPECT_EQ(device.Video_Stream_Set_Frame_Rate(1, fps), 0);
    EXPECT_EQ(device.Video_Stream_Set_Frame_Buff(4), 0);
    EXPECT_EQ(device.Video_Stream_Start_Stream(), 0);
    EXPECT_GT(device.Video_Exe(20, seen), 0);
    EXPECT_EQ(device.Video_Exe_End(), 0);
    ASSERT_EQ(seen->frames.size(), 20U);
    EXPECT_EQ(std::count(seen->formats.begin(), seen->formats.end(), fourcc), 20);
    EXPECT_TRUE(std::is_sorted(seen->sequences.begin(), seen->sequences.end()));
}

TEST_F(Capture, TheTaskLoopHandsEachFrameToTheTaskOfItsFormat)
{
    const Discovered_Camera vivid("vivid"), usb("uvcvideo");
    const Vivid_Pictures pictures(vivid.Node(), "GREY", 320, 180);
    v4l2_dev_sys_data_t record = vivid.S_Record;
    Video_Device grey(&record);
    EXPECT_EQ(grey.Set_Task_Unusual(Note_Frame), 0);
    EXPECT_EQ(grey.Set_Task_YUV(Refuse_Frame), 0);
    EXPECT_EQ(grey.Set_Task_MJPEG(Refuse_Frame), 0);
    Seen_By_Task seen;
    Run_Tasks(grey, V4L2_PIX_FMT_GREY, 320, 180, 25, &seen);
    for (uint32_t i = 0, picture = 0; i < seen.frames.size(); ++i, ++picture) {
        while (picture < seen.sequences[i] && seen.frames[i] != pictures.Bytes(picture)) {
            ++picture;
        }
        EXPECT_TRUE(seen.frames[i] == pictures.Bytes(picture)) << i;
    }
    EXPECT_EQ(std::count(seen.lengths.begin(), seen.lengths.end(), -1), 20);

    record = usb.S_Record;
    Video_Device jpeg(&record);
    EXPECT_EQ(jpeg.Set_Task_MJPEG(Note_Frame), 0);
    EXPECT_EQ(jpeg.Set_Task_Unusual(Refuse_Frame), 0);
    Seen_By_Task images;
    Run_Tasks(jpeg, V4L2_PIX_FMT_MJPEG, 160, 120, 30, &images);
    for (size_t i = 0; i < images.frames.size(); ++i) {
        EXPECT_EQ(Motion_Jpeg_Counter(images.frames[i]), images.sequences[i]);
        EXPECT_EQ(images.lengths[i], static_cast<int64_t>(images.frames[i].size()));
    }
}

}  // namespace
