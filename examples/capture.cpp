// Saves ten Motion-JPEG pictures of the first camera as picture-0.jpg to picture-9.jpg.
#include <sys/ioctl.h>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "USBCam_API/USBCam_API.h"

// Ends the whole program: no call reaches a capture thread that waits in the driver for a frame.
[[noreturn]] void Give_Up(const char* reason)
{
    std::fprintf(stderr, "%s\n", reason);
    std::_Exit(1);
}

// Takes the next frame. Gives up when none comes for five seconds.
Frame_Buffer_Data* Next_Frame(void* camera)
{
    for (int i = 0; i < 500; ++i) {
        if (Frame_Buffer_Data* frame = WQZ_USBCam_GET_FRAME_BUFF(camera, false)) {
            return frame;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Give_Up("no frame for five seconds: the camera is busy, unplugged or did not start");
}

// Whether the camera delivers the requested mode. Frames carry the request's label even when the driver adjusted it.
bool Has_Requested_Mode(const Frame_Buffer_Data& frame)
{
    v4l2_format format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return ioctl(frame.fd, VIDIOC_G_FMT, &format) == 0 && format.fmt.pix.pixelformat == V4L2_PIX_FMT_MJPEG &&
           format.fmt.pix.width == frame.PixFormat.u_Width && format.fmt.pix.height == frame.PixFormat.u_Height;
}

int main()
{
    v4l2_dev_sys_data_t* cameras = nullptr;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF);
    if (count < 1) {
        Give_Up("no camera found");
    }
    // A session opens Device_Path, which discovery fills for USB cameras only.
    std::snprintf(cameras[0].Device_Path, sizeof cameras[0].Device_Path, "%s", cameras[0].device);
    void* camera = WQZ_USBCam_CREATE_DEVICE_POINT(cameras[0]);
    WQZ_USBCam_Video_DEAL_WITH_INIT(camera, 0);
    const Pix_Format mode = {0, 640, 480, 30};  // 0 asks for Motion-JPEG
    std::thread capture([=] { WQZ_USBCam_Video_DEAL_WITH(camera, mode); });

    for (int saved = 0; saved < 10; ++saved) {
        Frame_Buffer_Data* frame = Next_Frame(camera);
        if (!Has_Requested_Mode(*frame)) {
            Give_Up("the camera does not deliver Motion-JPEG at 640x480");
        }
        const std::string name = "picture-" + std::to_string(saved) + ".jpg";
        FILE* file = std::fopen(name.c_str(), "wb");
        if (file == nullptr || std::fwrite(frame->pMem, 1, frame->buffer.bytesused, file) != frame->buffer.bytesused ||
            std::fclose(file) != 0) {
            Give_Up("cannot write a picture");
        }
        WQZ_USBCam_SAVE_FRAME_RES(camera, frame);
    }

    WQZ_USBCam_EVENT_LoopMode(camera, 0);
    capture.join();
    WQZ_USBCam_Clear_Frame_Buff(camera);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(camera);
    WQZ_USBCam_DELETE_DEVICE_POINT(camera);
    WQZ_USBCam_DEVICE_FREE(cameras, count);
}
