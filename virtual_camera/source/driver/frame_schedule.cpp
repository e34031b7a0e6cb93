// Fills buffers when frames are due, and applies pauses and unplugging.
#include "driver/frame_schedule.h"

#include <linux/uvcvideo.h>
#include <algorithm>
#include <cmath>
#include <cstring>

namespace virtual_camera {
namespace {

Time To_Time(double seconds)
{
    return std::llround(seconds * static_cast<double>(Second));
}

}  // namespace

void Frame_Schedule::Start(v4l2_fract frame_interval, Frame_Maker* frames_from, Time now)
{
    source = frames_from;
    interval = std::max<Time>(1, To_Time(double{1} * frame_interval.numerator / frame_interval.denominator));
    start = now;
    sequence = 0;
    if (frames == 0 && plan.pause_after_frames == 0) {
        start += To_Time(plan.pause_seconds);
    }
    if (plan.unplug_after_seconds > 0 && unplug_at == Never) {
        unplug_at = now + To_Time(plan.unplug_after_seconds);
    }
    video.Forget_Contents();
}

// Writes one record of the UVC metadata format: a payload header without time stamps.
void Frame_Schedule::Fill_Metadata(Time time)
{
    constexpr uint8_t Header_Bytes = 2, End_Of_Header = 0x80, End_Of_Frame = 0x02;
    uvc_meta_buf record{};
    record.ns = static_cast<uint64_t>(time);
    record.length = Header_Bytes;
    record.flags = static_cast<uint8_t>(End_Of_Header | End_Of_Frame | (sequence & 1));
    std::memcpy(metadata.Oldest().memory->Data(), &record, sizeof record);
    metadata.Finish(sizeof record, sequence, time);
}

void Frame_Schedule::Pass_Frame(Time time)
{
    if (video.Has_Queued()) {
        Buffer_Queue::Buffer& buffer = video.Oldest();
        video.Finish(source->Fill(buffer.memory->Data(), buffer.length, sequence, buffer.content), sequence, time);
        if (metadata.Is_Streaming() && metadata.Has_Queued()) {
            Fill_Metadata(time);
        }
    }
    sequence++;
    frames++;
    if (frames == plan.pause_after_frames) {
        start = (plan.max_rate ? time : start) + To_Time(plan.pause_seconds);
    }
}

void Frame_Schedule::Advance(Time now)
{
    lost = lost || unplug_at <= now;
    while (video.Is_Streaming() && !lost) {
        const bool at_once = Comes_At_Once();
        const bool paused = plan.max_rate && !held && start > now;
        const bool due = at_once ? video.Has_Queued() && !paused : !held && Next_Due() <= now;
        lost = due && Unplugs_Next();
        if (lost || !due) {
            return;
        }
        Pass_Frame(at_once ? now : Next_Due());
        if (held) {
            allowance--;
        }
    }
}

Time Frame_Schedule::Next_Event() const
{
    if (!video.Is_Streaming()) {
        return unplug_at;
    }
    const bool waits = !held && !Comes_At_Once() && (video.Has_Queued() || Unplugs_Next());
    const bool paused = !held && plan.max_rate && video.Has_Queued();  // else it would be filled already
    return std::min({waits ? Next_Due() : Never, paused ? start : Never, unplug_at});
}

void Frame_Schedule::Resume(Time now)
{
    held = false;
    allowance = 0;
    start = now - Time{sequence} * interval;
}

}  // namespace virtual_camera
