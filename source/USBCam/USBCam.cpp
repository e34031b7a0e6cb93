// The session object and its two pools of frame records.
#include "USBCam/USBCam.h"

#include "Trace/trace.h"
#include "USBCam/frame_record.h"

namespace {

constexpr Trace_Module Module = {"source//USBCam/USBCam"};

// The trace lines of this file. Trace numbers are fixed identifiers, not source lines; do not renumber them.
namespace mark {
constexpr Trace_Line Construct = Module.Start(82, "USBCam");
constexpr Trace_Line Construct_Done = Module.End(90, "USBCam");
constexpr Trace_Line Add_Free = Module.Start(99, "INIT_FRAME_RES");
constexpr Trace_Line Add_Free_Done = Module.End(116, "INIT_FRAME_RES");
constexpr Trace_Line Take_Free = Module.Start(124, "GET_FRAME_RES");
constexpr Trace_Line Take_Free_Done = Module.End(149, "GET_FRAME_RES");
constexpr Trace_Line Take = Module.Start(204, "GET_FRAME_BUFF");
constexpr Trace_Line Take_None_After_Wait = Module.End(237, "GET_FRAME_BUFF");
constexpr Trace_Line Take_None = Module.End(245, "GET_FRAME_BUFF");
constexpr Trace_Line Take_Done = Module.End(251, "GET_FRAME_BUFF");
constexpr Trace_Line Take_Newest = Module.Start(262, "GET_FRAME_BUFF_NEWEST");
constexpr Trace_Line Take_Newest_None_After_Wait = Module.End(322, "GET_FRAME_BUFF_NEWEST");
constexpr Trace_Line Take_Newest_None = Module.End(330, "GET_FRAME_BUFF_NEWEST");
constexpr Trace_Line Give_Back = Module.Start(348, "SAVE_FRAME_RES");
constexpr Trace_Line Give_Back_Done = Module.End(354, "SAVE_FRAME_RES");
constexpr Trace_Line Queue = Module.Start(361, "SAVE_FRAME_BUFF");
constexpr Trace_Line Queue_Done = Module.End(369, "SAVE_FRAME_BUFF");
constexpr Trace_Line Clear = Module.Start(430, "CLEAR_FRAME_BUFF");
constexpr Trace_Line Clear_Done = Module.End(468, "CLEAR_FRAME_BUFF");
}  // namespace mark

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

// Waits once, not in a loop: a caller whose wake-up finds nothing gets null and asks again.
bool Wait_Once(const std::list<Frame_Buffer_Data*>& list, Mutex_Lock_Class& lock)
{
    (void)lock.Wait_Cond();
    return !list.empty();
}

}  // namespace

USBCam::USBCam(v4l2_dev_sys_data_t* p_Dev_Message) : Video_Device(p_Dev_Message)
{
    Trace(mark::Construct);
    iLoopMode = -1;
    gettimeofday(&tv_b, nullptr);
    fps_i = 0;
    Trace(mark::Construct_Done);
}

USBCam::~USBCam() = default;

void USBCam::INIT_FRAME_RES(uint32_t uResSize)
{
    Trace(mark::Add_Free);
    const Mutex_Lock_Class lock(cMutex);
    for (uint32_t i = 0; i < uResSize; ++i) {
        Record_In_Hand record(new Frame_Buffer_Data());
        cFrame_RES.push_front(record.get());
        (void)record.release();
    }
    Trace(mark::Add_Free_Done);
}

Frame_Buffer_Data* USBCam::GET_FRAME_RES()
{
    Trace(mark::Take_Free);
    const Mutex_Lock_Class lock(cMutex);
    Frame_Buffer_Data* record = nullptr;
    if (!cFrame_RES.empty()) {
        record = Take_Front(cFrame_RES);
    } else if (!cFrame_Buffer.empty()) {
        record = Take_Front(cFrame_Buffer);  // the application is late, so its oldest frame is overwritten
    }
    Trace(mark::Take_Free_Done);
    return record;
}

Frame_Buffer_Data* USBCam::GET_FRAME_BUFF(bool block)
{
    Trace(mark::Take);
    Mutex_Lock_Class lock(cMutex);
    if (cFrame_Buffer.empty()) {
        if (!block) {
            Trace(mark::Take_None);
            return nullptr;
        }
        if (!Wait_Once(cFrame_Buffer, lock)) {
            Trace(mark::Take_None_After_Wait);
            return nullptr;
        }
    }
    Frame_Buffer_Data* record = Take_Front(cFrame_Buffer);
    Trace(mark::Take_Done);
    return record;
}

Frame_Buffer_Data* USBCam::GET_FRAME_BUFF_NEWEST(bool block)
{
    Trace(mark::Take_Newest);
    Mutex_Lock_Class lock(cMutex);
    if (cFrame_Buffer.empty()) {
        if (!block) {
            Trace(mark::Take_Newest_None);
            return nullptr;
        }
        if (!Wait_Once(cFrame_Buffer, lock)) {
            Trace(mark::Take_Newest_None_After_Wait);
            return nullptr;
        }
    }
    // Success writes no END line: the lines of this function are part of the interface.
    while (cFrame_Buffer.size() > 1) {
        cFrame_RES.splice(cFrame_RES.end(), cFrame_Buffer, cFrame_Buffer.begin());
    }
    return Take_Front(cFrame_Buffer);
}

void USBCam::SAVE_FRAME_RES(Frame_Buffer_Data* pFrame)
{
    Trace(mark::Give_Back);
    const Mutex_Lock_Class lock(cMutex);
    if (pFrame != nullptr) {
        cFrame_RES.push_back(pFrame);
    }
    Trace(mark::Give_Back_Done);
}

void USBCam::SAVE_FRAME_BUFF(Frame_Buffer_Data* pFrame)
{
    Trace(mark::Queue);
    Mutex_Lock_Class lock(cMutex);
    cFrame_Buffer.push_back(pFrame);
    (void)lock.Send_Cond();
    Trace(mark::Queue_Done);
}

void USBCam::CLEAR_FRAME_BUFF()
{
    Trace(mark::Clear);
    const Mutex_Lock_Class lock(cMutex);
    Free_Records(cFrame_Buffer);
    Free_Records(cFrame_RES);
    Trace(mark::Clear_Done);
}
