// The end of an image in a buffer that zeros fill up.
#include "Stream/image_end.h"

#include <cstring>

namespace {

constexpr uint32_t Probe_Words = 25;
constexpr uint32_t Probe_Bytes = Probe_Words * 4;
constexpr uint32_t Marker_Bytes = 2;

using Probe = bool (*)(const uint8_t*, uint32_t);

// Narrows down where the data ends until a byte scan is cheap. Only zeros lie behind `index1`.
// A probe below 100 would read before the buffer, so the scan then starts from what is known so far.
uint32_t Scan_Start(const uint8_t* p_data, uint32_t length, Probe has_data)
{
    uint32_t index1 = length;
    uint32_t index0 = length / 2;
    while (index0 >= Probe_Bytes && !has_data(p_data, index0)) {
        index1 = index0;
        index0 /= 2;
    }
    if (index0 < Probe_Bytes) {
        return index1;
    }
    uint32_t step = (index1 - index0) / 2;
    while (step > Probe_Bytes) {
        const uint32_t mid = index0 + step;
        if (has_data(p_data, mid)) {
            index0 = mid;
            step = (index1 - index0) / 2;
        } else {
            index1 = mid;
            step /= 2;
        }
    }
    return index1;
}

uint32_t Scan_Back(const uint8_t* p_data, uint32_t end)
{
    while (end > 0 && p_data[end - 1] == 0) {
        --end;
    }
    return end;
}

}  // namespace

bool Has_Data_Before(const uint8_t* p_data, uint32_t shift)
{
    const uint8_t* window = p_data + (shift / 4 - Probe_Words) * 4;
    uint64_t sum = 0;
    for (uint32_t i = 0; i < Probe_Words; ++i) {
        uint32_t word = 0;
        std::memcpy(&word, window + i * 4, sizeof word);
        sum += word;
    }
    return sum != 0;
}

uint32_t Data_End(const uint8_t* p_data, uint32_t length, Probe has_data)
{
    return Scan_Back(p_data, Scan_Start(p_data, length, has_data));
}

bool Starts_Jpeg(const uint8_t* p_data, uint32_t length)
{
    return length >= Marker_Bytes && p_data[0] == 0xFF && p_data[1] == 0xD8;
}

bool Ends_Jpeg(const uint8_t* p_data, uint32_t length)
{
    return length >= Marker_Bytes && p_data[length - 2] == 0xFF && p_data[length - 1] == 0xD9;
}

uint32_t Jpeg_Length(const uint8_t* p_data, uint32_t length)
{
    if (!Starts_Jpeg(p_data, length) || Ends_Jpeg(p_data, length)) {
        return length;
    }
    const uint32_t found = Data_End(p_data, length, Has_Data_Before);
    if (Ends_Jpeg(p_data, found)) {
        return found;
    }
    const uint32_t scanned = Scan_Back(p_data, length);  // when zeros inside the image misled the search
    return Ends_Jpeg(p_data, scanned) ? scanned : length;
}
