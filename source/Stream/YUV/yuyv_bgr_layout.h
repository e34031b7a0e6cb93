// How the SSSE3 and AVX2 kernels arrange sums and bytes.
#ifndef WQZ_YUYV_BGR_LAYOUT_H
#define WQZ_YUYV_BGR_LAYOUT_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "Stream/YUV/yuyv_coefficients.h"

// Each 32-bit element of a loaded vector is one group; its low 16-bit word has Y0 and U, its high word Y1 and V.
// With u = U - 128 scaled by 16, the high half of the 16-bit product (u << 4) * Blue_From_U is (Blue_From_U * u) >> 12,
// which the tables add to Y for blue. Red works alike. The sum of both green products, scaled by 16 too, has its
// shifted value in the high word. The sums fit 16 bits, and packing them to bytes clamps to 0..255.
//
// Three sums per group need few shuffles. Words 0 and 1 of
//   sum 0  are  B0 R1  (Y plus the blue and red parts as they come out of the product),
//   sum 1  are  G0 G1,
//   sum 2  are  R0 B1  (the same parts with the words exchanged).
namespace yuyv_bgr {

constexpr int Blue_Red = Red_From_V << 16 | Blue_From_U;
constexpr int Green = Green_From_V << 16 | Green_From_U;

enum Packed { Sums_0_1_Of_First_8, Sums_0_1_Of_Last_8, Sum_2_Of_All };

/// Byte shuffle that brings what `packed` holds for 16 pixels to its places in output vector `part` of 3, else zero.
constexpr std::array<uint8_t, 16> Interleave(size_t part, Packed packed)
{
    std::array<uint8_t, 16> shuffle{};
    for (size_t i = 0; i < 16; ++i) {
        const size_t pixel = (part * 16 + i) / 3;
        const size_t colour = (part * 16 + i) % 3;
        const bool is_sum_2 = colour == (pixel % 2 == 0 ? 2U : 0U);
        const Packed holder = is_sum_2 ? Sum_2_Of_All : pixel < 8 ? Sums_0_1_Of_First_8 : Sums_0_1_Of_Last_8;
        const size_t place = is_sum_2 ? pixel : pixel % 8 + (colour == 1 ? 8 : 0);
        shuffle[i] = static_cast<uint8_t>(holder == packed ? place : 0x80);
    }
    return shuffle;
}

template <size_t part, Packed packed>
alignas(16) constexpr std::array<uint8_t, 16> Shuffle = Interleave(part, packed);

alignas(16) constexpr std::array<uint8_t, 16> Swap_Words = {2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13};
alignas(16) constexpr std::array<uint8_t, 16> High_Word_Twice = {2,  3,  2,  3,  6,  7,  6,  7,
                                                                 10, 11, 10, 11, 14, 15, 14, 15};

}  // namespace yuyv_bgr

#endif  // WQZ_YUYV_BGR_LAYOUT_H
