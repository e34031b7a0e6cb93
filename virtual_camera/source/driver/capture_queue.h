// The buffers of a camera and the frames that arrive in them.
//
// Nothing happens by itself: each call first lets the time pass that went by since the last one (Advance). At a frame's
// time the oldest queued buffer is filled; when none is queued, the frame's number is skipped.
// States: without buffers -> Allocate -> stopped <-> Start/Stop -> streaming.
#ifndef WQZ_VIRTUAL_CAMERA_CAPTURE_QUEUE_H
#define WQZ_VIRTUAL_CAMERA_CAPTURE_QUEUE_H

#include <linux/videodev2.h>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "system/buffer_memory.h"
#include "system/monotonic_time.h"

namespace virtual_camera {

/// Puts frames into buffers.
class Frame_Source {
public:
    virtual ~Frame_Source() = default;

    /// @param content  the frame that the buffer still holds, if it is a whole one of this source; updated
    /// @return bytes used
    virtual uint32_t Fill(uint8_t* target, size_t capacity, uint32_t sequence, std::optional<uint32_t>& content) = 0;
};

/// When frames come, and what befalls them, in terms of frames since the camera was plugged in.
struct Delivery_Plan {
    bool max_rate = false;
    uint32_t unplug_after_frames = 0;
    Time unplug_after = 0;
    uint32_t pause_after_frames = 0;
    Time pause = 0;
};

class Capture_Queue {
public:
    explicit Capture_Queue(const Delivery_Plan& delivery) : plan(delivery) {}

    /// @return the number of buffers, 0 when there is no memory
    uint32_t Allocate(uint32_t count, uint32_t bytes);
    void Free();
    bool Has_Buffers() const { return !buffers.empty(); }
    bool Is_Streaming() const { return streaming; }
    bool Is_Done() const { return !done.empty(); }

    // These give 0 or a negative errno.
    int Query(v4l2_buffer& buffer) const;
    int Queue(v4l2_buffer& buffer, Time now);
    int Start(v4l2_fract frame_interval, Frame_Source* frames_from, Time now);
    void Stop();

    /// Takes the oldest filled buffer; there must be one.
    void Dequeue(v4l2_buffer& buffer);

    void Advance(Time now);

    /// From when on select says ready, if nothing else happens: At_Once, a time, or Never.
    Time Ready_At() const;

    /// The plan's unplugging has come.
    bool Is_Lost() const { return lost; }

    /// Gives every queued buffer back, marked as failed.
    void Abort();

    void Hold() { held = true; }
    void Deliver(uint32_t count) { allowance += count; }
    void Resume(Time now);
    void Delay(Time time) { start += time; }

    /// The buffer at a mmap offset, or -1.
    int Index_At(uint64_t offset) const;
    uint32_t Length() const { return length; }
    const std::shared_ptr<Buffer_Memory>& Memory() const { return memory; }

    // Mappings are counted for V4L2_BUF_FLAG_MAPPED; `mapped` tells those of an earlier allocation apart.
    void Add_Mapping(uint32_t index) { buffers[index].mappings++; }
    void Remove_Mapping(const Buffer_Memory* mapped, uint32_t index);

private:
    enum class State { Idle, Queued, Done };

    struct Buffer {
        State state = State::Idle;
        bool failed = false;
        uint32_t bytes_used = 0;
        uint32_t sequence = 0;
        Time time = 0;
        uint32_t mappings = 0;
        std::optional<uint32_t> content;  // the frame that it holds
    };

    Time Next_Due() const { return start + (static_cast<Time>(sequence) + 1) * interval; }
    bool Unplugs_Next() const { return plan.unplug_after_frames > 0 && frames >= plan.unplug_after_frames; }
    bool Comes_At_Once() const { return held ? allowance > 0 : plan.max_rate; }
    void Pass_Frame(Time time);
    void Fill_Oldest(Time time);
    void Describe(uint32_t index, v4l2_buffer& buffer) const;
    uint32_t Stride() const;

    Delivery_Plan plan;
    std::shared_ptr<Buffer_Memory> memory;
    uint32_t length = 0;
    std::vector<Buffer> buffers;
    std::deque<uint32_t> queued, done;
    bool streaming = false;
    bool queued_once = false;  // since buffers were allocated or the stream stopped

    Frame_Source* source = nullptr;
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

#endif  // WQZ_VIRTUAL_CAMERA_CAPTURE_QUEUE_H
