// The cameras that the preview shows, with those that are unplugged at the moment.
#ifndef WQZ_TOOL_PREVIEW_ROSTER_H
#define WQZ_TOOL_PREVIEW_ROSTER_H

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "Camera/wqz_camera.hpp"
#include "feed.h"

/// A camera by its identity. Once known, it stays.
struct Known_Camera {
    WQZ_Camera_Info info;
    bool plugged = true;
    std::shared_ptr<Feed> feed;
};

/// Watches cameras come and go in a thread of its own. Its functions may be called by any thread.
class Roster {
public:
    /// @param camera_name  as the user typed it; shows this camera only. Empty for all.
    /// @throws wqz::Camera_Error  when there is no such camera
    explicit Roster(const std::string& camera_name);
    ~Roster();
    Roster(const Roster&) = delete;
    Roster& operator=(const Roster&) = delete;

    std::vector<Known_Camera> Cameras() const;

    /// @param identity  empty for the first camera
    /// @return null when no such camera is known
    std::shared_ptr<Feed> Find(const std::string& identity) const;

private:
    void Watch();
    void Refresh();

    std::string only;  // the identity of the one camera to show; empty for all
    mutable std::mutex mutex;
    std::vector<Known_Camera> cameras;
    std::atomic<bool> ended = false;
    std::thread thread;
};

#endif  // WQZ_TOOL_PREVIEW_ROSTER_H
