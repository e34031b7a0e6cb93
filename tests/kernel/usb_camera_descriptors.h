// The USB descriptors of the test camera: two formats in two sizes, brightness, white balance.
#ifndef WQZ_TESTS_KERNEL_USB_CAMERA_DESCRIPTORS_H
#define WQZ_TESTS_KERNEL_USB_CAMERA_DESCRIPTORS_H

#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "test_picture.h"

using Bytes = std::vector<uint8_t>;

constexpr uint8_t Bulk_Endpoint = 1;
constexpr uint8_t Camera_Terminal = 1, Processing_Unit = 2, Output_Terminal = 3;

struct Frame_Size {
    uint16_t width, height;
    std::vector<uint32_t> intervals;  // 100 ns
};

/// The sizes of either format; format 1 is Motion-JPEG, format 2 YUYV.
inline const std::vector<Frame_Size> Sizes = {
    {160, 120, {333333, 666666, 1333333}},  // 30, 15 and 7.5 frames per second
    {320, 240, {666666, 2000000}},          // 15 and 5
};

inline void Append(Bytes& to, const Bytes& more)
{
    to.insert(to.end(), more.begin(), more.end());
}

inline void Append_Little(Bytes& to, uint32_t value, int bytes)
{
    for (int i = 0; i < bytes; ++i) {
        to.push_back(static_cast<uint8_t>(value >> (8 * i)));
    }
}

inline Bytes Device_Descriptor()
{
    // Miscellaneous class with interface association; three strings, one configuration.
    Bytes d = {18, 1, 0x00, 0x02, 0xEF, 2, 1, 64};
    for (const uint32_t value : {Test_Picture::Vendor, Test_Picture::Product, Test_Picture::Release}) {
        Append_Little(d, value, 2);
    }
    Append(d, {1, 2, 3, 1});
    return d;
}

inline void Append_Frames(Bytes& formats, uint8_t subtype)
{
    uint8_t index = 0;
    for (const Frame_Size& size : Sizes) {
        const auto intervals = static_cast<uint8_t>(size.intervals.size());
        const uint32_t bytes = uint32_t{size.width} * size.height * 2;
        Append(formats, {static_cast<uint8_t>(26 + 4 * intervals), 0x24, subtype, ++index, 0});
        Append_Little(formats, size.width, 2);
        Append_Little(formats, size.height, 2);
        for (const uint32_t value : {bytes * 8 * 5, bytes * 8 * 30, bytes, size.intervals.front()}) {
            Append_Little(formats, value, 4);
        }
        formats.push_back(intervals);
        for (const uint32_t interval : size.intervals) {
            Append_Little(formats, interval, 4);
        }
    }
}

inline Bytes Control_Interface()
{
    Bytes units = {18, 0x24, 2, Camera_Terminal, 0x01, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 3, 0, 0, 0};
    // Brightness, white balance temperature and its automatic rule.
    Append(units, {11, 0x24, 5, Processing_Unit, Camera_Terminal, 0, 0, 2, 0x41, 0x10, 0});
    Append(units, {9, 0x24, 3, Output_Terminal, 0x01, 0x01, 0, Processing_Unit, 0});
    Bytes d = {9, 4, 0, 0, 0, 0x0E, 1, 0, 2, 13, 0x24, 1, 0x00, 0x01};
    Append_Little(d, static_cast<uint32_t>(13 + units.size()), 2);
    Append_Little(d, 6000000, 4);
    Append(d, {1, 1});
    Append(d, units);
    return d;
}

inline Bytes Streaming_Interface()
{
    const auto count = static_cast<uint8_t>(Sizes.size());
    Bytes formats = {11, 0x24, 6, 1, count, 1, 1, 0, 0, 0, 0};
    Append_Frames(formats, 7);
    Append(formats, {27, 0x24, 4, 2, count, 'Y', 'U', 'Y', '2', 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71});
    Append(formats, {16, 1, 0, 0, 0, 0});
    Append_Frames(formats, 5);
    Bytes d = {9, 4, 1, 0, 1, 0x0E, 2, 0, 0, 15, 0x24, 1, 2};
    Append_Little(d, static_cast<uint32_t>(15 + formats.size()), 2);
    Append(d, {0x80 | Bulk_Endpoint, 0, Output_Terminal, 0, 0, 0, 1, 0, 0});
    Append(d, formats);
    Append(d, {7, 5, 0x80 | Bulk_Endpoint, 2, 0x00, 0x02, 0});
    return d;
}

inline Bytes Configuration_Descriptor()
{
    const Bytes control = Control_Interface(), streaming = Streaming_Interface();
    Bytes d = {9, 2};
    Append_Little(d, static_cast<uint32_t>(17 + control.size() + streaming.size()), 2);
    Append(d, {2, 1, 0, 0x80, 50, 8, 11, 0, 2, 0x0E, 3, 0, 2});  // ending with the association of both interfaces
    Append(d, control);
    Append(d, streaming);
    return d;
}

inline Bytes String_Descriptor(uint8_t index)
{
    if (index == 0 || index > std::size(Test_Picture::Texts)) {
        return index == 0 ? Bytes{4, 3, 0x09, 0x04} : Bytes{};  // 0 asks for the languages
    }
    const std::string text = Test_Picture::Texts[index - 1];
    Bytes d = {static_cast<uint8_t>(2 + 2 * text.size()), 3};
    for (const char c : text) {
        Append(d, {static_cast<uint8_t>(c), 0});
    }
    return d;
}

/// @param value  of a GET_DESCRIPTOR request: type in the high byte, index in the low one
/// @return the device, configuration or string descriptor; empty for any other
inline Bytes Usb_Descriptor(uint16_t value)
{
    const int type = value >> 8;
    return type == 1   ? Device_Descriptor()
           : type == 2 ? Configuration_Descriptor()
           : type == 3 ? String_Descriptor(static_cast<uint8_t>(value))
                       : Bytes{};
}

#endif  // WQZ_TESTS_KERNEL_USB_CAMERA_DESCRIPTORS_H
