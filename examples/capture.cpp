// Saves ten Motion-JPEG pictures of the first camera as picture-0.jpg to picture-9.jpg.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "USBCam_API/USBCam_API.h"

int main()
{
    v4l2_dev_sys_data_t* cameras = nullptr;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF);
    if (count < 1) {
        std::fprintf(stderr, "no camera found\n");
        WQZ_USBCam_DEVICE_FREE(cameras, count);
        return 1;
    }
    void* camera = WQZ_USBCam_CREATE_DEVICE_POINT(cameras[0]);
    WQZ_USBCam_Video_DEAL_WITH_INIT(camera, 0);
    const Pix_Format mode = {0, 640, 480, 30};  // 0 asks for Motion-JPEG
    std::thread capture([=] { WQZ_USBCam_Video_DEAL_WITH(camera, mode); });

    for (int saved = 0, idle = 0; saved < 10;) {
        Frame_Buffer_Data* frame = WQZ_USBCam_GET_FRAME_BUFF(camera, false);
        if (frame == nullptr) {
            if (++idle == 500) {
                std::_Exit(1);  // five seconds without a frame: the loop may never return
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            continue;
        }
        idle = 0;
        if (FILE* file = std::fopen(("picture-" + std::to_string(saved++) + ".jpg").c_str(), "wb")) {
            std::fwrite(frame->pMem, 1, frame->buffer.bytesused, file);
            std::fclose(file);
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
