// One descriptor on which calls wait for frames, cancels and unplugging.
#ifndef WQZ_CAMERA_WAIT_POINT_H
#define WQZ_CAMERA_WAIT_POINT_H

#include <libudev.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

#include "Camera/owned_descriptor.h"

namespace wqz_camera {

/// The end of a wait. Negative milliseconds: never.
class Deadline {
public:
    explicit Deadline(int32_t milliseconds);
    bool Has_Passed() const;
    /// @return milliseconds that are left, rounded up, at most `limit`
    int Remaining(int limit) const;

private:
    using Clock = std::chrono::steady_clock;
    bool endless;
    Clock::time_point end;
};

struct Udev_Unref {
    void operator()(udev* context) const { udev_unref(context); }
    void operator()(udev_enumerate* enumeration) const { udev_enumerate_unref(enumeration); }
    void operator()(udev_monitor* monitor) const { udev_monitor_unref(monitor); }
    void operator()(udev_device* device) const { udev_device_unref(device); }
};
template <typename Type>
using Udev_Owner = std::unique_ptr<Type, Udev_Unref>;

/// Watches video nodes come and go.
/// @param source  "udev" for events after the system's rules have run, "kernel" for the bare ones
/// @return null where the system has no such events, as in some containers
Udev_Owner<udev_monitor> Watch_Video_Nodes(udev* context, const char* source);

/// One epoll descriptor for the device, a counter of wake-ups, and the kernel's plug events.
class Wait_Point {
public:
    /// Device_Failed comes with Device_Ready: the driver reports an error, or that the camera is gone.
    enum Cause : unsigned { Device_Ready = 1, Woken = 2, Plugging = 4, Device_Failed = 8 };

    /// @throws Failure
    Wait_Point();

    int Descriptor() const { return poll_descriptor; }

    /// Adds and removes the device of a running stream. An idle device is left out, because drivers report it as ready.
    /// @throws Failure
    void Watch(int device);
    void Forget(int device);

    /// Waits until something happens or a signal arrives, and takes note of wake-ups.
    /// @return Cause bits
    unsigned Wait(int milliseconds);

    /// Waits for a wake-up only, and leaves it to the next Wait.
    void Pause(int milliseconds) const;

    /// Ends a wait on any thread. Safe in a signal handler.
    void Wake() noexcept;

    /// Wakes and leaves a mark for Take_Cancel. Safe in a signal handler.
    void Cancel() noexcept;

    /// @return whether there was a mark, which is gone now
    bool Take_Cancel();

private:
    void Drain_Wake_Ups();
    void Drain_Plug_Events();

    Owned_Descriptor poll_descriptor;
    Owned_Descriptor wake_descriptor;
    std::atomic<bool> cancelled{false};
    Udev_Owner<udev> context;
    Udev_Owner<udev_monitor> plugs;
    std::atomic_flag draining;  // libudev's monitor is for one thread at a time
};

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_WAIT_POINT_H
