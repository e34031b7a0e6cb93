#include "Stream/frame_buffer.h"

#include <sys/mman.h>
#include <sys/time.h>

#include <cstdio>

#include "Stream/frame_transfer.h"
#include "Stream/retrying_ioctl.h"
#include "Stream/save_file.h"
#include "USBCam_API/trace.h"

using device_request::xioctl;

namespace {

constexpr Text Module = "source//Stream/frame_buffer";

}  // namespace

Frame_Buffer::Frame_Buffer() : sBuf()
{
}

int32_t Frame_Buffer::map_buff(uint32_t fd)
{
    Trace<Module, __LINE__, "map_buff", Mark::Start>();
    sBuf.pMem =
        mmap(nullptr, sBuf.buff_Length, PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int32_t>(fd), sBuf.buff_Offset);
    Trace<Module, __LINE__, "map_buff", Mark::End>();
    return sBuf.pMem == MAP_FAILED ? -1 : 0;
}

int32_t Frame_Buffer::query_buff(uint32_t fd)
{
    Trace<Module, __LINE__, "query_buff", Mark::Start>();
    sBuf.buffer = Capture_Buffer(sBuf.index);
    const int32_t result = xioctl(static_cast<int32_t>(fd), VIDIOC_QUERYBUF, &sBuf.buffer);
    if (result < 0) {
        Trace<Module, __LINE__, "query_buff", Mark::End>();
        return -1;
    }
    sBuf.buff_Length = sBuf.buffer.length;
    sBuf.buff_Offset = sBuf.buffer.m.offset;
    const int32_t mapped = map_buff(fd);
    Trace<Module, __LINE__, "query_buff", Mark::End>();
    return result | mapped;
}

int32_t Frame_Buffer::queue_buff(uint32_t fd)
{
    Trace<Module, __LINE__, "queue_buff", Mark::Start>();
    sBuf.buffer = Capture_Buffer(sBuf.index);
    const int32_t result = xioctl(static_cast<int32_t>(fd), VIDIOC_QBUF, &sBuf.buffer);
    Trace<Module, __LINE__, "queue_buff", Mark::End>();
    return result < 0 ? -1 : 0;
}

int32_t Frame_Buffer::unmap_buff()
{
    Trace<Module, __LINE__, "unmap_buff", Mark::Start>();
    if (munmap(sBuf.pMem, sBuf.buff_Length) < 0) {
        return -1;
    }
    Trace<Module, __LINE__, "unmap_buff", Mark::End>();
    return 0;
}

int32_t Frame_Buffer::read_buff(uint32_t fd, std::list<Frame_Buffer>& LC_Frame_Buffer, Frame_Buffer_Data* pBuffer)
{
    Trace<Module, __LINE__, "read_buff", Mark::Start>();
    int32_t result = -1;
    if (!LC_Frame_Buffer.empty()) {
        result = Transfer_Frame(static_cast<int32_t>(fd), LC_Frame_Buffer, *pBuffer, xioctl).value_or(-1);
    }
    Trace<Module, __LINE__, "read_buff", Mark::End>();
    return result;
}

int32_t Frame_Buffer::read_buff(uint32_t fd, std::list<Frame_Buffer>& /*LC_Frame_Buffer*/)
{
    Trace<Module, __LINE__, "read_buff", Mark::Start>();
    const auto device = static_cast<int32_t>(fd);
    v4l2_buffer buffer = Capture_Buffer(0);
    const std::optional<int32_t> dequeued = Dequeue(device, buffer, xioctl);
    int32_t result = -1;
    if (dequeued) {
        timeval now{};
        gettimeofday(&now, nullptr);
        fprintf(stderr, "%s%s \n", Default_Save_Directory, Time_Name(now, "jpg").c_str());
        result = Requeue(device, buffer, xioctl, *dequeued);
    }
    Trace<Module, __LINE__, "read_buff", Mark::End>();
    return result;
}

Frame_Buffer_Data* Frame_Buffer::Get_Frame_Buff_data()
{
    return &sBuf;
}
