// The counted capture loop that hands each frame to the task of its format, and the tasks.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Device/device_wait.h"
#include "Video/Video_Device.h"

namespace {

constexpr timeval Frame_Time_Out{100, 0};

// A frame on its way to a task. Its bytes are freed with it, also when the task has replaced pMem.
struct Task_Frame {
    Task_Frame() = default;
    Task_Frame(const Task_Frame&) = delete;
    Task_Frame& operator=(const Task_Frame&) = delete;
    ~Task_Frame() { delete[] static_cast<uint8_t*>(buffer.sBuf.pMem); }
    Frame_Buffer buffer;
};

// The first registration stays: a task is never replaced.
int32_t Register_Task(pExe& slot, pExe task)
{
    if (slot != nullptr) {
        return -1;
    }
    slot = task;
    return 0;
}

void Dispatch_Frame(const Video_Device& device, Frame_Buffer_Data& frame, PVOID Arg)
{
    if (frame.PixFormat.u_PixFormat == V4L2_PIX_FMT_MJPEG) {
        if (device.MJPEG_Task != nullptr) {
            auto length =
                static_cast<uint32_t>(Frame_Buffer::MJPEG_Length(static_cast<uint8_t*>(frame.pMem), &frame.buffer));
            (void)device.MJPEG_Task(&length, &frame, Arg);
        }
        return;
    }
    const bool yuv = frame.PixFormat.u_PixFormat == V4L2_PIX_FMT_YUYV &&
                     device.Yuv_mode_select == Video_Stream_EXE_Base_Class::YUV_Mode;
    const pExe task = yuv ? device.YUV_Task : device.Unusual_Task;
    if (task != nullptr) {
        (void)task(nullptr, &frame, Arg);
    }
}

void Deliver_Frame(Video_Device& device, PVOID Arg)
{
    Task_Frame frame;
    Frame_Buffer_Data& data = *frame.buffer.Get_Frame_Buff_data();
    // A failed read is dispatched like any other, and the task sees an empty record.
    (void)Frame_Buffer::read_buff(static_cast<uint32_t>(device.Video_Device_FD), device.LC_Buffer_List, &data);
    data.PixFormat = device.Get_Current_PixFormat();
    data.fd = device.Get_Video_Device_FD();
    std::memcpy(data.device_path, device.S_Dev_Message.Device_Path, sizeof data.device_path);
    Dispatch_Frame(device, data, Arg);
}

}  // namespace

int32_t Video_Device::Set_Task_MJPEG(pExe p)
{
    return Register_Task(MJPEG_Task, p);
}

int32_t Video_Device::Set_Task_YUV(pExe p)
{
    return Register_Task(YUV_Task, p);
}

int32_t Video_Device::Set_Task_Unusual(pExe p)
{
    return Register_Task(Unusual_Task, p);
}

void Video_Device::Set_YUV_Mode(YUV_MODE val)
{
    Yuv_mode_select = val;
}

int32_t Video_Device::Video_Exe(uint32_t Count, PVOID Arg)
{
    int32_t ready = 0;
    for (uint32_t frames = 0; frames < Count;) {
        ready = Wait_Readable(Video_Device_FD, Frame_Time_Out);
        if (ready == -1) {
            if (errno != EINTR) {
                perror("Fail to select");
            }
        } else if (ready == 0) {
            fprintf(stderr, "select Timeout\n");
        } else {
            Deliver_Frame(*this, Arg);
            ++frames;
        }
    }
    return ready;
}

int32_t Video_Device::Video_Exe_Start()
{
    return 0;
}

int32_t Video_Device::Video_Exe_End()
{
    exec_eqit();
    return 0;
}

void Video_Device::exec()
{
}

void Video_Device::exec_start()
{
}

void Video_Device::exec_eqit()
{
    (void)Video_Stream_Clear_Frame_Buff();
    (void)Video_Stream_Stop_Stream();
    (void)Video_Close();
}
