// Taking a filled kernel buffer from the driver, copying its frame and giving the buffer back.
#include "Stream/frame_transfer.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>

#include "Device/capture_buffer.h"

namespace {

constexpr uint32_t Frame_Slack_Bytes = 256;  // room for decoders that read ahead

const Frame_Buffer_Data& Mapped_Buffer(const std::list<Frame_Buffer>& buffers, uint32_t index)
{
    auto position = buffers.begin();
    if (index < buffers.size()) {
        std::advance(position, index);
    }
    return position->sBuf;
}

// buff_Length is the last size requested; a reused block may be larger.
void Size_Memory(Frame_Buffer_Data& frame, uint32_t length)
{
    if (frame.pMem != nullptr && frame.buff_Length <= length) {
        delete[] static_cast<uint8_t*>(frame.pMem);
        frame.pMem = nullptr;
    }
    if (frame.pMem == nullptr) {
        frame.pMem = new uint8_t[length];
    }
    frame.buff_Length = length;
    frame.buff_Offset = 0;
}

bool Is_Mapped(const Frame_Buffer_Data& source)
{
    return source.pMem != nullptr && source.pMem != MAP_FAILED;
}

// How many of the frame's bytes the mapping holds. A mapping of unknown length (recorded as 0) holds all of them.
uint32_t Readable_Bytes(const Frame_Buffer_Data& source, uint32_t used)
{
    if (!Is_Mapped(source)) {
        return 0;
    }
    return source.buff_Length == 0 ? used : std::min(used, source.buff_Length);
}

// Copies what the mapping holds of the frame. The missing bytes are zero in the copy, and the record is marked as the
// kernel marks a damaged frame, because the session delivers it whatever this returns.
// @return 0, or -1 when bytes are missing
int32_t Copy_Frame(const Frame_Buffer_Data& source, Frame_Buffer_Data& frame)
{
    const uint32_t used = frame.buffer.bytesused;
    if (used > std::numeric_limits<uint32_t>::max() - Frame_Slack_Bytes) {
        frame.buffer.bytesused = 0;  // the record must not name bytes that it does not have
        frame.buffer.flags |= V4L2_BUF_FLAG_ERROR;
        return -1;
    }
    Size_Memory(frame, used + Frame_Slack_Bytes);
    const uint32_t readable = Readable_Bytes(source, used);
    auto* bytes = static_cast<uint8_t*>(frame.pMem);
    if (readable > 0) {
        std::memcpy(bytes, source.pMem, readable);
    }
    std::memset(bytes + readable, 0, used - readable);
    if (Is_Mapped(source) && readable == used) {
        return 0;
    }
    frame.buffer.flags |= V4L2_BUF_FLAG_ERROR;
    return -1;
}

}  // namespace

std::optional<int32_t> Dequeue(int32_t fd, v4l2_buffer& buffer, Ioctl_Rule request)
{
    const int32_t result = request(fd, VIDIOC_DQBUF, &buffer);
    if (result < -1) {
        fprintf(stderr, "%s \n", "NULL");
        return std::nullopt;
    }
    return result;
}

int32_t Requeue(int32_t fd, v4l2_buffer& buffer, Ioctl_Rule request)
{
    return request(fd, VIDIOC_QBUF, &buffer);
}

std::optional<int32_t> Transfer_Frame(int32_t fd, const std::list<Frame_Buffer>& buffers, Frame_Buffer_Data& frame,
                                      Ioctl_Rule request)
{
    v4l2_buffer buffer = Capture_Buffer(0);
    const std::optional<int32_t> dequeued = Dequeue(fd, buffer, request);
    if (!dequeued) {
        return std::nullopt;
    }
    frame.buffer = buffer;
    int32_t copied = 0;
    try {
        copied = Copy_Frame(Mapped_Buffer(buffers, buffer.index), frame);
    } catch (...) {
        (void)Requeue(fd, buffer, request);
        throw;
    }
    return *dequeued | copied | Requeue(fd, buffer, request);
}
