// The kernel's buffer record as requests take it.
#ifndef WQZ_CAPTURE_BUFFER_H
#define WQZ_CAPTURE_BUFFER_H

#include <linux/videodev2.h>

#include <cstdint>

/// @return a record for a memory-mapped capture buffer, every other field zero
inline v4l2_buffer Capture_Buffer(uint32_t index)
{
    auto buffer = v4l2_buffer();
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
}

#endif  // WQZ_CAPTURE_BUFFER_H
