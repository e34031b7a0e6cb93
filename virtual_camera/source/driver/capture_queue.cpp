#include "driver/capture_queue.h"

#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cmath>

namespace virtual_camera {
namespace {

uint32_t Page_Align(uint32_t size)
{
    const auto page = uint32_t(sysconf(_SC_PAGESIZE));
    return (size + page - 1) / page * page;
}

Time To_Time(v4l2_fract interval)
{
    return std::max<Time>(1, std::llround(double(interval.numerator) * double(Second) / interval.denominator));
}

}  // namespace

uint32_t Capture_Queue::Stride() const
{
    return Page_Align(length_);
}

uint32_t Capture_Queue::Allocate(uint32_t count, uint32_t length)
{
    Free();
    length_ = length;
    auto memory = std::make_shared<Buffer_Memory>(size_t(Stride()) * count);
    if (!memory->Data()) {
        return 0;
    }
    memory_ = std::move(memory);
    buffers_.assign(count, Buffer{});
    return count;
}

void Capture_Queue::Free()
{
    Stop();
    buffers_.clear();
    memory_.reset();
}

void Capture_Queue::Describe(uint32_t index, v4l2_buffer& buffer) const
{
    const Buffer& own = buffers_[index];
    buffer = v4l2_buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    buffer.field = V4L2_FIELD_NONE;
    buffer.bytesused = own.bytes_used;
    buffer.sequence = own.sequence;
    buffer.timestamp.tv_sec = own.time / Second;
    buffer.timestamp.tv_usec = own.time % Second / 1000;
    buffer.length = length_;
    buffer.m.offset = index * Stride();
    buffer.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_TSTAMP_SRC_SOE;
    buffer.flags |= own.mappings > 0 ? V4L2_BUF_FLAG_MAPPED : 0;
    buffer.flags |= own.state == State::Queued ? V4L2_BUF_FLAG_QUEUED : 0;
    buffer.flags |= own.state == State::Done ? V4L2_BUF_FLAG_DONE : 0;
    buffer.flags |= own.failed ? V4L2_BUF_FLAG_ERROR : 0;
}

int Capture_Queue::Query(v4l2_buffer& buffer) const
{
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.index >= buffers_.size()) {
        return -EINVAL;
    }
    Describe(buffer.index, buffer);
    return 0;
}

int Capture_Queue::Queue(v4l2_buffer& buffer, Time now)
{
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.index >= buffers_.size() ||
        buffer.memory != V4L2_MEMORY_MMAP || buffers_[buffer.index].state != State::Idle) {
        return -EINVAL;
    }
    const uint32_t index = buffer.index;
    buffers_[index].state = State::Queued;
    buffers_[index].failed = false;
    queued_.push_back(index);
    queued_once_ = true;
    Describe(index, buffer);
    Advance(now);
    return 0;
}

int Capture_Queue::Start(v4l2_fract interval, Frame_Source* source, Time now)
{
    if (buffers_.empty()) {
        return -EINVAL;
    }
    if (streaming_) {
        return 0;
    }
    streaming_ = true;
    source_ = source;
    interval_ = To_Time(interval);
    start_ = now;
    sequence_ = 0;
    if (plan_.unplug_after > 0 && unplug_at_ == Never) {
        unplug_at_ = now + plan_.unplug_after;
    }
    for (Buffer& buffer : buffers_) {
        buffer.content.reset();
    }
    Advance(now);
    return 0;
}

void Capture_Queue::Stop()
{
    streaming_ = false;
    queued_once_ = false;
    queued_.clear();
    done_.clear();
    for (Buffer& buffer : buffers_) {
        buffer.state = State::Idle;
    }
}

void Capture_Queue::Dequeue(v4l2_buffer& buffer)
{
    const uint32_t index = done_.front();
    done_.pop_front();
    buffers_[index].state = State::Idle;
    Describe(index, buffer);
    buffers_[index].failed = false;
}

void Capture_Queue::Fill_Oldest(Time time)
{
    Buffer& buffer = buffers_[queued_.front()];
    uint8_t* target = memory_->Data() + size_t(queued_.front()) * Stride();
    buffer.bytes_used = source_->Fill(target, length_, sequence_, buffer.content);
    buffer.sequence = sequence_;
    buffer.time = time;
    buffer.state = State::Done;
    done_.push_back(queued_.front());
    queued_.pop_front();
}

void Capture_Queue::Pass_Frame(Time time)
{
    if (!queued_.empty()) {
        Fill_Oldest(time);
    }
    sequence_++;
    frames_++;
    if (frames_ == plan_.pause_after_frames) {
        start_ = plan_.max_rate ? time + plan_.pause : start_ + plan_.pause;
    }
}

void Capture_Queue::Advance(Time now)
{
    lost_ = lost_ || unplug_at_ <= now;
    while (streaming_ && !lost_) {
        const bool at_once = Comes_At_Once();
        const bool paused = plan_.max_rate && !held_ && start_ > now;
        const bool due = at_once ? !queued_.empty() && !paused : !held_ && Next_Due() <= now;
        lost_ = due && Unplugs_Next();
        if (lost_ || !due) {
            return;
        }
        Pass_Frame(at_once ? now : Next_Due());
        if (held_) {
            allowance_--;
        }
    }
}

Time Capture_Queue::Ready_At() const
{
    if (!streaming_ || !queued_once_ || !done_.empty() || lost_) {
        return At_Once;
    }
    const bool waits = !held_ && !Comes_At_Once() && (!queued_.empty() || Unplugs_Next());
    const bool paused = !held_ && plan_.max_rate && !queued_.empty();  // else it would be filled already
    return std::min({waits ? Next_Due() : Never, paused ? start_ : Never, unplug_at_});
}

void Capture_Queue::Abort()
{
    while (!queued_.empty()) {
        Buffer& buffer = buffers_[queued_.front()];
        buffer.state = State::Done;
        buffer.failed = true;
        buffer.bytes_used = 0;
        done_.push_back(queued_.front());
        queued_.pop_front();
    }
}

void Capture_Queue::Resume(Time now)
{
    held_ = false;
    allowance_ = 0;
    start_ = now - Time(sequence_) * interval_;
}

int Capture_Queue::Index_At(uint64_t offset) const
{
    if (buffers_.empty() || offset % Stride() != 0 || offset / Stride() >= buffers_.size()) {
        return -1;
    }
    return int(offset / Stride());
}

void Capture_Queue::Remove_Mapping(const Buffer_Memory* memory, uint32_t index)
{
    if (memory == memory_.get() && index < buffers_.size()) {
        buffers_[index].mappings--;
    }
}

}  // namespace virtual_camera
