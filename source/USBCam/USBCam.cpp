#include "USBCam/USBCam.h"

#include <atomic>

#include "USBCam/frame_record.h"
#include "USBCam_API/trace.h"

// The line numbers of the trace are the session's own marks: whoever reads a trace looks them up by number.

namespace {

constexpr Text Module = "source//USBCam/USBCam";

Frame_Buffer_Data* Take_Front(std::list<Frame_Buffer_Data*>& list)
{
    Frame_Buffer_Data* record = list.front();
    list.pop_front();
    return record;
}

void Free_Records(std::list<Frame_Buffer_Data*>& list)
{
    while (!list.empty()) {
        Free_Record()(Take_Front(list));
    }
}

// One wait, not a loop: a wake-up that finds nothing is the caller's to see.
bool Wait_Once(const std::list<Frame_Buffer_Data*>& list, Mutex_Lock_Class& lock)
{
    (void)lock.Wait_Cond();
    return !list.empty();
}

}  // namespace

USBCam::USBCam(v4l2_dev_sys_data_t* p_Dev_Message) : Video_Device(p_Dev_Message)
{
    Trace<Module, 82, "USBCam", Mark::Start>();
    iLoopMode = -1;
    gettimeofday(&tv_b, nullptr);
    fps_i = 0;
    Trace<Module, 90, "USBCam", Mark::End>();
}

USBCam::~USBCam() = default;

void USBCam::INIT_FRAME_RES(uint32_t uResSize)
{
    Trace<Module, 99, "INIT_FRAME_RES", Mark::Start>();
    const Mutex_Lock_Class lock(cMutex);
    for (uint32_t i = 0; i < uResSize; ++i) {
        Record_In_Hand record(new Frame_Buffer_Data());
        cFrame_RES.push_front(record.get());
        (void)record.release();
    }
    Trace<Module, 116, "INIT_FRAME_RES", Mark::End>();
}

Frame_Buffer_Data* USBCam::GET_FRAME_RES()
{
    Trace<Module, 124, "GET_FRAME_RES", Mark::Start>();
    const Mutex_Lock_Class lock(cMutex);
    Frame_Buffer_Data* record = nullptr;
    if (!cFrame_RES.empty()) {
        record = Take_Front(cFrame_RES);
    } else if (!cFrame_Buffer.empty()) {
        record = Take_Front(cFrame_Buffer);  // the application is late: its oldest frame gives way
    }
    Trace<Module, 149, "GET_FRAME_RES", Mark::End>();
    return record;
}

Frame_Buffer_Data* USBCam::GET_FRAME_BUFF(bool block)
{
    Trace<Module, 204, "GET_FRAME_BUFF", Mark::Start>();
    Mutex_Lock_Class lock(cMutex);
    if (cFrame_Buffer.empty()) {
        if (!block) {
            Trace<Module, 245, "GET_FRAME_BUFF", Mark::End>();
            return nullptr;
        }
        if (!Wait_Once(cFrame_Buffer, lock)) {
            Trace<Module, 237, "GET_FRAME_BUFF", Mark::End>();
            return nullptr;
        }
    }
    Frame_Buffer_Data* record = Take_Front(cFrame_Buffer);
    Trace<Module, 251, "GET_FRAME_BUFF", Mark::End>();
    return record;
}

Frame_Buffer_Data* USBCam::GET_FRAME_BUFF_NEWEST(bool block)
{
    Trace<Module, 262, "GET_FRAME_BUFF_NEWEST", Mark::Start>();
    Mutex_Lock_Class lock(cMutex);
    if (cFrame_Buffer.empty()) {
        if (!block) {
            Trace<Module, 330, "GET_FRAME_BUFF_NEWEST", Mark::End>();
            return nullptr;
        }
        if (!Wait_Once(cFrame_Buffer, lock)) {
            Trace<Module, 322, "GET_FRAME_BUFF_NEWEST", Mark::End>();
            return nullptr;
        }
    }
    // Success leaves no END line: meant so.
    while (cFrame_Buffer.size() > 1) {
        cFrame_RES.splice(cFrame_RES.end(), cFrame_Buffer, cFrame_Buffer.begin());
    }
    return Take_Front(cFrame_Buffer);
}

void USBCam::SAVE_FRAME_RES(Frame_Buffer_Data* pFrame)
{
    Trace<Module, 348, "SAVE_FRAME_RES", Mark::Start>();
    const Mutex_Lock_Class lock(cMutex);
    if (pFrame != nullptr) {
        cFrame_RES.push_back(pFrame);
    }
    Trace<Module, 354, "SAVE_FRAME_RES", Mark::End>();
}

void USBCam::SAVE_FRAME_BUFF(Frame_Buffer_Data* pFrame)
{
    Trace<Module, 361, "SAVE_FRAME_BUFF", Mark::Start>();
    Mutex_Lock_Class lock(cMutex);
    cFrame_Buffer.push_back(pFrame);
    (void)lock.Send_Cond();
    Trace<Module, 369, "SAVE_FRAME_BUFF", Mark::End>();
}

void USBCam::CLEAR_FRAME_BUFF()
{
    Trace<Module, 430, "CLEAR_FRAME_BUFF", Mark::Start>();
    const Mutex_Lock_Class lock(cMutex);
    Free_Records(cFrame_Buffer);
    Free_Records(cFrame_RES);
    Trace<Module, 468, "CLEAR_FRAME_BUFF", Mark::End>();
}

int32_t USBCam::Video_STREAM_STATUS(bool block)
{
    Trace<Module, 162, "Video_STREAM_STATUS", Mark::Start>();
    Mutex_Lock_Class lock(cMutex);
    if (!cFrame_Buffer.empty()) {
        Trace<Module, 168, "Video_STREAM_STATUS", Mark::End>();
        return static_cast<int32_t>(cFrame_Buffer.size());
    }
    if (!block) {
        Trace<Module, 192, "Video_STREAM_STATUS", Mark::End>();
        return 0;
    }
    if (!Wait_Once(cFrame_Buffer, lock)) {
        Trace<Module, 185, "Video_STREAM_STATUS", Mark::End>();
        return 0;
    }
    Trace<Module, 180, "Video_STREAM_STATUS", Mark::End>();
    return static_cast<int32_t>(cFrame_Buffer.size());
}

int32_t USBCam::Video_DEAL_WITH_INIT(int32_t fd)
{
    Trace<Module, 487, "Video_DEAL_WITH_INIT", Mark::Start>();
    (void)Video_Open();
    iFd = fd;
    // Only 0 counts as not open: a failed open, which leaves -1, passes. Meant so.
    return Get_Video_Device_FD() == 0 ? -1 : 0;
}

void USBCam::Video_DEAL_WITH_UNINIT()
{
    Trace<Module, 538, "Video_DEAL_WITH_UNINIT", Mark::Start>();
    (void)Video_Close();
    Trace<Module, 544, "Video_DEAL_WITH_UNINIT", Mark::End>();
}

void USBCam::EVENT_LoopMode(int32_t val)
{
    Trace<Module, 652, "EVENT_LoopMode", Mark::Plain>();
    std::atomic_ref(iLoopMode).store(val, std::memory_order_relaxed);
}
