// Runs the library's capture loop on a thread.
#ifndef WQZ_TOOL_CAPTURE_THREAD_H
#define WQZ_TOOL_CAPTURE_THREAD_H

#include <chrono>
#include <cstdint>
#include <future>
#include <thread>

#include "USBCam_API/USBCam_API.h"

/// The library's capture loop on a thread of its own, running from construction until Stop succeeds.
/// When a camera stops delivering, the loop waits in its dequeue request for ever. Then only the end of the process
/// ends the thread.
class Capture_Thread {
public:
    /// How long Stop may wait. The loop looks for a stop after each wait of 1.002 s and the read that follows.
    static constexpr std::chrono::milliseconds Usual_Patience{3000};

    Capture_Thread(void* camera_handle, Pix_Format request);
    Capture_Thread(const Capture_Thread&) = delete;
    Capture_Thread& operator=(const Capture_Thread&) = delete;
    /// Stops the loop. Ends the process when the loop does not stop.
    ~Capture_Thread();

    /// @return whether the loop has returned before it was told to
    bool Has_Ended() const;

    /// Tells the loop to stop and waits for it.
    /// @return whether it returned in time; otherwise it goes on using the handle
    bool Stop(std::chrono::milliseconds patience);

private:
    void* handle;
    std::packaged_task<int32_t()> loop;
    std::future<int32_t> result;
    std::thread thread;
};

#endif  // WQZ_TOOL_CAPTURE_THREAD_H
