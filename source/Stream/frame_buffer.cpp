// One memory-mapped kernel buffer: query, map, queue, dequeue and copy, unmap.
#include "Stream/frame_buffer.h"

#include <sys/mman.h>
#include <sys/time.h>

#include <cstdio>

#include "Device/capture_buffer.h"
#include "Device/retrying_ioctl.h"
#include "Stream/frame_transfer.h"
#include "Stream/save_file.h"
#include "Trace/trace.h"

using device_request::xioctl;

namespace {

constexpr Trace_Module Module = {"source//Stream/frame_buffer"};

// The trace lines of this file. Trace numbers are fixed identifiers, not source lines; do not renumber them.
namespace mark {
constexpr Trace_Line Map = Module.Start(29, "map_buff");
constexpr Trace_Line Map_Done = Module.End(32, "map_buff");
constexpr Trace_Line Query = Module.Start(38, "query_buff");
constexpr Trace_Line Query_Refused = Module.End(42, "query_buff");
constexpr Trace_Line Query_Done = Module.End(48, "query_buff");
constexpr Trace_Line Queue = Module.Start(54, "queue_buff");
constexpr Trace_Line Queue_Refused = Module.End(57, "queue_buff");
constexpr Trace_Line Queue_Done = Module.End(60, "queue_buff");
constexpr Trace_Line Unmap = Module.Start(63, "unmap_buff");
constexpr Trace_Line Unmap_Done = Module.End(67, "unmap_buff");
constexpr Trace_Line Read = Module.Start(73, "read_buff");
constexpr Trace_Line Read_Refused = Module.End(76, "read_buff");
constexpr Trace_Line Read_Done = Module.End(78, "read_buff");
constexpr Trace_Line Skip = Module.Start(84, "read_buff");
constexpr Trace_Line Skip_Refused = Module.End(88, "read_buff");
constexpr Trace_Line Skip_Done = Module.End(94, "read_buff");
}  // namespace mark

}  // namespace

Frame_Buffer::Frame_Buffer() : sBuf()
{
}

int32_t Frame_Buffer::map_buff(uint32_t fd)
{
    Trace(mark::Map);
    sBuf.pMem =
        mmap(nullptr, sBuf.buff_Length, PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int32_t>(fd), sBuf.buff_Offset);
    Trace(mark::Map_Done);
    return sBuf.pMem == MAP_FAILED ? -1 : 0;
}

int32_t Frame_Buffer::query_buff(uint32_t fd)
{
    Trace(mark::Query);
    sBuf.buffer = Capture_Buffer(sBuf.index);
    const int32_t result = xioctl(static_cast<int32_t>(fd), VIDIOC_QUERYBUF, &sBuf.buffer);
    if (result < 0) {
        Trace(mark::Query_Refused);
        return -1;
    }
    sBuf.buff_Length = sBuf.buffer.length;
    sBuf.buff_Offset = sBuf.buffer.m.offset;
    const int32_t mapped = map_buff(fd);
    Trace(mark::Query_Done);
    return result | mapped;
}

int32_t Frame_Buffer::queue_buff(uint32_t fd)
{
    Trace(mark::Queue);
    sBuf.buffer = Capture_Buffer(sBuf.index);
    if (xioctl(static_cast<int32_t>(fd), VIDIOC_QBUF, &sBuf.buffer) < 0) {
        Trace(mark::Queue_Refused);
        return -1;
    }
    Trace(mark::Queue_Done);
    return 0;
}

int32_t Frame_Buffer::unmap_buff()
{
    Trace(mark::Unmap);
    if (munmap(sBuf.pMem, sBuf.buff_Length) < 0) {
        return -1;
    }
    Trace(mark::Unmap_Done);
    return 0;
}

int32_t Frame_Buffer::read_buff(uint32_t fd, std::list<Frame_Buffer>& LC_Frame_Buffer, Frame_Buffer_Data* pBuffer)
{
    Trace(mark::Read);
    std::optional<int32_t> result;
    if (!LC_Frame_Buffer.empty()) {
        result = Transfer_Frame(static_cast<int32_t>(fd), LC_Frame_Buffer, *pBuffer, xioctl);
    }
    if (!result) {
        Trace(mark::Read_Refused);
        return -1;
    }
    Trace(mark::Read_Done);
    return *result;
}

int32_t Frame_Buffer::read_buff(uint32_t fd, std::list<Frame_Buffer>& /*LC_Frame_Buffer*/)
{
    Trace(mark::Skip);
    const auto device = static_cast<int32_t>(fd);
    v4l2_buffer buffer = Capture_Buffer(0);
    const std::optional<int32_t> dequeued = Dequeue(device, buffer, xioctl);
    if (!dequeued) {
        Trace(mark::Skip_Refused);
        return -1;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    fprintf(stderr, "%s%s \n", Default_Save_Directory, Time_Name(now, "jpg").c_str());
    const int32_t requeued = Requeue(device, buffer, xioctl);
    Trace(mark::Skip_Done);
    return *dequeued | requeued;
}

Frame_Buffer_Data* Frame_Buffer::Get_Frame_Buff_data()
{
    return &sBuf;
}
