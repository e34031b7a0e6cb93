// The bare device's capture loop: which frame reaches which task, what is retried, how it ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "support/allocation_watch.h"
#include "support/camera_fixture.h"
#include "support/watched_device.h"
#include "Video/Video_Device.h"

namespace {

using namespace virtual_camera;

struct Call {
    std::string task;
    bool has_context = false;
    uint32_t length = 0;
    Frame_Buffer_Data frame{};
    std::vector<uint8_t> bytes;
};

struct Calls {
    std::vector<Call> list;
};

int32_t Note(const char* task, void* context, Frame_Buffer_Data* frame, void* user)
{
    Call call;
    call.task = task;
    call.has_context = context != nullptr;
    call.length = context == nullptr ? 0 : *static_cast<uint32_t*>(context);
    call.frame = *frame;
    const auto* bytes = static_cast<const uint8_t*>(frame->pMem);
    if (bytes != nullptr) {
        call.bytes.assign(bytes, bytes + frame->buffer.bytesused);
    }
    static_cast<Calls*>(user)->list.push_back(call);
    return -7;  // ignored by the loop
}

int32_t Mjpeg(void* context, Frame_Buffer_Data* frame, void* user)
{
    return Note("mjpeg", context, frame, user);
}

int32_t Yuv(void* context, Frame_Buffer_Data* frame, void* user)
{
    return Note("yuv", context, frame, user);
}

int32_t Unusual(void* context, Frame_Buffer_Data* frame, void* user)
{
    return Note("unusual", context, frame, user);
}

class Task_Loop : public Camera_Fixture {
protected:
    Task_Loop() : record(Camera_Record()), device(&record) {}
    ~Task_Loop() override { device.Video_Exe_End(); }

    void Start(uint32_t fourcc)
    {
        device.Video_Open();
        device.Video_Stream_Set_Format(fourcc, 320, 240);
        device.Video_Stream_Set_Frame_Rate(1, 30);
        device.Video_Stream_Set_Frame_Buff(4);
        Hold_Frames(Node);
        device.Video_Stream_Start_Stream();
        Deliver_Frames(Node, 1000);
        EXPECT_EQ(device.Video_Exe_Start(), 0);
    }

    void Register_All()
    {
        EXPECT_EQ(device.Set_Task_MJPEG(Mjpeg), 0);
        EXPECT_EQ(device.Set_Task_YUV(Yuv), 0);
        EXPECT_EQ(device.Set_Task_Unusual(Unusual), 0);
    }

    std::string Reached()
    {
        std::string names;
        for (const Call& call : calls.list) {
            names += call.task + " ";
        }
        return names;
    }

    v4l2_dev_sys_data_t record;
    Video_Device device;
    Calls calls;
};

TEST_F(Task_Loop, MotionJpegFramesReachTheirTaskWithTheImageLength)
{
    Start(V4L2_PIX_FMT_MJPEG);
    Register_All();
    EXPECT_EQ(device.Video_Exe(2, &calls), 1);
    ASSERT_EQ(Reached(), "mjpeg mjpeg ");
    for (const Call& call : calls.list) {
        EXPECT_TRUE(call.has_context);
        EXPECT_EQ(call.length, call.frame.buffer.bytesused);
        EXPECT_EQ(call.frame.fd, device.Video_Device_FD);
        EXPECT_STREQ(call.frame.device_path, Node);
        EXPECT_EQ(call.frame.PixFormat.u_PixFormat, V4L2_PIX_FMT_MJPEG);
        EXPECT_EQ(call.frame.PixFormat.u_Width, 320U);
        EXPECT_EQ(call.bytes, Frame_Bytes(Node, call.frame.buffer.sequence));
    }
    EXPECT_EQ(calls.list[1].frame.buffer.sequence, calls.list[0].frame.buffer.sequence + 1);

    std::vector<uint8_t> damaged = calls.list[0].bytes;
    damaged.pop_back();
    Push_Frame(Node, damaged);
    device.Video_Exe(5, &calls);
    EXPECT_TRUE(std::any_of(calls.list.begin(), calls.list.end(), [](const Call& call) { return call.length == ~0U; }))
        << "a damaged image has the length -1";
}

TEST_F(Task_Loop, YuyvFramesReachTheTaskThatTheYuvModeSelects)
{
    Start(V4L2_PIX_FMT_YUYV);
    Register_All();
    device.Video_Exe(1, &calls);
    device.Set_YUV_Mode(static_cast<Video_Stream_EXE_Base_Class::YUV_MODE>(2));
    device.Video_Exe(1, &calls);
    device.Set_YUV_Mode(Video_Stream_EXE_Base_Class::YUV_Mode);
    device.Video_Exe(1, &calls);
    EXPECT_EQ(Reached(), "yuv unusual yuv ");
    for (const Call& call : calls.list) {
        EXPECT_FALSE(call.has_context);
        EXPECT_EQ(call.bytes, Frame_Bytes(Node, call.frame.buffer.sequence));
    }
}

TEST_F(Task_Loop, OtherFormatsReachTheUnusualTask)
{
    Start(V4L2_PIX_FMT_GREY);
    Register_All();
    device.Video_Exe(2, &calls);
    EXPECT_EQ(Reached(), "unusual unusual ");
    EXPECT_FALSE(calls.list[0].has_context);
}

TEST_F(Task_Loop, FramesWithoutATaskCountAndAreDropped)
{
    Start(V4L2_PIX_FMT_MJPEG);
    device.Set_Task_Unusual(Unusual);
    device.Set_Task_YUV(Yuv);
    EXPECT_EQ(device.Video_Exe(3, &calls), 1);
    EXPECT_EQ(Reached(), "");
    EXPECT_EQ(Requests(VIDIOC_DQBUF), 3);
}

TEST_F(Task_Loop, TheFirstTaskOfAKindStays)
{
    Video_Stream_EXE_Base_Class& tasks = device;
    EXPECT_EQ(tasks.Set_Task_MJPEG(Mjpeg), 0);
    EXPECT_EQ(tasks.Set_Task_MJPEG(Unusual), -1);
    EXPECT_EQ(tasks.Set_Task_YUV(Yuv), 0);
    EXPECT_EQ(tasks.Set_Task_YUV(nullptr), -1);
    EXPECT_EQ(tasks.Set_Task_Unusual(Unusual), 0);
    EXPECT_EQ(tasks.Set_Task_Unusual(Unusual), -1);
    Start(V4L2_PIX_FMT_MJPEG);
    device.Video_Exe(1, &calls);
    EXPECT_EQ(Reached(), "mjpeg ");
}

TEST_F(Task_Loop, TimeOutsAndFailuresOfSelectAreRetried)
{
    Start(V4L2_PIX_FMT_MJPEG);
    Register_All();
    Clear_Log();
    Script_Select(Node, 0, 0, 2);
    Script_Select(Node, -1, EINTR);
    Script_Select(Node, -1, ENOMEM);
    Captured_Stderr printed;
    EXPECT_EQ(device.Video_Exe(1, &calls), 1);
    EXPECT_EQ(printed.Text(), "select Timeout\nselect Timeout\nFail to select: Cannot allocate memory\n");
    EXPECT_EQ(Log_Names(), "select select select select select VIDIOC_DQBUF VIDIOC_QBUF");
    for (const Log_Entry& entry : Log()) {
        if (entry.request == Call_Select) {
            EXPECT_EQ(entry.timeout_us, 100'000'000) << "set afresh for every wait";
            EXPECT_EQ(entry.value, device.Video_Device_FD + 1);
        }
    }
}

TEST_F(Task_Loop, ACountOfZeroReturnsWithoutWaiting)
{
    Start(V4L2_PIX_FMT_MJPEG);
    Clear_Log();
    EXPECT_EQ(device.Video_Exe(0, &calls), 0);
    EXPECT_EQ(Log_Names(), "");
}

TEST_F(Task_Loop, AFailedReadStillReachesItsTask)
{
    Start(V4L2_PIX_FMT_MJPEG);
    Register_All();
    Captured_Stderr printed;
    Fail(Node, VIDIOC_DQBUF, {EIO, -2});
    device.Video_Exe(1, &calls);
    Fail_With(VIDIOC_DQBUF, {EIO});
    device.Video_Exe(1, &calls);
    ASSERT_EQ(Reached(), "mjpeg mjpeg ");
    EXPECT_EQ(calls.list[0].frame.pMem, nullptr);
    EXPECT_EQ(calls.list[0].length, ~0U);
    EXPECT_NE(calls.list[1].frame.pMem, nullptr);
    EXPECT_TRUE(calls.list[1].bytes.empty());
    EXPECT_EQ(calls.list[1].length, ~0U);
}

TEST_F(Task_Loop, TheEndOfADeviceThatWasNeverOpenedIsHarmless)
{
    Captured_Stderr printed;
    EXPECT_EQ(device.Video_Exe_End(), 0);
    EXPECT_EQ(Log_Names(), "");
}

// Frees the frame's bytes and leaves others, or nothing when `user` is null.
int32_t Replace_Memory(void* /*context*/, Frame_Buffer_Data* frame, void* user)
{
    delete[] static_cast<uint8_t*>(frame->pMem);
    frame->pMem = user == nullptr ? nullptr : new uint8_t[10];
    allocation_watch::Watch(frame->pMem);
    return 0;
}

TEST_F(Task_Loop, TheLoopFreesTheMemoryThatTheTaskLeftInTheRecord)
{
    Start(V4L2_PIX_FMT_GREY);
    device.Set_Task_Unusual(Replace_Memory);
    device.Video_Exe(1, &calls);
    EXPECT_EQ(allocation_watch::Times_Deleted(), 1);
    device.Video_Exe(1, nullptr);  // a second delete of the old block would end the program
}

TEST_F(Task_Loop, LabelAndEndCallTheDerivedClass)
{
    constexpr int32_t shown_fd = 4711;
    Watched<Video_Device> watched(&record);
    watched.Video_Open();
    watched.Video_Stream_Set_Format(V4L2_PIX_FMT_YUYV, 320, 240);
    watched.Video_Stream_Set_Frame_Buff(2);
    watched.Video_Stream_Start_Stream();
    watched.Set_Task_YUV(Yuv);
    watched.Set_Task_Unusual(Unusual);
    watched.label = {V4L2_PIX_FMT_GREY, 1, 2, 3};
    watched.shown_fd = shown_fd;
    watched.calls.clear();
    watched.Video_Exe(1, &calls);
    EXPECT_EQ(watched.calls, "Get_Current_PixFormat Get_Video_Device_FD ");
    ASSERT_EQ(Reached(), "unusual ");
    EXPECT_EQ(calls.list[0].frame.PixFormat.u_Fps, 3U);
    EXPECT_EQ(calls.list[0].frame.fd, shown_fd);
    EXPECT_EQ(Requests(VIDIOC_DQBUF), 1) << "the loop reads from Video_Device_FD itself";
    watched.calls.clear();
    watched.Video_Exe_End();
    EXPECT_EQ(watched.calls, "Video_Stream_Clear_Frame_Buff Video_Stream_Stop_Stream Video_Close ");
}

}  // namespace
