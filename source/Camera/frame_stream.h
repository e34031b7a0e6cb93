// A running capture: the kernel's buffers, mapped, and the frames that are on loan.
#ifndef WQZ_CAMERA_FRAME_STREAM_H
#define WQZ_CAMERA_FRAME_STREAM_H

#include <linux/videodev2.h>

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Camera/device_file.h"
#include "Camera/wqz_camera.h"

namespace wqz_camera {

class Frame_Stream;

/// One mapped buffer. While its frame is on loan it keeps the stream, and with it all mappings, alive.
struct Frame_Slot {
    Frame_Stream* owner = nullptr;
    void* memory = nullptr;
    size_t length = 0;
    uint64_t ticket = 0;  ///< of the loan, 0 when the frame is not on loan
    std::shared_ptr<Frame_Stream> keeper;
};

/// States: begun (frames can be taken), ended (frames on loan can still be read and given back).
/// Any thread may call any function once Begin has returned.
class Frame_Stream : public std::enable_shared_from_this<Frame_Stream> {
public:
    explicit Frame_Stream(std::shared_ptr<Device_File> device_file);
    /// Ends the stream and unmaps everything.
    ~Frame_Stream();
    Frame_Stream(const Frame_Stream&) = delete;
    Frame_Stream& operator=(const Frame_Stream&) = delete;

    /// Sets the mode, maps and queues the buffers, starts the camera. After a failure destroy the object.
    /// @throws Failure
    void Begin(const WQZ_Camera_Request& request);

    const WQZ_Camera_Mode& Mode() const { return mode; }

    /// Takes the oldest frame that is ready, or the newest.
    /// @return 0; -EAGAIN none is ready; -ECANCELED the stream was ended; or as WQZ_Camera_Read
    int Take(WQZ_Camera_Frame& frame, bool newest);

    /// Gives a frame back. The stream may be gone afterwards.
    /// @return 0, or the driver's error, negative; nothing when the record holds no frame
    static std::optional<int> Give_Back(WQZ_Camera_Frame& frame);

    /// Stops the camera and gives its buffers back.
    /// @return 0, or -EBUSY when the driver keeps the camera until the last frame is given back
    int End();

    /// @return whether the driver keeps the camera although the stream has ended
    bool Keeps_Camera() const;

    bool Has_Ended() const;
    bool Is_Gone() const;
    WQZ_Camera_Counts Counts() const;

private:
    void Request_Buffers(uint32_t count);
    void Map_Buffer(Frame_Slot& slot, uint32_t index);
    void Queue_All();
    void Turn_On();
    int Dequeue(v4l2_buffer& buffer);
    int Requeue(uint32_t index);
    int Skip_First(v4l2_buffer& buffer);
    void Advance_To_Newest(v4l2_buffer& buffer);
    void Note(const v4l2_buffer& buffer);
    void Lend(Frame_Slot& slot, const v4l2_buffer& buffer, WQZ_Camera_Frame& frame);
    int Accept(Frame_Slot& slot);
    int Free_Buffers();

    mutable std::mutex mutex;             // guards all below
    std::shared_ptr<Device_File> device;  // null when the camera was given back
    WQZ_Camera_Mode mode{};
    std::vector<Frame_Slot> slots;
    bool orphans_supported = false;  // buffers may outlive their camera's use
    bool ended = false;
    uint32_t queued = 0;
    uint32_t on_loan = 0;
    uint32_t to_skip = 0;
    uint32_t lost_before_next = 0;
    std::optional<uint32_t> last_sequence;
    uint64_t last_ticket = 0;
    WQZ_Camera_Counts counts{};
};

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_FRAME_STREAM_H
