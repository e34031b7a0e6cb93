// One capture node: open, set up, stream on and off, close.
#include "Video/Video_Device.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>

#include "Device/retrying_ioctl.h"

using device_request::xioctl;

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
    // Frames are labelled by the request, not by the driver's answer.
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
