// Looks at a picture five times a second and always takes the newest one, through the class of a session. The frames in
// between go back to the pool unseen.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "USBCam/USBCam.h"

using namespace std::chrono_literals;

// Ends the whole program: no call reaches a capture thread that waits in the driver for a frame.
[[noreturn]] void Give_Up(const char* reason)
{
    std::fprintf(stderr, "%s\n", reason);
    std::_Exit(1);
}

// Takes the newest frame. Gives up when none comes for five seconds.
Frame_Buffer_Data* Newest_Frame(USBCam& session)
{
    for (int i = 0; i < 500; ++i) {
        if (Frame_Buffer_Data* frame = session.GET_FRAME_BUFF_NEWEST(false)) {
            return frame;
        }
        std::this_thread::sleep_for(10ms);
    }
    Give_Up("no frame for five seconds: the camera is busy, unplugged or did not start");
}

void Watch(v4l2_dev_sys_data_t& camera)
{
    USBCam session(&camera);
    session.Video_DEAL_WITH_INIT(0);
    Pix_Format mode = {0, 640, 480, 30};  // 0 asks for Motion-JPEG
    std::thread capture([&] { session.Video_DEAL_WITH(&mode); });
    for (int looks = 0; looks < 5; ++looks) {
        std::this_thread::sleep_for(200ms);  // a slow program
        Frame_Buffer_Data* frame = Newest_Frame(session);
        std::printf("frame %u, %u bytes\n", frame->index, frame->buffer.bytesused);
        session.SAVE_FRAME_RES(frame);
    }
    session.EVENT_LoopMode(0);
    capture.join();
    session.Video_Stream_Clear_Frame_Buff();
    session.Video_DEAL_WITH_UNINIT();
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
    Watch(cameras[0]);
    WQZ_USBCam_DEVICE_FREE(cameras, count);
}
