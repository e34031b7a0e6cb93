// An open camera: the state behind a handle of the camera interface.
#ifndef WQZ_CAMERA_CAMERA_H
#define WQZ_CAMERA_CAMERA_H

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Camera/camera_controls.h"
#include "Camera/camera_explain.h"
#include "Camera/camera_name.h"
#include "Camera/frame_stream.h"
#include "Camera/wait_point.h"

/// States: open (no stream), capturing (a stream), away (no device, while Recover waits), closing.
///
/// Locks: `order` lets one change of state happen at a time and may be held for long; `mutex` guards the members and is
/// held for moments only; a stream has a lock of its own. They are taken in this order. Read and Recover hold no lock
/// while they wait, nor do controls while they talk to the camera: they keep references to stream and device.
///
/// Close waits for the Running_Call that every flat function except Cancel and Close holds.
struct WQZ_Camera {
public:
    class Running_Call;

    /// @throws wqz_camera::Failure
    explicit WQZ_Camera(const std::string& name);
    WQZ_Camera(const WQZ_Camera&) = delete;
    WQZ_Camera& operator=(const WQZ_Camera&) = delete;

    // As the flat functions of these names; all but Read and Close throw wqz_camera::Failure.
    WQZ_Camera_Info Describe();
    std::vector<WQZ_Camera_Offer> Modes();
    std::vector<WQZ_Camera_Control> Controls();
    std::vector<WQZ_Camera_Menu_Item> Menu(uint32_t id);
    void Get_Control(WQZ_Camera_Setting& setting);
    void Set_Control(WQZ_Camera_Setting& setting);
    WQZ_Camera_Mode Start(const WQZ_Camera_Request& request);
    int Read(WQZ_Camera_Frame& frame, int32_t timeout_ms, bool newest);
    WQZ_Camera_Counts Counters();
    void Cancel() noexcept;
    int Stop();
    void Recover(int32_t timeout_ms);
    int Close();
    int Descriptor() const { return wait_point.Descriptor(); }

    wqz_camera::Last_Failure last_failure;

private:
    /// The capture that Recover starts again.
    struct Plan {
        WQZ_Camera_Request request;
        WQZ_Camera_Mode mode;
    };

    /// @throws wqz_camera::Failure  while the camera is away
    std::shared_ptr<wqz_camera::Device_File> Present_Device();
    void Begin_Stream(const std::shared_ptr<wqz_camera::Device_File>& from, const WQZ_Camera_Request& request,
                      const WQZ_Camera_Mode* expected = nullptr);
    void Begin_Again(const std::shared_ptr<wqz_camera::Device_File>& from, const Plan& former);
    int End_Stream();
    void Leave_Device();
    bool Return_To_Device();
    bool Take_Cancel(const wqz_camera::Frame_Stream* from);
    int Wait_And_Take(wqz_camera::Frame_Stream& from, WQZ_Camera_Frame& frame, int32_t timeout_ms, bool newest);
    void Remember(const wqz_camera::Set_Value& value);

    wqz_camera::Wait_Point wait_point;
    std::atomic<bool> closing{false};
    std::atomic<uint32_t> running_cancels{0};  // counted separately, because a signal handler may not lock
    std::mutex order;

    std::mutex mutex;  // guards all below
    std::condition_variable idle;
    uint32_t running_calls = 0;
    wqz_camera::Camera_Record record;
    std::shared_ptr<wqz_camera::Device_File> device;
    std::shared_ptr<wqz_camera::Frame_Stream> stream;
    std::weak_ptr<wqz_camera::Frame_Stream> former_stream;
    std::optional<Plan> plan;
    std::vector<wqz_camera::Set_Value> settings;  // in the order in which they were last set
    WQZ_Camera_Counts former_counts{};            // of streams before this one that belong to the same capture
};

#endif  // WQZ_CAMERA_CAMERA_H
