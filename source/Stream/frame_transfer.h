// Taking a filled kernel buffer from the driver, copying its frame and giving the buffer back.
#ifndef WQZ_FRAME_TRANSFER_H
#define WQZ_FRAME_TRANSFER_H

#include <linux/videodev2.h>

#include <cstdint>
#include <list>
#include <optional>

#include "Stream/frame_buffer.h"

/// Issues a request and repeats it by the caller's own rule: the device layer's or the session's.
using Ioctl_Rule = int32_t (*)(int32_t fd, uint32_t request, void* arg);

/// Dequeues a filled buffer, copies record and bytes to `frame`, and gives the buffer back to the driver, also when the
/// copy throws.
/// @param buffers  the mapped buffers in index order, at least one; an index beyond them reads the first
/// @return the result of dequeuing, OR-ed with what failed after it; nothing when the dequeue gave a result below -1
std::optional<int32_t> Transfer_Frame(int32_t fd, const std::list<Frame_Buffer>& buffers, Frame_Buffer_Data& frame,
                                      Ioctl_Rule request);

/// Dequeues a filled buffer into `buffer`. Reports a result below -1 on standard error. A plain -1 counts as done.
/// @return the result, or nothing when it is below -1
std::optional<int32_t> Dequeue(int32_t fd, v4l2_buffer& buffer, Ioctl_Rule request);

/// Gives a dequeued buffer back to the driver.
/// @return the result of the request
int32_t Requeue(int32_t fd, v4l2_buffer& buffer, Ioctl_Rule request);

#endif  // WQZ_FRAME_TRANSFER_H
