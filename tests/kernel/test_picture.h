// The pictures and names that the test camera sends, shared by the camera and by the tests that check its frames.
#ifndef WQZ_TESTS_KERNEL_TEST_PICTURE_H
#define WQZ_TESTS_KERNEL_TEST_PICTURE_H

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

namespace Test_Picture {

constexpr uint16_t Vendor = 0x1209;
constexpr uint16_t Product = 0x0001;
constexpr uint16_t Release = 0x0107;
constexpr const char* Texts[] = {"Kernel Test", "Frame Counter Camera", "KT-0001"};  // manufacturer, product, serial

// A Motion-JPEG frame is one fixed image with this comment right behind its start-of-image marker.
constexpr size_t Comment_At = 2;
constexpr char Comment_Format[] = "frame %010u";
constexpr size_t Comment_Text_Bytes = 16;
constexpr size_t Comment_Bytes = 4 + Comment_Text_Bytes;  // FF FE, length, text

/// The bytes of YUYV frame `counter`: the counter in the first four, little-endian, then values that differ from
/// byte to byte, row to row and frame to frame.
inline std::vector<uint8_t> Yuyv_Frame(uint32_t width, uint32_t height, uint32_t counter)
{
    std::vector<uint8_t> frame(size_t{width} * height * 2);
    for (size_t i = 4; i < frame.size(); ++i) {
        frame[i] = static_cast<uint8_t>(i * 37 + (i >> 8) * 101 + counter * 11);
    }
    for (size_t i = 0; i < 4; ++i) {
        frame[i] = static_cast<uint8_t>(counter >> (8 * i));
    }
    return frame;
}

/// Writes the comment with the counter to `at` (Comment_Bytes bytes).
inline void Write_Comment(uint8_t* at, uint32_t counter)
{
    char text[Comment_Text_Bytes + 1];
    snprintf(text, sizeof text, Comment_Format, counter);
    const uint8_t marker[4] = {0xFF, 0xFE, 0, 2 + Comment_Text_Bytes};
    memcpy(at, marker, sizeof marker);
    memcpy(at + sizeof marker, text, Comment_Text_Bytes);
}

}  // namespace Test_Picture

#endif  // WQZ_TESTS_KERNEL_TEST_PICTURE_H
