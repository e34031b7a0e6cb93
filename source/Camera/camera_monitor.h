// Watching cameras come and go.
#ifndef WQZ_CAMERA_CAMERA_MONITOR_H
#define WQZ_CAMERA_CAMERA_MONITOR_H

#include <deque>
#include <vector>

#include "Camera/camera_list.h"
#include "Camera/wait_point.h"

/// Compares the list of cameras with the one before whenever the system says that a video node came or went, and twice
/// a second where nothing says so: in containers, and on systems without udev's service.
struct WQZ_Camera_Monitor {
public:
    /// @throws wqz_camera::Failure
    WQZ_Camera_Monitor();

    int Descriptor() const { return poll_descriptor; }

    /// @return whether there was an event in time
    bool Read(WQZ_Camera_Event& event, int32_t timeout_ms);

private:
    bool Wait(int milliseconds);
    void Compare();

    wqz_camera::Owned_Descriptor poll_descriptor;
    wqz_camera::Udev_Owner<udev> context;
    wqz_camera::Udev_Owner<udev_monitor> plugs;
    wqz_camera::Owned_Descriptor timer;  // where the system reports no plug events
    std::vector<wqz_camera::Camera_Record> known;
    std::deque<WQZ_Camera_Event> events;
};

#endif  // WQZ_CAMERA_CAMERA_MONITOR_H
