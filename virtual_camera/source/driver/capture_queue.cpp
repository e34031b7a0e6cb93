#include "driver/capture_queue.h"

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cmath>

namespace virtual_camera {
namespace {

uint32_t Page_Align(uint32_t size)
{
    const auto page = static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
    return (size + page - 1) / page * page;
}

Time To_Time(v4l2_fract interval)
{
    return std::max<Time>(
        1, std::llround(static_cast<double>(interval.numerator) * static_cast<double>(Second) / interval.denominator));
}

}  // namespace

uint32_t Capture_Queue::Stride() const
{
    return Page_Align(length);
}

uint32_t Capture_Queue::Allocate(uint32_t count, uint32_t bytes)
{
    Free();
    length = bytes;
    auto allocated = std::make_shared<Buffer_Memory>(static_cast<size_t>(Stride()) * count);
    if (!allocated->Data()) {
        return 0;
    }
    memory = std::move(allocated);
    buffers.assign(count, Buffer{});
    return count;
}

void Capture_Queue::Free()
{
    Stop();
    buffers.clear();
    memory.reset();
}

void Capture_Queue::Describe(uint32_t index, v4l2_buffer& buffer) const
{
    const Buffer& own = buffers[index];
    buffer = v4l2_buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.field = V4L2_FIELD_NONE;
    buffer.bytesused = own.bytes_used;
    buffer.sequence = own.sequence;
    buffer.timestamp.tv_sec = own.time / Second;
    buffer.timestamp.tv_usec = own.time % Second / 1000;
    buffer.length = length;
    buffer.m.offset = index * Stride();
    buffer.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_TSTAMP_SRC_SOE;
    buffer.flags |= own.mappings > 0 ? V4L2_BUF_FLAG_MAPPED : 0;
    buffer.flags |= own.state == State::Queued ? V4L2_BUF_FLAG_QUEUED : 0;
    buffer.flags |= own.state == State::Done ? V4L2_BUF_FLAG_DONE : 0;
    buffer.flags |= own.failed ? V4L2_BUF_FLAG_ERROR : 0;
}

int Capture_Queue::Query(v4l2_buffer& buffer) const
{
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.index >= buffers.size()) {
        return -EINVAL;
    }
    Describe(buffer.index, buffer);
    return 0;
}

int Capture_Queue::Queue(v4l2_buffer& buffer, Time now)
{
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.index >= buffers.size() ||
        buffer.memory != V4L2_MEMORY_MMAP || buffers[buffer.index].state != State::Idle) {
        return -EINVAL;
    }
    const uint32_t index = buffer.index;
    buffers[index].state = State::Queued;
    buffers[index].failed = false;
    queued.push_back(index);
    queued_once = true;
    Describe(index, buffer);
    Advance(now);
    return 0;
}

int Capture_Queue::Start(v4l2_fract frame_interval, Frame_Source* frames_from, Time now)
{
    if (buffers.empty()) {
        return -EINVAL;
    }
    if (streaming) {
        return 0;
    }
    streaming = true;
    source = frames_from;
    interval = To_Time(frame_interval);
    start = now;
    sequence = 0;
    if (plan.unplug_after > 0 && unplug_at == Never) {
        unplug_at = now + plan.unplug_after;
    }
    for (Buffer& buffer : buffers) {
        buffer.content.reset();
    }
    Advance(now);
    return 0;
}

void Capture_Queue::Stop()
{
    streaming = false;
    queued_once = false;
    queued.clear();
    done.clear();
    for (Buffer& buffer : buffers) {
        buffer.state = State::Idle;
    }
}

void Capture_Queue::Dequeue(v4l2_buffer& buffer)
{
    const uint32_t index = done.front();
    done.pop_front();
    buffers[index].state = State::Idle;
    Describe(index, buffer);
    buffers[index].failed = false;
}

void Capture_Queue::Fill_Oldest(Time time)
{
    Buffer& buffer = buffers[queued.front()];
    uint8_t* target = memory->Data() + static_cast<size_t>(queued.front()) * Stride();
    buffer.bytes_used = source->Fill(target, length, sequence, buffer.content);
    buffer.sequence = sequence;
    buffer.time = time;
    buffer.state = State::Done;
    done.push_back(queued.front());
    queued.pop_front();
}

void Capture_Queue::Pass_Frame(Time time)
{
    if (!queued.empty()) {
        Fill_Oldest(time);
    }
    sequence++;
    frames++;
    if (frames == plan.pause_after_frames) {
        start = plan.max_rate ? time + plan.pause : start + plan.pause;
    }
}

void Capture_Queue::Advance(Time now)
{
    lost = lost || unplug_at <= now;
    while (streaming && !lost) {
        const bool at_once = Comes_At_Once();
        const bool paused = plan.max_rate && !held && start > now;
        const bool due = at_once ? !queued.empty() && !paused : !held && Next_Due() <= now;
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

Time Capture_Queue::Ready_At() const
{
    if (!streaming || !queued_once || !done.empty() || lost) {
        return At_Once;
    }
    const bool waits = !held && !Comes_At_Once() && (!queued.empty() || Unplugs_Next());
    const bool paused = !held && plan.max_rate && !queued.empty();  // else it would be filled already
    return std::min({waits ? Next_Due() : Never, paused ? start : Never, unplug_at});
}

void Capture_Queue::Abort()
{
    while (!queued.empty()) {
        Buffer& buffer = buffers[queued.front()];
        buffer.state = State::Done;
        buffer.failed = true;
        buffer.bytes_used = 0;
        done.push_back(queued.front());
        queued.pop_front();
    }
}

void Capture_Queue::Resume(Time now)
{
    held = false;
    allowance = 0;
    start = now - static_cast<Time>(sequence) * interval;
}

int Capture_Queue::Index_At(uint64_t offset) const
{
    if (buffers.empty() || offset % Stride() != 0 || offset / Stride() >= buffers.size()) {
        return -1;
    }
    return static_cast<int>(offset / Stride());
}

void Capture_Queue::Remove_Mapping(const Buffer_Memory* mapped, uint32_t index)
{
    if (mapped == memory.get() && index < buffers.size()) {
        buffers[index].mappings--;
    }
}

}  // namespace virtual_camera
