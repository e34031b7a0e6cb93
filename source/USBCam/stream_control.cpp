// The session's capture loop, and the count of frames that wait for the application.
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Device/device_wait.h"
#include "Stream/YUV/yuv_stream.h"
#include "Trace/trace.h"
#include "USBCam/frame_record.h"
#include "USBCam/USBCam.h"

namespace {

constexpr Trace_Module Module = {"source//USBCam/USBCam"};

// The trace lines of this file. Trace numbers are fixed identifiers, not source lines; do not renumber them.
namespace mark {
constexpr Trace_Line Capture = Module.Start(664, "Video_DEAL_WITH");
constexpr Trace_Line Not_Open = Module.End(691, "Video_DEAL_WITH");
constexpr Trace_Line Open = Module.Plain(698, "Video_DEAL_WITH");
constexpr Trace_Line Streaming = Module.Plain(722, "Video_DEAL_WITH");
constexpr Trace_Line Next_Frame = Module.Plain(731, "Video_DEAL_WITH");
constexpr Trace_Line Waited = Module.Plain(779, "Video_DEAL_WITH");
constexpr Trace_Line Reading = Module.Plain(805, "Video_DEAL_WITH");
constexpr Trace_Line Frame_Read = Module.Plain(809, "Video_DEAL_WITH");
constexpr Trace_Line Yuyv_Frame = Module.Plain(819, "Video_DEAL_WITH");
constexpr Trace_Line Mjpeg_Frame = Module.Plain(852, "Video_DEAL_WITH");
constexpr Trace_Line Quitting = Module.Plain(894, "Video_DEAL_WITH");
constexpr Trace_Line Stopped = Module.Plain(904, "Video_DEAL_WITH");
constexpr Trace_Line Capture_Done = Module.End(922, "Video_DEAL_WITH");
constexpr Trace_Line Status = Module.Start(162, "Video_STREAM_STATUS");
constexpr Trace_Line Status_Ready = Module.End(168, "Video_STREAM_STATUS");
constexpr Trace_Line Status_Ready_After_Wait = Module.End(180, "Video_STREAM_STATUS");
constexpr Trace_Line Status_None_After_Wait = Module.End(185, "Video_STREAM_STATUS");
constexpr Trace_Line Status_None = Module.End(192, "Video_STREAM_STATUS");
}  // namespace mark

constexpr uint32_t Pool_Records = 8;
constexpr uint32_t Kernel_Buffers = 4;  // fewer starve a driver at 60 frames per second
constexpr timeval Frame_Time_Out{1, 2000};
constexpr useconds_t Record_Pause_Us = 3000;  // between looks for a record when the application holds them all

constexpr uint32_t Delivered_Mjpeg = 0;
constexpr uint32_t Delivered_Yuyv = 1;

// Whether the budget ends the loop: neither endless nor positive.
bool Is_Spent(int32_t budget)
{
    return budget != -1 && budget <= 0;
}

// Takes one from a counted budget. A value that another thread stores meanwhile is kept and decides instead.
// @return whether the loop goes on
bool Spend_Budget(int32_t& iLoopMode)
{
    std::atomic_ref budget(iLoopMode);
    int32_t left = budget.load(std::memory_order_relaxed);
    while (left > 0 && !budget.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
    }
    return !Is_Spent(left);
}

void Set_Up_Stream(Video_Device& device, const Pix_Format& mode)
{
    // The session's contract ignores every result. After a refused or adjusted format, frames come in the driver's mode
    // and are labelled as asked; after refused buffers or a refused start, none come.
    const uint32_t pixel_format = mode.u_PixFormat == 0 ? V4L2_PIX_FMT_MJPEG : V4L2_PIX_FMT_YUYV;
    (void)device.Video_Stream_Set_Format(pixel_format, mode.u_Width, mode.u_Height);
    (void)device.Video_Stream_Set_Frame_Rate(1, mode.u_Fps);
    (void)device.Video_Stream_Set_Frame_Buff(Kernel_Buffers);
    (void)device.Video_Stream_Start_Stream();
}

// @return whether a frame can be read
bool Wait_For_Frame(int32_t fd)
{
    const int32_t ready = Wait_Readable(fd, Frame_Time_Out);
    const int error = errno;
    Trace(mark::Waited);
    if (ready == -1) {
        if (error != EINTR) {
            errno = error;
            perror("Fail to select");
        }
        return false;
    }
    if (ready == 0) {
        fprintf(stderr, "select Timeout\n");
        return false;
    }
    return true;
}

// Turns the device's label into the one that applications see, and YUYV bytes into a bitmap.
// @return false for a format that is not delivered
bool Finish_Frame(Frame_Buffer_Data& frame, const Pix_Format& mode)
{
    if (frame.PixFormat.u_PixFormat == V4L2_PIX_FMT_YUYV) {
        Trace(mark::Yuyv_Frame);
        (void)YUV_Stream::Frame_buffer_Deal_With(&frame);
        frame.PixFormat.u_PixFormat = Delivered_Yuyv;
    } else if (frame.PixFormat.u_PixFormat == V4L2_PIX_FMT_MJPEG) {
        Trace(mark::Mjpeg_Frame);
        frame.PixFormat.u_PixFormat = Delivered_Mjpeg;
    } else {
        fprintf(stderr, "format Error\n");
        return false;
    }
    frame.PixFormat.u_Width = mode.u_Width;
    frame.PixFormat.u_Height = mode.u_Height;
    return true;
}

// Stamps time and rate. The first frame of a new second closes the count of the one before.
void Stamp_Frame(USBCam& session, Frame_Buffer_Data& frame, int32_t& fps_b)
{
    timeval now{};
    gettimeofday(&now, nullptr);
    if (now.tv_sec - session.tv_b.tv_sec > 0) {
        session.tv_b.tv_sec = now.tv_sec;
        fps_b = session.fps_i;
        session.fps_i = 0;
    }
    frame.PixFormat.u_Fps = static_cast<uint32_t>(fps_b);
    frame.Frame_Time = now;
}

Record_In_Hand Take_Record(USBCam& session, int32_t device)
{
    Record_In_Hand frame(session.GET_FRAME_RES());
    if (frame != nullptr) {
        frame->PixFormat = session.Get_Current_PixFormat();
        frame->fd = device;
        std::memcpy(frame->device_path, session.S_Dev_Message.Device_Path, sizeof frame->device_path);
    }
    return frame;
}

// The application holds every record, so nothing can be read and no budget is spent.
// @return whether the loop goes on
bool Wait_For_Record(USBCam& session)
{
    if (Is_Spent(std::atomic_ref(session.iLoopMode).load(std::memory_order_relaxed))) {
        return false;
    }
    usleep(Record_Pause_Us);
    return true;
}

void Capture_Frames(USBCam& session, int32_t device, const Pix_Format& mode)
{
    Record_In_Hand frame;
    int32_t fps_b = 0;
    for (uint32_t index = 0;;) {
        Trace(mark::Next_Frame);
        if (frame == nullptr) {
            frame = Take_Record(session, device);
        }
        const bool goes_on = frame == nullptr ? Wait_For_Record(session) : Spend_Budget(session.iLoopMode);
        if (!goes_on) {
            return;
        }
        if (frame == nullptr) {
            continue;
        }
        if (!Wait_For_Frame(device)) {
            continue;
        }
        Trace(mark::Reading);
        (void)session.Read_Frame_BUFF(frame.get());  // a failed read is delivered with the record as it is
        Trace(mark::Frame_Read);
        frame->index = index++;
        session.fps_i += 1;
        if (!Finish_Frame(*frame, mode)) {
            continue;
        }
        Stamp_Frame(session, *frame, fps_b);
        session.SAVE_FRAME_BUFF(frame.get());
        (void)frame.release();
    }
}

void End_Capture(USBCam& session)
{
    fprintf(stderr, "QUIT SELECT EVENT!\r\n");
    Trace(mark::Quitting);
    (void)session.Video_Stream_Stop_Stream();
    Trace(mark::Stopped);
    fprintf(stderr, "QUIT SELECT EVENT! Video_Stream_Stop_Stream\r\n");
    session.CLEAR_FRAME_BUFF();
    fprintf(stderr, "QUIT SELECT EVENT! CLEAR_FRAME_BUFF\r\n");
}

}  // namespace

int32_t USBCam::Video_DEAL_WITH(Pix_Format* arg)
{
    Trace(mark::Capture);
    try {
        INIT_FRAME_RES(Pool_Records);
    } catch (...) {
        CLEAR_FRAME_BUFF();  // memory has run out, and users of the flat functions could not free the first records
        throw;
    }
    const int32_t iDev_FD = Get_Video_Device_FD();
    if (iDev_FD <= 0) {
        Trace(mark::Not_Open);
        return -1;
    }
    Trace(mark::Open);
    try {
        Set_Up_Stream(*this, *arg);
        Trace(mark::Streaming);
        Capture_Frames(*this, iDev_FD, *arg);
    } catch (...) {
        // Memory has run out. Users of the flat functions could neither stop the stream nor free the records.
        End_Capture(*this);
        throw;
    }
    End_Capture(*this);
    Trace(mark::Capture_Done);
    return 0;
}

int32_t USBCam::Video_STREAM_STATUS(bool block)
{
    Trace(mark::Status);
    Mutex_Lock_Class lock(cMutex);
    if (!cFrame_Buffer.empty()) {
        Trace(mark::Status_Ready);
        return static_cast<int32_t>(cFrame_Buffer.size());
    }
    if (!block) {
        Trace(mark::Status_None);
        return 0;
    }
    (void)lock.Wait_Cond();  // once: the caller asks again when the wake-up was another consumer's
    if (cFrame_Buffer.empty()) {
        Trace(mark::Status_None_After_Wait);
        return 0;
    }
    Trace(mark::Status_Ready_After_Wait);
    return static_cast<int32_t>(cFrame_Buffer.size());
}
