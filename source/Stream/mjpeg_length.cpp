#include <cstdio>
#include <cstring>

#include "Stream/frame_buffer.h"
#include "USBCam_API/trace.h"

namespace {

constexpr Text Module = "source//Stream/frame_buffer";

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
    Trace<Module, __LINE__, "data_Vail", Mark::Start>();
    const uint8_t* window = p_data + (shift / 4 - Probe_Words) * 4;
    uint64_t sum = 0;
    for (uint32_t i = 0; i < Probe_Words; ++i) {
        uint32_t word = 0;
        std::memcpy(&word, window + i * 4, sizeof word);
        sum += word;
    }
    Trace<Module, __LINE__, "data_Vail", Mark::End>();
    return sum != 0;
}

// Narrows the end of the data down to where a byte scan is cheap. `index1` is known to have zeros only behind it.
// A probe below 100 would read before the buffer: the scan then starts from what is known so far.
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
    Trace<Module, __LINE__, "Data_Vail_End", Mark::Start>();
    uint32_t end = Scan_Start(p_data, length);
    while (end > 0 && p_data[end - 1] == 0) {
        --end;
    }
    Trace<Module, __LINE__, "Data_Vail_End", Mark::End>();
    return end;
}

int32_t Measured_Length(const uint8_t* p_data, const v4l2_buffer* p_buffer)
{
    if (p_data == nullptr || p_buffer == nullptr || p_buffer->bytesused < Marker_Bytes || !Starts_Image(p_data)) {
        return -1;
    }
    return Ends_Image(p_data, p_buffer->bytesused) ? static_cast<int32_t>(p_buffer->bytesused) : -1;
}

int32_t Searched_Length(const uint8_t* p_data, uint32_t Max_Length)
{
    if (p_data == nullptr || Max_Length < Marker_Bytes || !Starts_Image(p_data)) {
        return -1;
    }
    const uint32_t End_data_index = Data_Vail_End(p_data, Max_Length);
    fprintf(stderr, "End_data_index [%d][0x%08x]->[%02X][%02X]!\n", static_cast<int32_t>(End_data_index),
            End_data_index, static_cast<unsigned>(p_data[End_data_index - 2]),
            static_cast<unsigned>(p_data[End_data_index - 1]));
    return Ends_Image(p_data, End_data_index) ? static_cast<int32_t>(End_data_index) : -1;
}

}  // namespace

int32_t Frame_Buffer::MJPEG_Length(uint8_t* p_data, v4l2_buffer* p_buffer)
{
    Trace<Module, __LINE__, "MJPEG_Length", Mark::Start>();
    const int32_t length = Measured_Length(p_data, p_buffer);
    Trace<Module, __LINE__, "MJPEG_Length", Mark::End>();
    return length;
}

int32_t Frame_Buffer::MJPEG_Length(uint8_t* p_data, uint32_t Max_Length)
{
    Trace<Module, __LINE__, "MJPEG_Length", Mark::Start>();
    const int32_t length = Searched_Length(p_data, Max_Length);
    Trace<Module, __LINE__, "MJPEG_Length", Mark::End>();
    return length;
}
