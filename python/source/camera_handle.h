// An open camera, safe to close while other Python threads use it.
#ifndef WQZ_PYTHON_CAMERA_HANDLE_H
#define WQZ_PYTHON_CAMERA_HANDLE_H

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "Camera/wqz_camera.hpp"
#include "lent_frame.h"
#include "unlocked.h"
#include "waiting.h"

/// How long a wait goes on while all frames are held. Another thread may drop its last reference to a frame some time
/// after it is done with it.
constexpr double Release_Seconds = 0.5;

/// States: open, closed. The library allows no call that begins after Close, so each call is counted here, and Close
/// waits for those that run. The interpreter's lock is not held in calls of the library.
class Camera_Handle {
public:
    explicit Camera_Handle(const std::string& name);
    ~Camera_Handle();
    Camera_Handle(const Camera_Handle&) = delete;
    Camera_Handle& operator=(const Camera_Handle&) = delete;

    /// Runs `body` on the camera without the interpreter's lock; raises ValueError when the camera is closed.
    template <typename Body>
    auto Call(Body body)
    {
        const Unlocked unlocked;
        const Running_Call call(*this);
        return body(*camera);
    }

    /// Waits for a frame, or raises.
    std::unique_ptr<Lent_Frame> Read(std::optional<double> timeout, bool newest);
    /// @return nothing when no frame is ready
    std::unique_ptr<Lent_Frame> Take(bool newest);
    wqz::Mode Start(const wqz::Request& request);
    /// @return false when the driver keeps the camera until the held frames are released
    bool Stop();
    void Recover(std::optional<double> timeout);
    /// Ends the waits of other threads. Closing twice does nothing.
    /// @return as Stop
    bool Close();
    bool Is_Closed() const { return closing; }

    /// How many times the capture was started, stopped or closed. A wait ends when this changes.
    unsigned Changes() const { return changes; }

private:
    /// Counts a call while it runs.
    class Running_Call {
    public:
        explicit Running_Call(Camera_Handle& called) : handle(called) { handle.Enter(); }
        ~Running_Call() { handle.Leave(); }
        Running_Call(const Running_Call&) = delete;
        Running_Call& operator=(const Running_Call&) = delete;

    private:
        Camera_Handle& handle;
    };
    /// Marks the one Start or Recover that the library allows at a time.
    class Only_Change;

    void Enter();
    void Leave();
    int32_t Read_Slice(WQZ_Camera_Frame& frame, int32_t milliseconds, bool newest, std::string& sentence);
    int32_t Recover_Slice(int32_t milliseconds, std::string& sentence);
    void Check_Wait(unsigned changes_before) const;

    std::unique_ptr<wqz::Camera> camera;
    Home_Process home;
    std::atomic<bool> closing = false;
    std::atomic<bool> changing = false;  // Start or Recover runs
    std::atomic<unsigned> changes = 0;
    std::mutex mutex;  // guards what follows; never held in a call of the library that waits
    std::condition_variable idle;
    int running_calls = 0;
    bool closed = false;
};

#endif  // WQZ_PYTHON_CAMERA_HANDLE_H
