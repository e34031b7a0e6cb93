// Captures 30 Motion-JPEG and 30 YUYV frames of the first camera through the session functions: .jpg and .bmp files.
#include <algorithm>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "session_frames.h"

// Prefers 640x480, and then the highest rate up to 30 frames per second.
bool Is_Better(const Pix_Format& mode, const Pix_Format& than)
{
    const auto rating = [](const Pix_Format& m) {
        const bool has_size = m.u_Width == 640 && m.u_Height == 480;
        return (has_size ? 1000 : 0) + (m.u_Fps <= 30 ? static_cast<int>(m.u_Fps) : 0);
    };
    return rating(mode) > rating(than);
}

// A request names its format by 0 for Motion-JPEG and 1 for YUYV; the camera's list names it by its FourCC.
bool Choose_Mode(void* session, uint32_t fourcc, Pix_Format& request)
{
    std::vector<Pix_Format> modes(static_cast<size_t>(std::max(WQZ_USBCam_Get_Format_List_Size(session), 0)));
    WQZ_USBCam_Get_Format_List(session, modes.data());
    modes.erase(std::remove_if(modes.begin(), modes.end(), [=](const auto& m) { return m.u_PixFormat != fourcc; }),
                modes.end());
    if (modes.empty()) {
        return false;
    }
    request = *std::min_element(modes.begin(), modes.end(), Is_Better);
    request.u_PixFormat = fourcc == V4L2_PIX_FMT_MJPEG ? 0 : 1;
    return true;
}

// Each capture has a session of its own; see "Capturing again" in docs/session.md.
void Capture(const v4l2_dev_sys_data_t& camera, uint32_t fourcc, const char* name, const std::string& folder)
{
    void* session = WQZ_USBCam_CREATE_DEVICE_POINT(camera);
    WQZ_USBCam_Video_DEAL_WITH_INIT(session, 0);
    Pix_Format request = {};
    if (Choose_Mode(session, fourcc, request)) {
        std::printf("%s %ux%u at %u frames per second\n", name, request.u_Width, request.u_Height, request.u_Fps);
        std::thread capture([=] { WQZ_USBCam_Video_DEAL_WITH(session, request); });
        for (int i = 1; i <= 30; ++i) {
            char number[8];
            std::snprintf(number, sizeof number, "%02d", i);
            Frame_Buffer_Data* frame = Next_Frame(session);
            Save(*frame, folder + "/frame-" + number);
            WQZ_USBCam_SAVE_FRAME_RES(session, frame);
        }
        WQZ_USBCam_EVENT_LoopMode(session, 0);
        capture.join();
    } else {
        std::printf("the camera has no %s mode\n", name);
    }
    WQZ_USBCam_Clear_Frame_Buff(session);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(session);
    WQZ_USBCam_DELETE_DEVICE_POINT(session);
}

int main(int argc, char** argv)
{
    if (argc != 2) {
        Give_Up("usage: session_demo FOLDER");
    }
    v4l2_dev_sys_data_t* cameras = nullptr;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF);
    if (count < 1) {
        Give_Up("no camera found");
    }
    // A session opens Device_Path, which discovery fills for USB cameras only.
    std::snprintf(cameras[0].Device_Path, sizeof cameras[0].Device_Path, "%s", cameras[0].device);
    Capture(cameras[0], V4L2_PIX_FMT_MJPEG, "Motion-JPEG", argv[1]);
    Capture(cameras[0], V4L2_PIX_FMT_YUYV, "YUYV", argv[1]);
    WQZ_USBCam_DEVICE_FREE(cameras, count);
}
