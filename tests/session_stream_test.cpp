// The session's capture loop on the virtual camera.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Stream/YUV/yuv_stream.h"
#include "support/allocation_watch.h"
#include "support/session_fixture.h"
#include "support/waiting.h"
#include "support/watched_device.h"
#include "USBCam/USBCam.h"

namespace {

using namespace virtual_camera;
using Clock = std::chrono::steady_clock;

const std::string Quitting =
    "QUIT SELECT EVENT!\r\nQUIT SELECT EVENT! Video_Stream_Stop_Stream\r\nQUIT SELECT EVENT! CLEAR_FRAME_BUFF\r\n";

using Stream = Session_Fixture;

TEST_F(Stream, AClosedCameraIsRefusedWithoutARequest)
{
    session.Video_DEAL_WITH_UNINIT();
    Clear_Log();
    EXPECT_EQ(Capture_Counted(Mjpeg, -1), -1);
    EXPECT_EQ(session.cFrame_RES.size(), 8U);
    EXPECT_EQ(Log_Names(), "");
}

TEST_F(Stream, ACaptureRequestsItsModeAndFourBuffers)
{
    Captured_Stderr printed;
    for (const uint32_t selector : {0U, 7U}) {
        Deliver_Frames(Node, 1);
        Clear_Log();
        EXPECT_EQ(Capture_Counted({selector, 320, 240, 30}, 1), 0);
        const std::vector<Log_Entry> log = Log();
        EXPECT_EQ(log[0].As<v4l2_format>().fmt.pix.pixelformat, selector == 0 ? V4L2_PIX_FMT_MJPEG : V4L2_PIX_FMT_YUYV);
        EXPECT_EQ(log[0].As<v4l2_format>().fmt.pix.width, 320U);
        const v4l2_fract interval = log[2].As<v4l2_streamparm>().parm.capture.timeperframe;
        EXPECT_EQ(interval.numerator, 1U);
        EXPECT_EQ(interval.denominator, 30U);
        EXPECT_EQ(log[3].As<v4l2_requestbuffers>().count, 4U);
        EXPECT_EQ(log.at(17).name, "select");
        EXPECT_EQ(log.at(17).timeout_us, 1'002'000);
        EXPECT_TRUE(session.cFrame_Buffer.empty() && session.cFrame_RES.empty());
        EXPECT_EQ(session.iLoopMode, 0);
        session.Video_Stream_Clear_Frame_Buff();
    }
}

TEST_F(Stream, ABudgetOfZeroEndsTheCaptureBeforeItsFirstWait)
{
    Captured_Stderr printed;
    EXPECT_EQ(Capture_Counted(Mjpeg, 0), 0);
    EXPECT_EQ(Requests(VIDIOC_STREAMON), 1);
    EXPECT_EQ(Requests(Call_Select), 0);
    EXPECT_EQ(Log().back().name, "VIDIOC_STREAMOFF");
    EXPECT_EQ(printed.Text(), Quitting);
}

TEST_F(Stream, ABudgetCountsWaitsWhateverTheirOutcome)
{
    Deliver_Frames(Node, 1);
    Script_Select(Node, 0);
    Script_Select(Node, -1, EINTR);
    Script_Select(Node, -1, ENOMEM);
    Captured_Stderr printed;
    EXPECT_EQ(Capture_Counted(Mjpeg, 4), 0);
    EXPECT_EQ(Requests(Call_Select), 4);
    EXPECT_EQ(Requests(VIDIOC_DQBUF), 1);
    EXPECT_EQ(printed.Text(), "select Timeout\nFail to select: Cannot allocate memory\n" + Quitting);
    session.CLEAR_FRAME_BUFF();
    session.Video_Stream_Clear_Frame_Buff();
    Captured_Stderr again;
    EXPECT_EQ(Capture_Counted(Mjpeg, -3), 0) << "any other negative budget stops at once";
}

TEST_F(Stream, AStopDuringACountDownIsNeverLost)
{
    Script_Select(Node, -1, EINTR, Always);
    Captured_Stderr printed;
    constexpr int32_t budget = 200000;
    for (int round = 0; round < 60; ++round) {
        Clear_Log();
        session.EVENT_LoopMode(budget);
        Capture(Mjpeg);
        std::this_thread::sleep_for(std::chrono::microseconds(300 + 37 * round));
        Stop();
        EXPECT_LT(Requests(Call_Select), budget) << "the stop was overwritten";
        EXPECT_EQ(session.iLoopMode, 0);
        session.Video_Stream_Clear_Frame_Buff();
    }
}

TEST_F(Stream, FramesAreStampedNumberedAndConverted)
{
    Captured_Stderr printed;
    session.tv_b.tv_sec -= 10;
    const auto microseconds = session.tv_b.tv_usec;
    session.fps_i = 5;
    uint32_t last_rate = 6;
    time_t last_second = 0;
    Capture(Yuyv);
    Deliver(3);
    ASSERT_TRUE(Eventually([&] { return session.Video_STREAM_STATUS(false) == 3; }));
    for (uint32_t i = 0; i < 3; ++i) {
        Frame_Buffer_Data* frame = Take();
        EXPECT_EQ(frame->index, i);
        EXPECT_EQ(frame->PixFormat.u_PixFormat, 1U);
        EXPECT_EQ(frame->PixFormat.u_Width, 320U);
        EXPECT_EQ(frame->PixFormat.u_Height, 240U);
        EXPECT_EQ(frame->fd, session.Video_Device_FD);
        EXPECT_STREQ(frame->device_path, Node);
        EXPECT_LE(std::abs(frame->Frame_Time.tv_sec - time(nullptr)), 5);
        // The first frame of a second carries the count of the previous second, and the others repeat it.
        const bool next_second = i > 0 && frame->Frame_Time.tv_sec != last_second;
        EXPECT_EQ(frame->PixFormat.u_Fps, next_second ? i : last_rate);
        last_rate = frame->PixFormat.u_Fps;
        last_second = frame->Frame_Time.tv_sec;
        std::vector<uint8_t> sent = Frame_Bytes(Node, frame->buffer.sequence);
        std::vector<uint8_t> bgr(sent.size() / 2 * 3);
        YUV_Stream::YUV_Decode_Table.YUYV_Decode(sent.data(), static_cast<uint32_t>(sent.size()), bgr.data(), 0);
        ASSERT_EQ(frame->buffer.bytesused, bgr.size() + 54);
        EXPECT_EQ(std::memcmp(static_cast<uint8_t*>(frame->pMem) + 54, bgr.data(), bgr.size()), 0);
        session.SAVE_FRAME_RES(frame);
    }
    Stop();
    EXPECT_EQ(session.tv_b.tv_usec, microseconds) << "only the seconds are kept";
    EXPECT_LT(session.fps_i, 3);
}

TEST_F(Stream, AClockSetBackStartsNoNewSecond)
{
    Captured_Stderr printed;
    session.tv_b.tv_sec += 1000;
    const auto begin = session.tv_b.tv_sec;
    Deliver_Frames(Node, 2);
    EXPECT_EQ(Capture_Counted(Mjpeg, 2), 0);
    EXPECT_EQ(session.tv_b.tv_sec, begin);
    EXPECT_EQ(session.fps_i, 2);
}

TEST_F(Stream, EveryDeviceStepCallsTheDerivedClass)
{
    session.Video_DEAL_WITH_UNINIT();
    Watched<USBCam> watched(&record);
    EXPECT_EQ(watched.Video_DEAL_WITH_INIT(0), 0);
    EXPECT_EQ(watched.calls, "Video_Open Get_Video_Device_FD ");
    const int32_t copy = dup(watched.Video_Device_FD);
    watched.shown_fd = copy;
    watched.calls.clear();
    watched.EVENT_LoopMode(1);
    Deliver_Frames(Node, 1);
    Clear_Log();
    Captured_Stderr printed;
    Pix_Format mode = Mjpeg;
    watched.Video_DEAL_WITH(&mode);
    EXPECT_EQ(watched.calls,
              "Get_Video_Device_FD Video_Stream_Set_Format Video_Stream_Set_Frame_Rate Video_Stream_Set_Frame_Buff "
              "Video_Stream_Start_Stream Get_Current_PixFormat Get_Video_Device_FD Get_Current_PixFormat "
              "Video_Stream_Stop_Stream ");
    const std::vector<Log_Entry> log = Log();
    const std::size_t end = log.size() - 1;  // select, DQBUF, QBUF, STREAMOFF
    EXPECT_EQ(log[end - 3].value, copy + 1);
    EXPECT_EQ(log[end - 2].fd, copy);
    EXPECT_EQ(log[end - 1].fd, copy);
    EXPECT_EQ(log[end].fd, watched.Video_Device_FD);
    watched.shown_fd = 0;
    watched.calls.clear();
    watched.Video_DEAL_WITH_UNINIT();
    EXPECT_EQ(watched.calls, "Video_Close ");
    EXPECT_EQ(watched.Video_DEAL_WITH_INIT(0), -1) << "a descriptor of 0 is no open camera";
    watched.Video_Exe_End();
    close(copy);
}

// Keeps the filled frames, which the end of a capture frees.
class Keeping : public Watched<USBCam> {
public:
    using Watched<USBCam>::Watched;
    int32_t Video_Stream_Stop_Stream() override
    {
        kept.swap(cFrame_Buffer);
        return Watched<USBCam>::Video_Stream_Stop_Stream();
    }
    std::list<Frame_Buffer_Data*> kept;
};

TEST_F(Stream, TheBitmapHeaderFollowsTheDevicesLabelAndTheRecordTheRequest)
{
    session.Video_DEAL_WITH_UNINIT();
    Keeping keeping(&record);
    keeping.Video_DEAL_WITH_INIT(0);
    keeping.label = {V4L2_PIX_FMT_YUYV, 64, 48, 9};
    keeping.EVENT_LoopMode(1);
    Deliver_Frames(Node, 1);
    Captured_Stderr printed;
    Pix_Format mode = Yuyv;
    keeping.Video_DEAL_WITH(&mode);
    ASSERT_EQ(keeping.kept.size(), 1U);
    Frame_Buffer_Data* frame = keeping.kept.front();
    EXPECT_EQ(frame->PixFormat.u_Width, 320U);
    EXPECT_EQ(frame->PixFormat.u_Height, 240U);
    EXPECT_NE(frame->PixFormat.u_Fps, 9U);
    bmp_header_t header;
    std::memcpy(&header, frame->pMem, sizeof header);
    EXPECT_EQ(header.width, 64U);
    EXPECT_EQ(header.height, 48U);
    EXPECT_EQ(header.file_size, 64U * 48U * 3U + 54U);
    EXPECT_EQ(frame->buffer.bytesused, 320U * 240U * 3U + 54U) << "the conversion follows the bytes";
    keeping.SAVE_FRAME_RES(frame);
    keeping.CLEAR_FRAME_BUFF();
    keeping.Video_Exe_End();
}

TEST_F(Stream, WithoutAConsumerTheLatestFramesAreKept)
{
    Captured_Stderr printed;
    Capture(Mjpeg);
    Deliver(20);
    ASSERT_TRUE(Eventually([&] {
        const Mutex_Lock_Class lock(session.cMutex);
        return session.cFrame_Buffer.size() == 7 && session.cFrame_Buffer.back()->index == 19;
    })) << "eight records: seven wait, the loop holds one";
    for (uint32_t i = 13; i < 20; ++i) {
        Frame_Buffer_Data* frame = Take();
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->index, i);
        const auto sent = Frame_Bytes(Node, frame->buffer.sequence);
        EXPECT_EQ(frame->buffer.bytesused, sent.size());
        EXPECT_EQ(std::memcmp(frame->pMem, sent.data(), sent.size()), 0);
        session.SAVE_FRAME_RES(frame);
    }
}

// What the processor has spent on a running thread.
std::chrono::nanoseconds Processor_Time(std::thread& thread)
{
    clockid_t clock{};
    timespec time{};
    EXPECT_EQ(pthread_getcpuclockid(thread.native_handle(), &clock), 0);
    EXPECT_EQ(clock_gettime(clock, &time), 0);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST_F(Stream, ALoopWithoutARecordWaitsWithoutSpendingBudget)
{
    session.Video_DEAL_WITH_UNINIT();
    Greedy greedy(&record);
    greedy.Video_DEAL_WITH_INIT(0);
    Deliver_Frames(Node, 5);
    Clear_Log();
    Captured_Stderr printed;
    greedy.EVENT_LoopMode(2);
    std::thread capture = greedy.Capture();
    ASSERT_TRUE(Eventually([] { return Requests(VIDIOC_STREAMON) == 1; }));
    const auto before = Processor_Time(capture);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(Requests(Call_Select), 0);
    EXPECT_LT(Processor_Time(capture) - before, std::chrono::milliseconds(20)) << "the loop does not rest";
    greedy.SAVE_FRAME_RES(std::exchange(greedy.held[0], nullptr));
    capture.join();
    EXPECT_EQ(Requests(VIDIOC_DQBUF), 2) << "the two waits of the budget came after the record";
    greedy.Give_Back();
    greedy.CLEAR_FRAME_BUFF();

    greedy.EVENT_LoopMode(-1);
    capture = greedy.Capture();
    ASSERT_TRUE(Eventually([] { return Requests(VIDIOC_STREAMON) == 2; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    greedy.EVENT_LoopMode(0);
    capture.join();
    greedy.Give_Back();
    greedy.CLEAR_FRAME_BUFF();
    greedy.Video_Exe_End();
}

TEST_F(Stream, FramesThatTheDriverLosesShowInTheNumbersOfTheRecords)
{
    session.Video_DEAL_WITH_UNINIT();
    Greedy greedy(&record);
    greedy.Video_DEAL_WITH_INIT(0);
    Resume_Frames(Node);
    Captured_Stderr printed;
    std::thread capture = greedy.Capture();
    ASSERT_TRUE(Eventually([] { return Requests(VIDIOC_STREAMON) == 1; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(400));  // twelve frames for the driver's four buffers
    greedy.Give_Back();
    ASSERT_TRUE(Eventually([&] {
        Frame_Buffer_Data* const frame = greedy.GET_FRAME_BUFF(false);
        if (frame != nullptr) {
            tally.Add(*frame);
            const auto sent = Frame_Bytes(Node, frame->buffer.sequence);
            EXPECT_EQ(std::memcmp(frame->pMem, sent.data(), sent.size()), 0) << "the camera's number is another one";
            produced = uint64_t{frame->buffer.sequence} + 1;
            greedy.SAVE_FRAME_RES(frame);
        }
        return tally.Delivered() == 8;
    }));
    greedy.EVENT_LoopMode(0);
    capture.join();
    EXPECT_GE(tally.Lost(), 5U);
    tally.Expect_Handed_Out(Numbers_Handed_Out(Node));
    tally.Expect_Balance(produced);
    greedy.Video_Exe_End();
}

TEST_F(Stream, AnUnknownFormatIsCountedReportedAndNotQueued)
{
    session.Video_DEAL_WITH_UNINIT();
    Keeping grey(&record);
    grey.Video_DEAL_WITH_INIT(0);
    grey.label = {V4L2_PIX_FMT_GREY, 1, 1, 1};
    Deliver_Frames(Node, 3);
    grey.EVENT_LoopMode(3);
    Captured_Stderr printed;
    Pix_Format mode = Yuyv;
    grey.Video_DEAL_WITH(&mode);
    EXPECT_EQ(printed.Text(), "format Error\nformat Error\nformat Error\n" + Quitting);
    EXPECT_EQ(grey.fps_i, 3);
    EXPECT_TRUE(grey.kept.empty());
    grey.Video_Exe_End();
}

TEST_F(Stream, CapturesOnADescriptorBeyondFdSetsize)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_cur < 2048) {
        limit.rlim_cur = 2048;
        limit.rlim_max = std::max<rlim_t>(limit.rlim_max, 2048);
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    session.Video_DEAL_WITH_UNINIT();
    Set_Descriptor_Minimum(Node, 1500);
    session.Video_DEAL_WITH_INIT(0);
    ASSERT_GE(session.Video_Device_FD, 1500);
    Deliver_Frames(Node, 2);
    Clear_Log();
    Captured_Stderr printed;
    EXPECT_EQ(Capture_Counted(Mjpeg, 2), 0);
    EXPECT_EQ(Requests(VIDIOC_DQBUF), 2);
    EXPECT_EQ(printed.Text(), Quitting);
}

TEST_F(Stream, FailedReadsLeaveNothingToConvert)
{
    Deliver_Frames(Node, 6);
    Fail(Node, VIDIOC_DQBUF, {EIO, -2});
    Alter(Node, VIDIOC_DQBUF, [](void* argument) { static_cast<v4l2_buffer*>(argument)->bytesused = 0xFFFFFFFF; });
    Captured_Stderr printed;
    EXPECT_EQ(Capture_Counted(Yuyv, 3), 0);
    EXPECT_EQ(printed.Text(), "NULL \nRaw Not Vail!\nRaw Not Vail!\n" + Quitting);
}

TEST_F(Stream, FramesOfABufferWithoutAMappingAreMarkedInBothFormats)
{
    session.Video_DEAL_WITH_UNINIT();
    for (const Pix_Format& mode : {Mjpeg, Yuyv}) {
        Keeping keeping(&record);
        keeping.Video_DEAL_WITH_INIT(0);
        Fail(Node, Call_Mmap, {ENOMEM});
        Deliver_Frames(Node, 5);
        keeping.EVENT_LoopMode(5);
        Captured_Stderr printed;
        Pix_Format request = mode;
        keeping.Video_DEAL_WITH(&request);
        ASSERT_EQ(keeping.kept.size(), 5U);
        Record_Tally kept;
        for (Frame_Buffer_Data* frame : keeping.kept) {
            kept.Add(*frame);
            EXPECT_EQ((frame->buffer.flags & V4L2_BUF_FLAG_ERROR) != 0, frame->buffer.index == 0) << frame->index;
            keeping.SAVE_FRAME_RES(frame);
        }
        kept.Expect_Balance(5);  // the damaged ones are delivered too
        keeping.CLEAR_FRAME_BUFF();
        keeping.Video_Exe_End();
    }
}

TEST_F(Stream, ACaptureThatRunsOutOfMemoryStopsAndClearsBeforeItThrows)
{
    Deliver_Frames(Node, 1);
    Captured_Stderr printed;
    allocation_watch::Refuse_Arrays_From(320 * 240 * 2);
    EXPECT_THROW(Capture_Counted(Yuyv, 1), std::bad_alloc);
    allocation_watch::Refuse_Arrays_From(SIZE_MAX);
    EXPECT_EQ(Log().back().request, VIDIOC_STREAMOFF);
    EXPECT_TRUE(session.cFrame_RES.empty());
    EXPECT_TRUE(session.cFrame_Buffer.empty());
    EXPECT_EQ(printed.Text(), Quitting);
}

// This capture never returns, so it runs in a child process that ends itself.
TEST_F(Stream, ARefusedStreamOnKeepsTheLoopInItsReadDespiteAStop)
{
    session.Video_DEAL_WITH_UNINIT();
    EXPECT_EXIT(
        {
            USBCam lonely(&record);
            lonely.Video_DEAL_WITH_INIT(0);
            Fail(Node, VIDIOC_STREAMON, {ENOSPC, -1, Always});
            std::thread([&] {
                Pix_Format mode = Mjpeg;
                lonely.Video_DEAL_WITH(&mode);
                _exit(1);
            }).detach();
            std::this_thread::sleep_for(std::chrono::milliseconds(300));
            lonely.EVENT_LoopMode(0);
            std::this_thread::sleep_for(std::chrono::milliseconds(700));
            _exit(Requests(VIDIOC_DQBUF) > 10 ? 0 : 2);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
