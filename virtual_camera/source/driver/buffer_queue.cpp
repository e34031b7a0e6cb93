// Allocates, queues, exports and frees the buffers of a node.
#include "driver/buffer_queue.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>

#include "system/real_calls.h"

namespace virtual_camera {

Buffer_Memory::Buffer_Memory(size_t bytes) : fd(real::Move_Up(memfd_create("virtual-camera", MFD_CLOEXEC))), size(bytes)
{
    if (fd >= 0 && ftruncate(fd, static_cast<off_t>(bytes)) == 0) {
        void* mapped = real::Mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        data = mapped == MAP_FAILED ? nullptr : static_cast<uint8_t*>(mapped);
    }
}

Buffer_Memory::~Buffer_Memory()
{
    if (data) {
        real::Munmap(data, size);
    }
    if (fd >= 0) {
        real::Close(fd);
    }
}

short Buffer_Queue::Readiness() const
{
    if (!streaming || !queued_once) {
        return POLLERR;
    }
    return done.empty() ? 0 : POLLIN | POLLRDNORM;
}

int Buffer_Queue::Check_Kind(uint32_t memory, uint32_t buffer_type) const
{
    const bool known = memory == V4L2_MEMORY_MMAP || memory == V4L2_MEMORY_USERPTR ||
                       (memory == V4L2_MEMORY_DMABUF && type == V4L2_BUF_TYPE_VIDEO_CAPTURE);
    return known && buffer_type == type ? 0 : -EINVAL;
}

uint32_t Buffer_Queue::Capabilities() const
{
    return V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_USERPTR |
           (type == V4L2_BUF_TYPE_VIDEO_CAPTURE ? V4L2_BUF_CAP_SUPPORTS_DMABUF : 0) |
           (orphans ? V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS : 0);
}

bool Buffer_Queue::Is_Mapped(const Buffer& buffer) const
{
    return memory_kind == V4L2_MEMORY_MMAP && buffer.memory.use_count() > 1;
}

int Buffer_Queue::Request(v4l2_requestbuffers& request, uint32_t length)
{
    if (const int error = Check_Kind(request.memory, request.type)) {
        return error;
    }
    if (streaming || (waits_in_dequeue && request.count > 0)) {
        return -EBUSY;
    }
    if (!orphans && std::any_of(buffers.begin(), buffers.end(), [this](const Buffer& b) { return Is_Mapped(b); })) {
        return -EBUSY;
    }
    Free();
    request.capabilities = Capabilities();
    request.flags = 0;
    if (request.count == 0) {
        return 0;
    }
    memory_kind = request.memory;
    request.count = Add_Buffers(request.count, length);
    return request.count == 0 ? -ENOMEM : 0;
}

int Buffer_Queue::Create(v4l2_create_buffers& create, uint32_t length)
{
    const uint32_t wanted =
        type == V4L2_BUF_TYPE_VIDEO_CAPTURE ? create.format.fmt.pix.sizeimage : create.format.fmt.meta.buffersize;
    const int error = Check_Kind(create.memory, create.format.type);
    create.capabilities = Capabilities();
    create.flags = 0;
    std::fill(std::begin(create.reserved), std::end(create.reserved), 0U);
    create.index = static_cast<uint32_t>(buffers.size());
    if (error || create.count == 0) {
        return error;
    }
    if (wanted < length || (Has_Buffers() && memory_kind != create.memory)) {
        return -EINVAL;
    }
    if (buffers.size() >= VIDEO_MAX_FRAME) {
        return -ENOBUFS;
    }
    memory_kind = create.memory;
    create.count = Add_Buffers(create.count, wanted);
    return create.count == 0 ? -ENOMEM : 0;
}

uint32_t Buffer_Queue::Add_Buffers(uint32_t count, uint32_t length)
{
    const auto page = static_cast<uint32_t>(sysconf(_SC_PAGESIZE));
    const size_t before = buffers.size(), after = std::min<size_t>(before + count, VIDEO_MAX_FRAME);
    while (buffers.size() < after) {
        Buffer buffer;
        buffer.length = length;
        if (Has_Buffers()) {
            buffer.offset = buffers.back().offset + (buffers.back().length + page - 1) / page * page;
        }
        buffer.memory = std::make_shared<Buffer_Memory>(length);
        if (!buffer.memory->Data()) {
            break;
        }
        buffers.push_back(std::move(buffer));
    }
    return static_cast<uint32_t>(buffers.size() - before);
}

void Buffer_Queue::Free()
{
    Cancel();
    buffers.clear();
}

void Buffer_Queue::Describe(uint32_t index, v4l2_buffer& buffer) const
{
    const Buffer& own = buffers[index];
    buffer = v4l2_buffer{};
    buffer.index = index;
    buffer.type = type;
    buffer.memory = memory_kind;
    buffer.field = V4L2_FIELD_NONE;
    buffer.bytesused = own.bytes_used;
    buffer.sequence = own.sequence;
    buffer.timestamp.tv_sec = static_cast<time_t>(own.time / Second);
    buffer.timestamp.tv_usec = static_cast<suseconds_t>(own.time % Second / 1000);
    buffer.length = std::max(own.length, own.place.length);
    buffer.m = own.place.m;
    if (memory_kind == V4L2_MEMORY_MMAP) {
        buffer.m.offset = own.offset;
    }
    buffer.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC | V4L2_BUF_FLAG_TSTAMP_SRC_SOE;
    buffer.flags |= Is_Mapped(own) ? V4L2_BUF_FLAG_MAPPED : 0;
    buffer.flags |= own.state == Buffer::State::Queued ? V4L2_BUF_FLAG_QUEUED : 0;
    buffer.flags |= own.state == Buffer::State::Done ? V4L2_BUF_FLAG_DONE : 0;
    buffer.flags |= own.failed ? V4L2_BUF_FLAG_ERROR : 0;
}

int Buffer_Queue::Query(v4l2_buffer& buffer) const
{
    if (buffer.type != type || buffer.index >= buffers.size()) {
        return -EINVAL;
    }
    Describe(buffer.index, buffer);
    return 0;
}

// For buffers in the program's own memory: checks it and keeps where it is.
int Buffer_Queue::Take_Memory(Buffer& buffer, const v4l2_buffer& place) const
{
    const long page = sysconf(_SC_PAGESIZE);
    if (memory_kind == V4L2_MEMORY_USERPTR) {
        const uintptr_t beginning = place.m.userptr / static_cast<uintptr_t>(page) * static_cast<uintptr_t>(page);
        if (place.length < buffer.length) {
            return -EINVAL;
        }
        if (msync(reinterpret_cast<void*>(beginning), place.m.userptr + place.length - beginning, MS_ASYNC) != 0) {
            return -EFAULT;  // part of the memory is not mapped
        }
        buffer.place = place;
    }
    return memory_kind == V4L2_MEMORY_DMABUF ? -EINVAL : 0;  // exported buffers here are not DMA buffers but memfds
}

int Buffer_Queue::Queue(v4l2_buffer& buffer)
{
    if (buffer.type != type || buffer.index >= buffers.size() || buffer.memory != memory_kind ||
        buffers[buffer.index].state != Buffer::State::Idle) {
        return -EINVAL;
    }
    if ((buffer.flags & V4L2_BUF_FLAG_REQUEST_FD) != 0) {
        return -EBADR;
    }
    const uint32_t index = buffer.index;
    if (const int error = Take_Memory(buffers[index], buffer)) {
        return error;
    }
    buffers[index].state = Buffer::State::Queued;
    buffers[index].failed = false;
    queued.push_back(index);
    queued_once = true;
    Describe(index, buffer);
    return 0;
}

int Buffer_Queue::Export(v4l2_exportbuffer& request) const
{
    if (request.type != type || request.index >= buffers.size() || request.plane != 0 ||
        memory_kind != V4L2_MEMORY_MMAP || (request.flags & ~static_cast<uint32_t>(O_CLOEXEC | O_ACCMODE)) != 0) {
        return -EINVAL;
    }
    const int copy = (request.flags & O_CLOEXEC) != 0 ? F_DUPFD_CLOEXEC : F_DUPFD;
    request.fd = fcntl(buffers[request.index].memory->Descriptor(), copy, 0);
    return request.fd < 0 ? -errno : 0;
}

int Buffer_Queue::Start(uint32_t buffer_type)
{
    if (buffer_type != type || buffers.empty()) {
        return -EINVAL;
    }
    streaming = true;
    return 0;
}

int Buffer_Queue::Stop(uint32_t buffer_type)
{
    if (buffer_type != type) {
        return -EINVAL;
    }
    Cancel();
    return 0;
}

void Buffer_Queue::Cancel()
{
    streaming = false;
    queued_once = false;
    queued.clear();
    done.clear();
    for (Buffer& buffer : buffers) {
        buffer.state = Buffer::State::Idle;
    }
}

void Buffer_Queue::Dequeue(v4l2_buffer& buffer)
{
    const uint32_t index = done.front();
    done.pop_front();
    buffers[index].state = Buffer::State::Idle;
    Describe(index, buffer);
    buffers[index].failed = false;
}

void Buffer_Queue::Finish(uint32_t bytes_used, uint32_t sequence, Time time)
{
    Buffer& buffer = Oldest();
    if (memory_kind == V4L2_MEMORY_USERPTR) {
        // The kernel copies, since the program may have unmapped its memory meanwhile.
        const auto target = static_cast<long>(buffer.place.m.userptr);
        (void)real::Syscall(SYS_pread64, buffer.memory->Descriptor(), target, bytes_used, 0, 0, 0);
    }
    buffer.bytes_used = bytes_used;
    buffer.sequence = sequence;
    buffer.time = time;
    buffer.state = Buffer::State::Done;
    done.push_back(queued.front());
    queued.pop_front();
}

void Buffer_Queue::Abort()
{
    while (Has_Queued()) {
        Oldest().failed = true;
        Finish(0, Oldest().sequence, Oldest().time);
    }
}

void Buffer_Queue::Forget_Contents()
{
    for (Buffer& buffer : buffers) {
        buffer.content.reset();
    }
}

int Buffer_Queue::Index_At(uint64_t offset) const
{
    const auto found =
        std::find_if(buffers.begin(), buffers.end(), [offset](const Buffer& b) { return b.offset == offset; });
    const bool mappable = found != buffers.end() && memory_kind == V4L2_MEMORY_MMAP;
    return mappable ? static_cast<int>(found - buffers.begin()) : -1;
}

}  // namespace virtual_camera
