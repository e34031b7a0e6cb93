// Runs a session of the library with its capture loop on a thread of its own.
#include "running_session.h"

#include <cstring>

#include "USBCam_API/USBCam_API.h"

Running_Session::Running_Session(const Bench_Camera& camera, Loop_Meter* meter)
{
    v4l2_dev_sys_data_t device{};
    std::strncpy(device.Device_Path, camera.Node().c_str(), sizeof device.Device_Path - 1);
    handle = WQZ_USBCam_CREATE_DEVICE_POINT(device);
    WQZ_USBCam_Video_DEAL_WITH_INIT(handle, 0);
    const Pix_Format mode{camera.fourcc == V4L2_PIX_FMT_MJPEG ? 0U : 1U, camera.width, camera.height, 30};
    capture = std::thread([this, mode, meter] {
        if (meter != nullptr) {
            meter->Attach();
        }
        WQZ_USBCam_Video_DEAL_WITH(handle, mode);
    });
}

Running_Session::~Running_Session()
{
    WQZ_USBCam_EVENT_LoopMode(handle, 0);
    capture.join();
    WQZ_USBCam_Clear_Frame_Buff(handle);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(handle);
    WQZ_USBCam_DELETE_DEVICE_POINT(handle);
}

void Running_Session::Take_Frame()
{
    Frame_Buffer_Data* frame = nullptr;
    while (frame == nullptr) {
        frame = WQZ_USBCam_GET_FRAME_BUFF(handle, true);
    }
    WQZ_USBCam_SAVE_FRAME_RES(handle, frame);
}
