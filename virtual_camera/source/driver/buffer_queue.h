// The buffers of one node, which pass between program and driver by the rules of the kernel's videobuf2.
#ifndef WQZ_VIRTUAL_CAMERA_BUFFER_QUEUE_H
#define WQZ_VIRTUAL_CAMERA_BUFFER_QUEUE_H

#include <linux/videodev2.h>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include "system/monotonic_time.h"

namespace virtual_camera {

/// The memory of one buffer: shared memory, which programs can map.
/// Data() is null when the memory could not be allocated.
class Buffer_Memory {
public:
    explicit Buffer_Memory(size_t bytes);
    ~Buffer_Memory();
    Buffer_Memory(const Buffer_Memory&) = delete;
    Buffer_Memory& operator=(const Buffer_Memory&) = delete;

    uint8_t* Data() const { return data; }
    int Descriptor() const { return fd; }

private:
    int fd = -1;
    uint8_t* data = nullptr;
    size_t size = 0;
};

/// States: without buffers -> Request or Create -> stopped <-> Start/Stop -> streaming.
/// Functions that return int give 0 or a negative errno.
class Buffer_Queue {
public:
    struct Buffer {
        enum class State { Idle, Queued, Done };
        State state = State::Idle;
        std::shared_ptr<Buffer_Memory> memory;  // mappings share it and may outlive the buffer
        uint32_t length = 0;
        uint32_t offset = 0;  // for mmap
        v4l2_buffer place{};  // the user pointer as the program queued it
        bool failed = false;
        uint32_t bytes_used = 0;
        uint32_t sequence = 0;
        Time time = 0;
        std::optional<uint32_t> content;  // the frame that it holds
    };

    /// @param orphaning  the driver frees buffers that are still mapped; without it VIDIOC_REQBUFS refuses to
    Buffer_Queue(uint32_t buffer_type, bool orphaning) : type(buffer_type), orphans(orphaning) {}

    bool Has_Buffers() const { return !buffers.empty(); }
    bool Has_Queued() const { return !queued.empty(); }
    bool Is_Streaming() const { return streaming; }
    bool Is_Done() const { return !done.empty(); }

    /// What poll reports to a program that waits for input: POLLIN, POLLERR or nothing.
    short Readiness() const;

    // One function for each request on buffers. `length` is the size that the node's format needs.
    int Request(v4l2_requestbuffers& request, uint32_t length);
    int Create(v4l2_create_buffers& create, uint32_t length);
    int Query(v4l2_buffer& buffer) const;
    int Queue(v4l2_buffer& buffer);
    int Export(v4l2_exportbuffer& request) const;
    int Start(uint32_t buffer_type);
    int Stop(uint32_t buffer_type);

    /// Takes the oldest filled buffer; there must be one.
    void Dequeue(v4l2_buffer& buffer);

    void Free();

    /// The oldest queued buffer, which must exist. Finish marks it as filled.
    Buffer& Oldest() { return buffers[queued.front()]; }
    void Finish(uint32_t bytes_used, uint32_t sequence, Time time);

    /// Returns every queued buffer with the error flag.
    void Abort();

    /// Lets the next frames be painted whole, because buffers hold frames of an earlier stream.
    void Forget_Contents();

    /// The buffer at a mmap offset, or -1.
    int Index_At(uint64_t offset) const;
    const Buffer& At(size_t index) const { return buffers[index]; }

    bool waits_in_dequeue = false;  ///< a thread blocks in VIDIOC_DQBUF

private:
    int Check_Kind(uint32_t memory, uint32_t buffer_type) const;
    uint32_t Capabilities() const;
    bool Is_Mapped(const Buffer& buffer) const;
    uint32_t Add_Buffers(uint32_t count, uint32_t length);
    int Take_Memory(Buffer& buffer, const v4l2_buffer& place) const;
    void Describe(uint32_t index, v4l2_buffer& buffer) const;
    void Cancel();

    uint32_t type;
    bool orphans;
    uint32_t memory_kind = V4L2_MEMORY_MMAP;
    std::vector<Buffer> buffers;
    std::deque<uint32_t> queued, done;
    bool streaming = false;
    bool queued_once = false;  // since buffers were allocated or the stream stopped
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_BUFFER_QUEUE_H
