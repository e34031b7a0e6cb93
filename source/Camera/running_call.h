// A call that runs on an open camera.
#ifndef WQZ_CAMERA_RUNNING_CALL_H
#define WQZ_CAMERA_RUNNING_CALL_H

#include "Camera/camera.h"

/// Keeps a Close on another thread waiting while it lives. The flat functions hold it until their failure is noted too,
/// since the note is a member of the camera.
class WQZ_Camera::Running_Call {
public:
    explicit Running_Call(WQZ_Camera& owner) : called(owner)
    {
        const std::lock_guard lock(called.mutex);
        ++called.running_calls;
    }
    ~Running_Call()
    {
        const std::lock_guard lock(called.mutex);
        if (--called.running_calls == 0 && called.closing) {
            called.idle.notify_all();
        }
    }
    Running_Call(const Running_Call&) = delete;
    Running_Call& operator=(const Running_Call&) = delete;

private:
    WQZ_Camera& called;
};

#endif  // WQZ_CAMERA_RUNNING_CALL_H
