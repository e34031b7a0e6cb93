// Reading and writing V4L2 controls.
#include "Video/video_control.h"

#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Reads and writes report the same text, the word "get" included; programs look for it.
void Report_Refusal()
{
    fprintf(stderr, "ioctl get control error , errno = 0x%x, str = %s\n", static_cast<unsigned>(errno),
            strerror(errno));
}

}  // namespace

V4L2_Video_Control_Pu::V4L2_Video_Control_Pu() : VC_fd(0)
{
}

V4L2_Video_Control_Pu::V4L2_Video_Control_Pu(uint32_t fd) : VC_fd(fd)
{
}

V4L2_Video_Control_Pu::~V4L2_Video_Control_Pu() = default;

void V4L2_Video_Control_Pu::init(uint32_t fd)
{
    VC_fd = fd;
}

void V4L2_Video_Control_Pu::uninit()
{
    VC_fd = 0;
}

int32_t V4L2_Video_Control_Pu::V4L2_Static_Pu_Get_Control(uint32_t OperVal, int32_t* pVal)
{
    if (VC_fd == 0) {
        return -1;
    }
    *pVal = 0;
    v4l2_control control{};
    control.id = OperVal;
    if (ioctl(static_cast<int32_t>(VC_fd), VIDIOC_G_CTRL, &control) < 0) {
        Report_Refusal();
        return -1;
    }
    *pVal = control.value;
    return 0;
}

int32_t V4L2_Video_Control_Pu::V4L2_Static_Pu_Set_Control(uint32_t OperVal, int32_t Val)
{
    if (VC_fd == 0) {
        return -1;
    }
    v4l2_control control{};
    control.id = OperVal;
    control.value = Val;
    if (ioctl(static_cast<int32_t>(VC_fd), VIDIOC_S_CTRL, &control) < 0) {
        Report_Refusal();
        return -1;
    }
    fprintf(stderr, "ioctl get control success \n");
    return 0;
}
