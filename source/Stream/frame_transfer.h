#ifndef WQZ_FRAME_TRANSFER_H
#define WQZ_FRAME_TRANSFER_H

#include <linux/videodev2.h>

#include <cstdint>
#include <list>
#include <optional>

#include "Stream/frame_buffer.h"

/// @return the record of a memory-mapped capture buffer as requests take it
v4l2_buffer Capture_Buffer(uint32_t index);

/// Issues a request by its caller's own rule of retries.
using Ioctl_Rule = int32_t (*)(int32_t fd, uint32_t request, void* arg);

/// Dequeues a filled buffer, copies record and bytes to `frame`, and gives the buffer back to the driver, also when the
/// copy throws.
/// @param buffers  the mapped buffers in index order, at least one; an index beyond them reads the first
/// @return the result of dequeuing, OR-ed with what failed after it; nothing when the dequeue gave a result below -1
std::optional<int32_t> Transfer_Frame(int32_t fd, const std::list<Frame_Buffer>& buffers, Frame_Buffer_Data& frame,
                                      Ioctl_Rule request);

/// Gives a dequeued buffer back to the driver.
/// @return `result`, OR-ed with the request's when that failed
int32_t Requeue(int32_t fd, v4l2_buffer& buffer, Ioctl_Rule request, int32_t result);

/// Dequeues a filled buffer into `buffer`. Reports a result below -1 on standard error. A plain -1 counts as done.
/// @return the result, or nothing when it is below -1
std::optional<int32_t> Dequeue(int32_t fd, v4l2_buffer& buffer, Ioctl_Rule request);

#endif  // WQZ_FRAME_TRANSFER_H
