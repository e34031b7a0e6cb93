#include "Video/Video_Device.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Stream/retrying_ioctl.h"
#include "Video/device_wait.h"

using device_request::xioctl;

namespace {

constexpr timeval Frame_Time_Out{100, 0};

// A frame on its way to a task; its bytes end with it.
struct Task_Frame {
    Task_Frame() = default;
    Task_Frame(const Task_Frame&) = delete;
    Task_Frame& operator=(const Task_Frame&) = delete;
    ~Task_Frame() { delete[] static_cast<uint8_t*>(buffer.sBuf.pMem); }
    Frame_Buffer buffer;
};

// First one wins: a registered task is never replaced.
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
    // A failed read is dispatched like any other: tasks see an empty record.
    (void)Frame_Buffer::read_buff(static_cast<uint32_t>(device.Video_Device_FD), device.LC_Buffer_List, &data);
    data.PixFormat = device.Get_Current_PixFormat();
    data.fd = device.Get_Video_Device_FD();
    std::memcpy(data.device_path, device.S_Dev_Message.Device_Path, sizeof data.device_path);
    Dispatch_Frame(device, data, Arg);
}

}  // namespace

Video_Device::Video_Device(v4l2_dev_sys_data_t* dev)
    : S_Dev_Message(*dev),
      C_V4L2_VC_Pu(0),
      u_VideoStream_Queue_buff(0),
      C_PixFormat(),
      Video_Device_FD(0),
      MJPEG_Task(nullptr),
      YUV_Task(nullptr),
      Unusual_Task(nullptr),
      Yuv_mode_select(YUV_Mode)
{
}

Video_Device::~Video_Device() = default;

int32_t Video_Device::Get_Video_Device_FD()
{
    return Video_Device_FD;
}

Pix_Format Video_Device::Get_Current_PixFormat()
{
    return C_PixFormat;
}

int32_t Video_Device::Video_Open()
{
    Video_Device_FD = open(S_Dev_Message.Device_Path, O_RDWR);
    if (Video_Device_FD == -1) {
        perror("Open false:");
    }
    C_V4L2_VC_Pu.init(static_cast<uint32_t>(Video_Device_FD));
    return Video_Device_FD;
}

int32_t Video_Device::Video_Close()
{
    if (Video_Device_FD < 1) {
        return Video_Device_FD;
    }
    (void)close(Video_Device_FD);
    Video_Device_FD = 0;
    return 0;
}

int32_t Video_Device::Video_Stream_Set_Format(uint32_t u_Pixlformat, uint32_t u_Width, uint32_t u_Height)
{
    auto format = v4l2_format();  // empty braces need not clear a union beyond its first member
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = u_Width;
    format.fmt.pix.height = u_Height;
    format.fmt.pix.pixelformat = u_Pixlformat;
    format.fmt.pix.field = V4L2_FIELD_ANY;
    const int32_t result = xioctl(Video_Device_FD, VIDIOC_S_FMT, &format);
    // The request, not the driver's answer: frames are labelled by it.
    C_PixFormat.u_PixFormat = u_Pixlformat;
    C_PixFormat.u_Width = u_Width;
    C_PixFormat.u_Height = u_Height;
    return result;
}

int32_t Video_Device::Video_Stream_Set_Frame_Rate(uint32_t u_Fps_num, uint32_t u_Fps_denom)
{
    auto parameters = v4l2_streamparm();
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    (void)xioctl(Video_Device_FD, VIDIOC_G_PARM, &parameters);
    parameters.parm.capture.timeperframe.numerator = u_Fps_num;
    parameters.parm.capture.timeperframe.denominator = u_Fps_denom;
    return xioctl(Video_Device_FD, VIDIOC_S_PARM, &parameters);
}

int32_t Video_Device::Video_Stream_Set_Frame_Buff(uint32_t u_Queue_buff)
{
    auto request = v4l2_requestbuffers();
    request.count = u_Queue_buff;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    const int32_t result = xioctl(Video_Device_FD, VIDIOC_REQBUFS, &request);

    u_VideoStream_Queue_buff = u_Queue_buff == 0 ? 1 : u_Queue_buff;
    const auto device = static_cast<uint32_t>(Video_Device_FD);
    for (uint32_t i = 0; i < u_VideoStream_Queue_buff; ++i) {
        Frame_Buffer& buffer = LC_Buffer_List.emplace_back();
        buffer.sBuf.index = i;
        (void)buffer.query_buff(device);
    }
    for (Frame_Buffer& buffer : LC_Buffer_List) {
        (void)buffer.queue_buff(device);
    }
    return result;
}

int32_t Video_Device::Video_Stream_Clear_Frame_Buff()
{
    for (Frame_Buffer& buffer : LC_Buffer_List) {
        if (buffer.sBuf.pMem != MAP_FAILED) {
            (void)buffer.unmap_buff();
        }
    }
    LC_Buffer_List.clear();
    return 0;
}

int32_t Video_Device::Video_Stream_Start_Stream()
{
    int32_t type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return xioctl(Video_Device_FD, VIDIOC_STREAMON, &type);
}

int32_t Video_Device::Video_Stream_Stop_Stream()
{
    int32_t type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return xioctl(Video_Device_FD, VIDIOC_STREAMOFF, &type);
}

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
