// A call that runs on an open camera.
#ifndef WQZ_CAMERA_RUNNING_CALL_H
#define WQZ_CAMERA_RUNNING_CALL_H

#include <cerrno>

#include "Camera/camera.h"

/// A call of another thread may close the camera: this keeps Close waiting, and holds the device that the call works
/// on.
class WQZ_Camera::Running_Call {
public:
    enum Extent { Device_Held, Nothing_Held };

    explicit Running_Call(WQZ_Camera& owner, Extent extent = Device_Held) : called(owner)
    {
        const std::lock_guard lock(called.mutex);
        ++called.running_calls;
        if (extent == Device_Held) {
            device = called.device;
        }
    }
    ~Running_Call()
    {
        device.reset();
        const std::lock_guard lock(called.mutex);
        if (--called.running_calls == 0) {
            called.idle.notify_all();
        }
    }
    Running_Call(const Running_Call&) = delete;
    Running_Call& operator=(const Running_Call&) = delete;

    /// @throws Failure  while the camera is away
    const wqz_camera::Device_File& Device() const
    {
        if (!device) {
            throw wqz_camera::Failure(ENODEV, wqz_camera::Read_Sentence(ENODEV));
        }
        return *device;
    }

    std::shared_ptr<wqz_camera::Device_File> device;

private:
    WQZ_Camera& called;
};

#endif  // WQZ_CAMERA_RUNNING_CALL_H
