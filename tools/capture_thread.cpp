// Starts and stops the capture loop, with limited patience.
#include "capture_thread.h"

#include <cstdlib>

Capture_Thread::Capture_Thread(void* camera_handle, Pix_Format request)
    : handle(camera_handle),
      loop([camera_handle, request] { return WQZ_USBCam_Video_DEAL_WITH(camera_handle, request); }),
      result(loop.get_future()),
      thread([this] { loop(); })
{
}

Capture_Thread::~Capture_Thread()
{
    if (thread.joinable() && !Stop(Usual_Patience)) {
        std::_Exit(EXIT_FAILURE);
    }
}

bool Capture_Thread::Has_Ended() const
{
    return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
}

bool Capture_Thread::Stop(std::chrono::milliseconds patience)
{
    WQZ_USBCam_EVENT_LoopMode(handle, 0);
    if (result.wait_for(patience) != std::future_status::ready) {
        return false;
    }
    thread.join();
    return true;
}
