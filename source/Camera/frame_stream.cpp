// Starting and ending a capture, and lending its frames.
#include "Camera/frame_stream.h"

#include <sys/mman.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

#include "Camera/camera_explain.h"
#include "Camera/camera_modes.h"
#include "Camera/mode_setting.h"
#include "Camera/records.h"
#include "Device/capture_buffer.h"
#include "Stream/image_end.h"

namespace wqz_camera {

namespace {

constexpr uint32_t Default_Buffers = 4;           // fewer starve a driver at 60 frames per second
constexpr uint32_t Most_Buffers = 1024;           // drivers provide 32, a few of them 64
constexpr int64_t Most_Uptime_S = 1LL << 32;      // 136 years, which fit into 64 bits as nanoseconds
constexpr uint32_t Most_Sequence_Gap = 1U << 31;  // a greater one is a driver that began to count again

int64_t Nanoseconds(int64_t seconds, int64_t rest)
{
    return seconds * 1'000'000'000 + rest;
}

// Some drivers stamp with the time of day, or not at all, and a broken one with any number.
int64_t Monotonic_Time(const v4l2_buffer& buffer)
{
    const bool is_monotonic = (buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    const int64_t seconds = buffer.timestamp.tv_sec;
    const int64_t microseconds = buffer.timestamp.tv_usec;
    const bool is_time = seconds >= 0 && seconds < Most_Uptime_S && microseconds >= 0 && microseconds < 1'000'000;
    if (is_monotonic && is_time) {
        return Nanoseconds(seconds, microseconds * 1000);
    }
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return Nanoseconds(now.tv_sec, now.tv_nsec);
}

// Turns a driver's refusal into the result of a Read.
int Read_Result(int result)
{
    if (result == -ENODEV || result == -ENXIO) {
        return -ENODEV;
    }
    return result == -EAGAIN ? -EAGAIN : -EIO;
}

bool Is_Jpeg(uint32_t fourcc)
{
    return fourcc == V4L2_PIX_FMT_MJPEG || fourcc == V4L2_PIX_FMT_JPEG;
}

void Unmap(Frame_Slot& slot)
{
    if (slot.memory != nullptr) {
        (void)munmap(slot.memory, slot.length);
        slot.memory = nullptr;
    }
}

}  // namespace

Frame_Stream::Frame_Stream(std::shared_ptr<Device_File> device_file) : device(std::move(device_file))
{
}

Frame_Stream::~Frame_Stream()
{
    (void)End();
}

void Frame_Stream::Begin(const WQZ_Camera_Request& request)
{
    mode = Set_Mode(*device, request);
    to_skip = request.skip;
    Request_Buffers(request.buffers == 0 ? Default_Buffers : request.buffers);
    for (uint32_t index = 0; index < slots.size(); ++index) {
        Map_Buffer(slots[index], index);
    }
    Queue_All();
    Turn_On();
}

void Frame_Stream::Request_Buffers(uint32_t count)
{
    v4l2_requestbuffers buffers{};
    buffers.count = count;
    buffers.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffers.memory = V4L2_MEMORY_MMAP;
    const int result = device->Request(VIDIOC_REQBUFS, &buffers);
    if (result != 0 || buffers.count == 0) {
        throw Step_Failure(device->Node(), "provide buffers", result == 0 ? ENOMEM : -result);
    }
    if (buffers.count > Most_Buffers) {
        throw Step_Failure(device->Node(), "provide buffers", EIO);
    }
    orphans_supported = (buffers.capabilities & V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS) != 0;
    slots.resize(buffers.count);
    mode.buffers = buffers.count;
}

// Maps all pages at once, so that reading a frame causes no page fault.
void Frame_Stream::Map_Buffer(Frame_Slot& slot, uint32_t index)
{
    v4l2_buffer buffer = Capture_Buffer(index);
    const int result = device->Request(VIDIOC_QUERYBUF, &buffer);
    if (result != 0) {
        throw Step_Failure(device->Node(), "describe its buffers", -result);
    }
    void* memory = mmap(nullptr, buffer.length, PROT_READ, MAP_SHARED | MAP_POPULATE, device->Descriptor(),
                        static_cast<off_t>(buffer.m.offset));
    if (memory == MAP_FAILED) {
        throw Step_Failure(device->Node(), "share its buffers", errno);
    }
    slot.owner = this;
    slot.memory = memory;
    slot.length = buffer.length;
}

void Frame_Stream::Queue_All()
{
    for (uint32_t index = 0; index < slots.size(); ++index) {
        const int result = Requeue(index);
        if (result != 0) {
            throw Step_Failure(device->Node(), "take its buffers", -result);
        }
    }
}

void Frame_Stream::Turn_On()
{
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    const int result = device->Request(VIDIOC_STREAMON, &type);
    if (result == -ENOSPC) {
        throw Bandwidth_Failure(mode, List_Offers(*device));
    }
    if (result != 0) {
        throw Step_Failure(device->Node(), "start", -result);
    }
}

int Frame_Stream::Take(WQZ_Camera_Frame& frame, bool newest)
{
    const std::lock_guard lock(mutex);
    if (ended) {
        return -ECANCELED;
    }
    if (queued <= 1 && on_loan > 0) {
        return device->Is_Gone() ? -ENODEV : -ENOBUFS;
    }
    v4l2_buffer buffer{};
    int result = Dequeue(buffer);
    if (result == 0) {
        result = Skip_First(buffer);
    }
    if (result != 0) {
        return result;
    }
    if (newest) {
        Advance_To_Newest(buffer);
    }
    Lend(slots[buffer.index], buffer, frame);
    return 0;
}

int Frame_Stream::Dequeue(v4l2_buffer& buffer)
{
    if (queued == 0) {  // the driver has refused to take the buffers back: no frame can come
        return device->Is_Gone() ? -ENODEV : -EIO;
    }
    buffer = Capture_Buffer(0);
    const int result = device->Request(VIDIOC_DQBUF, &buffer);
    if (result != 0) {
        return Read_Result(result);
    }
    --queued;
    if (buffer.index >= slots.size() || slots[buffer.index].ticket != 0) {
        return -EIO;  // the driver names a buffer that is not in its queue
    }
    Note(buffer);
    return 0;
}

// Gives the first frames back while the exposure settles. Skips no more at a time than there are buffers: a camera may
// fill them as fast as they are given back, and the caller's time and a cancel must count meanwhile.
int Frame_Stream::Skip_First(v4l2_buffer& buffer)
{
    int result = 0;
    for (size_t left = slots.size(); result == 0 && to_skip > 0; --left) {
        --to_skip;
        ++counts.skipped;
        result = Requeue(buffer.index);
        if (result != 0) {
            return Read_Result(result);
        }
        result = left > 1 ? Dequeue(buffer) : -EAGAIN;
    }
    return result;
}

// Skips no more frames than there are buffers, because a camera may fill them as fast as they are given back.
void Frame_Stream::Advance_To_Newest(v4l2_buffer& buffer)
{
    v4l2_buffer next{};
    for (size_t left = slots.size(); left > 0 && Dequeue(next) == 0; --left) {
        ++counts.skipped;
        (void)Requeue(buffer.index);  // `queued` does not count a buffer that the driver refuses
        buffer = next;
    }
}

void Frame_Stream::Note(const v4l2_buffer& buffer)
{
    const uint32_t gap = last_sequence ? buffer.sequence - *last_sequence - 1 : 0;
    const uint32_t lost = gap < Most_Sequence_Gap ? gap : 0;
    last_sequence = buffer.sequence;
    lost_before_next += lost;
    counts.lost += lost;
    counts.damaged += (buffer.flags & V4L2_BUF_FLAG_ERROR) != 0 ? 1 : 0;
}

void Frame_Stream::Lend(Frame_Slot& slot, const v4l2_buffer& buffer, WQZ_Camera_Frame& frame)
{
    slot.ticket = ++last_ticket;
    slot.keeper = shared_from_this();
    ++on_loan;
    ++counts.delivered;
    frame.flags = 0;
    if ((buffer.flags & V4L2_BUF_FLAG_ERROR) != 0) {
        frame.flags |= WQZ_CAMERA_FRAME_DAMAGED;
    }
    frame.data = static_cast<const uint8_t*>(slot.memory);
    frame.length = std::min<size_t>(buffer.bytesused, slot.length);
    if (Is_Jpeg(mode.fourcc)) {
        frame.length = Jpeg_Length(frame.data, static_cast<uint32_t>(frame.length));
    }
    frame.time_ns = Monotonic_Time(buffer);
    frame.sequence = buffer.sequence;
    frame.lost_before = lost_before_next;
    lost_before_next = 0;
    frame.fourcc = mode.fourcc;
    frame.width = mode.width;
    frame.height = mode.height;
    frame.bytes_per_line = mode.bytes_per_line;
    frame.loan = &slot;
    frame.ticket = slot.ticket;
}

int Frame_Stream::Requeue(uint32_t index)
{
    v4l2_buffer buffer = Capture_Buffer(index);
    const int result = device->Request(VIDIOC_QBUF, &buffer);
    queued += result == 0 ? 1 : 0;
    return result;
}

std::optional<int> Frame_Stream::Give_Back(WQZ_Camera_Frame& frame)
{
    auto* slot = static_cast<Frame_Slot*>(frame.loan);
    if (slot == nullptr || frame.ticket == 0) {
        return std::nullopt;
    }
    std::shared_ptr<Frame_Stream> keeper;  // destroyed after the lock, which is part of the stream
    Frame_Stream& stream = *slot->owner;
    const std::lock_guard lock(stream.mutex);
    if (slot->ticket != frame.ticket) {
        return std::nullopt;
    }
    keeper.swap(slot->keeper);
    return stream.Accept(*slot);
}

int Frame_Stream::Accept(Frame_Slot& slot)
{
    slot.ticket = 0;
    --on_loan;
    if (!ended) {
        const int result = Requeue(static_cast<uint32_t>(&slot - slots.data()));
        return result == -ENODEV ? 0 : result;
    }
    Unmap(slot);
    if (on_loan == 0) {
        (void)Free_Buffers();
    }
    return 0;
}

int Frame_Stream::End()
{
    const std::lock_guard lock(mutex);
    if (!ended) {
        ended = true;
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        const int result = device->Request(VIDIOC_STREAMOFF, &type);  // also refused before the camera was started
        for (Frame_Slot& slot : slots) {
            if (slot.ticket == 0) {
                Unmap(slot);
            }
        }
        if (result == -ENODEV) {
            device.reset();  // an unplugged camera takes nothing back
        }
    }
    return device == nullptr || on_loan == 0 || orphans_supported ? Free_Buffers() : -EBUSY;
}

// Mappings of frames on loan live on in the kernel with their bytes when the driver supports orphaned buffers.
int Frame_Stream::Free_Buffers()
{
    if (device == nullptr) {
        return 0;
    }
    v4l2_requestbuffers none{};
    none.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    none.memory = V4L2_MEMORY_MMAP;
    const int result = device->Request(VIDIOC_REQBUFS, &none);
    if (result == -EBUSY && on_loan > 0) {
        return result;
    }
    device.reset();
    return 0;
}

bool Frame_Stream::Keeps_Camera() const
{
    const std::lock_guard lock(mutex);
    return ended && device != nullptr && !device->Is_Gone();
}

bool Frame_Stream::Has_Ended() const
{
    const std::lock_guard lock(mutex);
    return ended;
}

bool Frame_Stream::Is_Gone() const
{
    const std::lock_guard lock(mutex);
    return device != nullptr && device->Is_Gone();
}

WQZ_Camera_Counts Frame_Stream::Counts() const
{
    const std::lock_guard lock(mutex);
    return counts;
}

}  // namespace wqz_camera
