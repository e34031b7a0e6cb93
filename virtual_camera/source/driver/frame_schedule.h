// Decides when frames arrive, and when the described faults strike.
#ifndef WQZ_VIRTUAL_CAMERA_FRAME_SCHEDULE_H
#define WQZ_VIRTUAL_CAMERA_FRAME_SCHEDULE_H

#include "driver/buffer_queue.h"
#include "driver/frame_maker.h"

namespace virtual_camera {

/// No thread runs here: each call on a camera first catches up with the time since the last call (Advance). When a
/// frame is due, the oldest queued buffer is filled. When none is queued, the frame's number is skipped. Each video
/// buffer that is filled fills one queued metadata buffer, too.
class Frame_Schedule {
public:
    Frame_Schedule(const Camera_Description& described, Buffer_Queue& video_queue, Buffer_Queue& metadata_queue)
        : plan(described), video(video_queue), metadata(metadata_queue)
    {
    }

    void Start(v4l2_fract frame_interval, Frame_Maker* frames_from, Time now);
    void Advance(Time now);

    /// When the next buffer will be filled or the camera will vanish, if no call changes that; or Never.
    Time Next_Event() const;

    /// Whether the time of the described unplugging has come.
    bool Is_Lost() const { return lost; }

    void Hold() { held = true; }
    void Deliver(uint32_t count) { allowance += count; }
    void Resume(Time now);

private:
    Time Next_Due() const { return start + (Time{sequence} + 1) * interval; }
    bool Unplugs_Next() const { return plan.unplug_after_frames > 0 && frames >= plan.unplug_after_frames; }
    bool Comes_At_Once() const { return held ? allowance > 0 : plan.max_rate; }
    void Pass_Frame(Time time);
    void Fill_Metadata(Time time);

    const Camera_Description& plan;
    Buffer_Queue& video;
    Buffer_Queue& metadata;
    Frame_Maker* source = nullptr;
    Time start = 0;
    Time interval = 1;
    uint32_t sequence = 0;
    uint32_t frames = 0;  // of all streams
    Time unplug_at = Never;
    bool lost = false;
    bool held = false;
    uint32_t allowance = 0;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_FRAME_SCHEDULE_H
