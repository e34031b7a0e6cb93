// YUYV to blue-green-red with SSSE3: 16 pixels at a time.
#include "Stream/YUV/yuyv_bgr_kernels.h"

#if defined(WQZ_YUYV_BGR_X86)

#include <immintrin.h>

#include "Stream/YUV/yuyv_bgr_layout.h"

namespace yuyv_bgr {
namespace {

#define WQZ_TARGET_SSSE3 __attribute__((target("ssse3"), always_inline)) inline

WQZ_TARGET_SSSE3 __m128i Shuffle_16(__m128i bytes, const std::array<uint8_t, 16>& shuffle)
{
    return _mm_shuffle_epi8(bytes, _mm_load_si128(reinterpret_cast<const __m128i*>(shuffle.data())));
}

struct Sums_128 {
    __m128i sum_0, sum_1, sum_2;
};

WQZ_TARGET_SSSE3 Sums_128 Sum_8(const uint8_t* yuyv)
{
    const __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(yuyv));
    const __m128i luma = _mm_and_si128(in, _mm_set1_epi16(0xFF));
    const __m128i chroma = _mm_sub_epi16(_mm_maddubs_epi16(in, _mm_set1_epi16(16 << 8)), _mm_set1_epi16(128 * 16));
    const __m128i blue_red = _mm_mulhi_epi16(chroma, _mm_set1_epi32(Blue_Red));
    const __m128i green = _mm_madd_epi16(chroma, _mm_set1_epi32(Green));
    return {_mm_add_epi16(luma, blue_red), _mm_sub_epi16(luma, Shuffle_16(green, High_Word_Twice)),
            _mm_add_epi16(luma, Shuffle_16(blue_red, Swap_Words))};
}

}  // namespace

__attribute__((target("ssse3"))) size_t Convert_Ssse3(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    size_t done = 0;
    for (; groups - done >= 8; done += 8, yuyv += 32, bgr += 48) {
        const Sums_128 first = Sum_8(yuyv);
        const Sums_128 last = Sum_8(yuyv + 16);
        const __m128i first_01 = _mm_packus_epi16(first.sum_0, first.sum_1);
        const __m128i last_01 = _mm_packus_epi16(last.sum_0, last.sum_1);
        const __m128i all_2 = _mm_packus_epi16(first.sum_2, last.sum_2);
        const __m128i part_0 = _mm_or_si128(Shuffle_16(first_01, Shuffle<0, Sums_0_1_Of_First_8>),
                                            Shuffle_16(all_2, Shuffle<0, Sum_2_Of_All>));
        const __m128i part_1 = _mm_or_si128(_mm_or_si128(Shuffle_16(first_01, Shuffle<1, Sums_0_1_Of_First_8>),
                                                         Shuffle_16(last_01, Shuffle<1, Sums_0_1_Of_Last_8>)),
                                            Shuffle_16(all_2, Shuffle<1, Sum_2_Of_All>));
        const __m128i part_2 = _mm_or_si128(Shuffle_16(last_01, Shuffle<2, Sums_0_1_Of_Last_8>),
                                            Shuffle_16(all_2, Shuffle<2, Sum_2_Of_All>));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bgr), part_0);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bgr + 16), part_1);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(bgr + 32), part_2);
    }
    return done;
}

}  // namespace yuyv_bgr

#endif
