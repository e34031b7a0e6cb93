#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>

#include "Stream/frame_transfer.h"
#include "Stream/retrying_ioctl.h"
#include "Stream/YUV/yuv_stream.h"
#include "USBCam/frame_record.h"
#include "USBCam/USBCam.h"
#include "USBCam_API/trace.h"
#include "Video/device_wait.h"

namespace {

constexpr Text Module = "source//USBCam/USBCam";

constexpr uint32_t Pool_Records = 8;
constexpr uint32_t Kernel_Buffers = 4;  // fewer starve a driver at 60 frames per second
constexpr timeval Frame_Time_Out{1, 2000};
constexpr useconds_t Record_Pause_Us = 3000;  // between looks for a record when the application holds them all

constexpr int32_t Request_Tries = 2000;
constexpr useconds_t Request_Pause_Us = 1000;   // after every attempt
constexpr useconds_t Refused_Pause_Us = 10000;  // after a refused one, on top

constexpr uint32_t Delivered_Mjpeg = 0;
constexpr uint32_t Delivered_Yuyv = 1;

// The session's own rule: a refused request is repeated without end, which makes a read wait for its frame.
int32_t xioctl(int32_t fd, uint32_t IOCTL_X, void* arg)
{
    for (int32_t tries = Request_Tries;;) {
        const int32_t result = ioctl(fd, IOCTL_X, arg);
        const int error = errno;
        usleep(Request_Pause_Us);
        if (result == -1) {
            usleep(Refused_Pause_Us);
            continue;
        }
        if (result == 0 || tries == 0 || !Is_Passing_Error(error)) {
            return result;
        }
        --tries;
    }
}

// Whether the budget ends the loop: neither endless nor positive.
bool Is_Spent(int32_t budget)
{
    return budget != -1 && budget <= 0;
}

// Takes one from a counted budget, unless another thread stored a new value meanwhile: that one is looked at then.
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
    // Refused settings do not end the capture; frames then do not come.
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
    Trace<Module, 779, "Video_DEAL_WITH", Mark::Plain>();
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
        Trace<Module, 819, "Video_DEAL_WITH", Mark::Plain>();
        (void)YUV_Stream::Frame_buffer_Deal_With(&frame);
        frame.PixFormat.u_PixFormat = Delivered_Yuyv;
    } else if (frame.PixFormat.u_PixFormat == V4L2_PIX_FMT_MJPEG) {
        Trace<Module, 852, "Video_DEAL_WITH", Mark::Plain>();
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

void Capture_Frames(USBCam& session, int32_t device, const Pix_Format& mode)
{
    Record_In_Hand frame;
    int32_t fps_b = 0;
    for (uint32_t index = 0;;) {
        Trace<Module, 731, "Video_DEAL_WITH", Mark::Plain>();
        if (frame == nullptr) {
            frame = Take_Record(session, device);
        }
        if (frame == nullptr) {
            // The application holds every record: nothing can be read, so nothing is spent.
            if (Is_Spent(std::atomic_ref(session.iLoopMode).load(std::memory_order_relaxed))) {
                return;
            }
            usleep(Record_Pause_Us);
            continue;
        }
        if (!Spend_Budget(session.iLoopMode)) {
            return;
        }
        if (!Wait_For_Frame(device)) {
            continue;
        }
        Trace<Module, 805, "Video_DEAL_WITH", Mark::Plain>();
        (void)session.Read_Frame_BUFF(frame.get());  // a failed read is delivered with the record as it is
        Trace<Module, 809, "Video_DEAL_WITH", Mark::Plain>();
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

}  // namespace

int32_t USBCam::Read_Frame_BUFF(Frame_Buffer_Data* pBuffer)
{
    Trace<Module, 558, "Read_Frame_BUFF", Mark::Start>();
    std::optional<int32_t> result;
    if (!LC_Buffer_List.empty()) {
        result = Transfer_Frame(Get_Video_Device_FD(), LC_Buffer_List, *pBuffer, xioctl);
    }
    if (!result) {
        Trace<Module, 580, "Read_Frame_BUFF", Mark::End>();
        return -1;
    }
    Trace<Module, 639, "Read_Frame_BUFF", Mark::End>();
    return *result;
}

int32_t USBCam::Video_DEAL_WITH(Pix_Format* arg)
{
    Trace<Module, 664, "Video_DEAL_WITH", Mark::Start>();
    INIT_FRAME_RES(Pool_Records);
    const int32_t iDev_FD = Get_Video_Device_FD();
    if (iDev_FD <= 0) {
        Trace<Module, 691, "Video_DEAL_WITH", Mark::End>();
        return -1;
    }
    Trace<Module, 698, "Video_DEAL_WITH", Mark::Plain>();
    Set_Up_Stream(*this, *arg);
    Trace<Module, 722, "Video_DEAL_WITH", Mark::Plain>();

    Capture_Frames(*this, iDev_FD, *arg);

    fprintf(stderr, "QUIT SELECT EVENT!\r\n");
    Trace<Module, 894, "Video_DEAL_WITH", Mark::Plain>();
    (void)Video_Stream_Stop_Stream();
    Trace<Module, 904, "Video_DEAL_WITH", Mark::Plain>();
    fprintf(stderr, "QUIT SELECT EVENT! Video_Stream_Stop_Stream\r\n");
    CLEAR_FRAME_BUFF();
    fprintf(stderr, "QUIT SELECT EVENT! CLEAR_FRAME_BUFF\r\n");
    Trace<Module, 922, "Video_DEAL_WITH", Mark::End>();
    return 0;
}
