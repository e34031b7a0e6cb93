// The length of a Motion-JPEG image: taken from the driver, or searched for in a buffer that zeros fill up.
#include <cstdio>
#include <cstring>

#include "Stream/frame_buffer.h"
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

constexpr uint32_t Probe_Words = 25;
constexpr uint32_t Probe_Bytes = Probe_Words * 4;
constexpr uint32_t Marker_Bytes = 2;

bool Starts_Image(const uint8_t* p_data)
{
    return p_data[0] == 0xFF && p_data[1] == 0xD8;
}

bool Ends_Image(const uint8_t* p_data, uint32_t length)
{
    return p_data[length - 2] == 0xFF && p_data[length - 1] == 0xD9;
}

// Whether any of the 100 bytes before the word boundary at or below `shift` is not zero.
bool data_Vail(const uint8_t* p_data, uint32_t shift)
{
    Trace(mark::Probe);
    const uint8_t* window = p_data + (shift / 4 - Probe_Words) * 4;
    uint64_t sum = 0;
    for (uint32_t i = 0; i < Probe_Words; ++i) {
        uint32_t word = 0;
        std::memcpy(&word, window + i * 4, sizeof word);
        sum += word;
    }
    Trace(mark::Probe_Done);
    return sum != 0;
}

// Narrows the end of the data down to a place where a byte scan is cheap. Only zeros follow `index1`.
// A probe below 100 would read before the buffer, so the scan then starts from what is known so far.
uint32_t Scan_Start(const uint8_t* p_data, uint32_t length)
{
    uint32_t index1 = length;
    uint32_t index0 = length / 2;
    while (index0 >= Probe_Bytes && !data_Vail(p_data, index0)) {
        index1 = index0;
        index0 /= 2;
    }
    if (index0 < Probe_Bytes) {
        return index1;
    }
    uint32_t dalte = (index1 - index0) / 2;
    while (dalte > Probe_Bytes) {
        const uint32_t mid = index0 + dalte;
        if (data_Vail(p_data, mid)) {
            index0 = mid;
            dalte = (index1 - index0) / 2;
        } else {
            index1 = mid;
            dalte /= 2;
        }
    }
    return index1;
}

// The index just past the last byte that is not zero; 0 when there is none.
uint32_t Data_Vail_End(const uint8_t* p_data, uint32_t length)
{
    Trace(mark::Find_End);
    uint32_t end = Scan_Start(p_data, length);
    while (end > 0 && p_data[end - 1] == 0) {
        --end;
    }
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
    if (p_data == nullptr || p_buffer == nullptr || p_buffer->bytesused < Marker_Bytes || !Starts_Image(p_data)) {
        Trace(mark::Measure_No_Start);
        return -1;
    }
    if (!Ends_Image(p_data, p_buffer->bytesused)) {
        Trace(mark::Measure_No_End);
        return -1;
    }
    Trace(mark::Measure_Done);
    return static_cast<int32_t>(p_buffer->bytesused);
}

int32_t Frame_Buffer::MJPEG_Length(uint8_t* p_data, uint32_t Max_Length)
{
    Trace(mark::Search);
    if (p_data == nullptr || Max_Length < Marker_Bytes || !Starts_Image(p_data)) {
        Trace(mark::Search_No_Start);
        return -1;
    }
    const uint32_t End_data_index = Data_Vail_End(p_data, Max_Length);
    Report_End(p_data, End_data_index);
    if (!Ends_Image(p_data, End_data_index)) {
        Trace(mark::Search_No_End);
        return -1;
    }
    Trace(mark::Search_Done);
    return static_cast<int32_t>(End_data_index);
}
