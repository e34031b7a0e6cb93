// The length of a Motion-JPEG image: taken from the driver, or searched for in a buffer that zeros fill up.
#include <cstdio>

#include "Stream/frame_buffer.h"
#include "Stream/image_end.h"
#include "Trace/trace.h"

namespace {

constexpr Trace_Module Module = {"source//Stream/frame_buffer"};

// The trace lines of this file. Trace numbers are fixed identifiers, not source lines; do not renumber them.
namespace mark {
constexpr Trace_Line Probe = Module.Start(127, "data_Vail");
constexpr Trace_Line Probe_Done = Module.End(135, "data_Vail");
constexpr Trace_Line Find_End = Module.Start(168, "Data_Vail_End");
constexpr Trace_Line Find_End_Done = Module.End(173, "Data_Vail_End");
constexpr Trace_Line Measure = Module.Start(202, "MJPEG_Length");
constexpr Trace_Line Measure_No_Start = Module.End(205, "MJPEG_Length");
constexpr Trace_Line Measure_No_End = Module.End(209, "MJPEG_Length");
constexpr Trace_Line Measure_Done = Module.End(212, "MJPEG_Length");
constexpr Trace_Line Search = Module.Start(218, "MJPEG_Length");
constexpr Trace_Line Search_No_Start = Module.End(221, "MJPEG_Length");
constexpr Trace_Line Search_No_End = Module.End(229, "MJPEG_Length");
constexpr Trace_Line Search_Done = Module.End(232, "MJPEG_Length");
}  // namespace mark

bool data_Vail(const uint8_t* p_data, uint32_t shift)
{
    Trace(mark::Probe);
    const bool has_data = Has_Data_Before(p_data, shift);
    Trace(mark::Probe_Done);
    return has_data;
}

uint32_t Data_Vail_End(const uint8_t* p_data, uint32_t length)
{
    Trace(mark::Find_End);
    const uint32_t end = Data_End(p_data, length, data_Vail);
    Trace(mark::Find_End_Done);
    return end;
}

void Report_End(const uint8_t* p_data, uint32_t End_data_index)
{
    fprintf(stderr, "End_data_index [%d][0x%08x]->[%02X][%02X]!\n", static_cast<int32_t>(End_data_index),
            End_data_index, static_cast<unsigned>(p_data[End_data_index - 2]),
            static_cast<unsigned>(p_data[End_data_index - 1]));
}

}  // namespace

int32_t Frame_Buffer::MJPEG_Length(uint8_t* p_data, v4l2_buffer* p_buffer)
{
    Trace(mark::Measure);
    if (p_data == nullptr || p_buffer == nullptr || !Starts_Jpeg(p_data, p_buffer->bytesused)) {
        Trace(mark::Measure_No_Start);
        return -1;
    }
    if (!Ends_Jpeg(p_data, p_buffer->bytesused)) {
        Trace(mark::Measure_No_End);
        return -1;
    }
    Trace(mark::Measure_Done);
    return static_cast<int32_t>(p_buffer->bytesused);
}

int32_t Frame_Buffer::MJPEG_Length(uint8_t* p_data, uint32_t Max_Length)
{
    Trace(mark::Search);
    if (p_data == nullptr || !Starts_Jpeg(p_data, Max_Length)) {
        Trace(mark::Search_No_Start);
        return -1;
    }
    const uint32_t End_data_index = Data_Vail_End(p_data, Max_Length);
    Report_End(p_data, End_data_index);
    if (!Ends_Jpeg(p_data, End_data_index)) {
        Trace(mark::Search_No_End);
        return -1;
    }
    Trace(mark::Search_Done);
    return static_cast<int32_t>(End_data_index);
}
