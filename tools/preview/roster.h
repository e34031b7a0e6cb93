// The cameras that the preview shows, with those that are unplugged at the moment.
#ifndef WQZ_TOOL_PREVIEW_ROSTER_H
#define WQZ_TOOL_PREVIEW_ROSTER_H

#include <chrono>
#include <condition_variable>
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

/// Watches cameras come and go in a thread of its own, while somebody asks for them. Its functions may be called by any
/// thread.
class Roster {
public:
    /// @param camera_name  as the user typed it; shows this camera only. Empty for all.
    /// @throws wqz::Camera_Error  when there is no such camera
    explicit Roster(const std::string& camera_name);
    ~Roster();
    /// Ends all feeds, so that nobody waits for a picture or a mode any more.
    void End();
    Roster(const Roster&) = delete;
    Roster& operator=(const Roster&) = delete;

    std::vector<Known_Camera> Cameras();

    /// @param identity  empty for the first camera
    /// @return null when no such camera is known
    std::shared_ptr<Feed> Find(const std::string& identity);

private:
    std::shared_ptr<Feed> Find_Known(const std::string& identity);
    void Note_Question();
    void Run();
    void Watch();
    bool Is_Asked();
    void Refresh();

    std::string only;       // the identity of the one camera to show; empty for all
    std::mutex refreshing;  // held from reading the list to taking it over, so that no older list replaces a newer one
    std::mutex mutex;       // guards what follows, up to the thread
    std::condition_variable wake;
    std::vector<Known_Camera> cameras;
    std::chrono::steady_clock::time_point last_question;
    bool watching = false;
    bool ended = false;
    std::thread thread;
};

#endif  // WQZ_TOOL_PREVIEW_ROSTER_H
