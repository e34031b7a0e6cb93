// The AVX-512 VBMI kernel of YUYV to blue-green-red.
#ifndef WQZ_YUYV_BGR_VBMI_H
#define WQZ_YUYV_BGR_VBMI_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "Stream/YUV/yuyv_coefficients.h"

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"  // g++ 12's own intrinsics pass an undefined vector on purpose
#endif

// This kernel has a file of its own so that it can also be compiled against an emulation of the instructions. A file
// that includes this one declares the intrinsics first, and defines WQZ_TARGET_VBMI as the attribute that the compiler
// needs on a function that uses them.
namespace yuyv_bgr {

/// Where the three packed sums of 64 pixels go in their 192 bytes of output.
struct Vbmi_Layout {
    std::array<std::array<uint8_t, 64>, 3> order{};      ///< for each sum: the source of every byte, modulo 64
    std::array<std::array<uint64_t, 3>, 2> ownership{};  ///< bytes of each output vector that are from sum 1, sum 2
};

constexpr Vbmi_Layout Make_Vbmi_Layout()
{
    Vbmi_Layout layout{};
    for (size_t byte = 0; byte < 192; ++byte) {
        const size_t pixel = byte / 3;
        const size_t colour = byte % 3;
        const size_t sum = colour == 1 ? 1 : (pixel % 2 == 0) == (colour == 0) ? 0 : 2;
        const size_t half = pixel / 32;  // packing takes 8 pixels from each half in turn
        const size_t source = pixel % 32 / 8 * 16 + half * 8 + pixel % 8;
        layout.order[sum][byte % 64] = static_cast<uint8_t>(source);
        if (sum != 0) {
            layout.ownership[sum - 1][byte / 64] |= uint64_t{1} << byte % 64;
        }
    }
    return layout;
}

/// Converts 64 pixels at a time; see yuyv_bgr::Convert_Whole_Vectors. The arithmetic is that of the narrower kernels.
WQZ_TARGET_VBMI static inline size_t Convert_Vbmi(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    static constexpr Vbmi_Layout layout = Make_Vbmi_Layout();
    const __m512i luma_mask = _mm512_set1_epi16(0xFF);
    const __m512i chroma_times_16 = _mm512_set1_epi16(16 << 8);
    const __m512i chroma_zero = _mm512_set1_epi16(128 * 16);
    const __m512i blue_red = _mm512_set1_epi32(Red_From_V << 16 | Blue_From_U);
    const __m512i green = _mm512_set1_epi32(Green_From_V << 16 | Green_From_U);
    const __m512i high_word_twice = _mm512_set4_epi32(0x0F0E0F0E, 0x0B0A0B0A, 0x07060706, 0x03020302);
    const __m512i order_0 = _mm512_loadu_si512(layout.order[0].data());
    const __m512i order_1 = _mm512_loadu_si512(layout.order[1].data());
    const __m512i order_2 = _mm512_loadu_si512(layout.order[2].data());
    size_t done = 0;
    for (; groups - done >= 32; done += 32, yuyv += 128, bgr += 192) {
        __m512i sum_0[2];
        __m512i sum_1[2];
        __m512i sum_2[2];
#pragma GCC unroll 2
        for (size_t half = 0; half < 2; ++half) {
            const __m512i in = _mm512_loadu_si512(yuyv + half * 64);
            const __m512i luma = _mm512_and_si512(in, luma_mask);
            const __m512i chroma = _mm512_sub_epi16(_mm512_maddubs_epi16(in, chroma_times_16), chroma_zero);
            const __m512i blue_red_part = _mm512_mulhi_epi16(chroma, blue_red);
            const __m512i green_part = _mm512_shuffle_epi8(_mm512_madd_epi16(chroma, green), high_word_twice);
            sum_0[half] = _mm512_add_epi16(luma, blue_red_part);
            sum_1[half] = _mm512_sub_epi16(luma, green_part);
            sum_2[half] = _mm512_add_epi16(luma, _mm512_rol_epi32(blue_red_part, 16));
        }
        const __m512i bytes_0 = _mm512_permutexvar_epi8(order_0, _mm512_packus_epi16(sum_0[0], sum_0[1]));
        const __m512i bytes_1 = _mm512_permutexvar_epi8(order_1, _mm512_packus_epi16(sum_1[0], sum_1[1]));
        const __m512i bytes_2 = _mm512_permutexvar_epi8(order_2, _mm512_packus_epi16(sum_2[0], sum_2[1]));
#pragma GCC unroll 3
        for (size_t i = 0; i < 3; ++i) {
            __m512i out = _mm512_mask_blend_epi8(layout.ownership[0][i], bytes_0, bytes_1);
            out = _mm512_mask_blend_epi8(layout.ownership[1][i], out, bytes_2);
            _mm512_storeu_si512(bgr + i * 64, out);
        }
    }
    return done;
}

}  // namespace yuyv_bgr

#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

#endif  // WQZ_YUYV_BGR_VBMI_H
