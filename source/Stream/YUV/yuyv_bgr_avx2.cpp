// YUYV to blue-green-red with AVX2: 32 pixels at a time.
#include "Stream/YUV/yuyv_bgr_kernels.h"

#if defined(WQZ_YUYV_BGR_X86)

#include <immintrin.h>

#include "Stream/YUV/yuyv_bgr_layout.h"

namespace yuyv_bgr {
namespace {

#define WQZ_TARGET_AVX2 __attribute__((target("avx2"), always_inline)) inline

WQZ_TARGET_AVX2 __m256i Shuffle_32(__m256i bytes, const std::array<uint8_t, 16>& shuffle)
{
    return _mm256_shuffle_epi8(
        bytes, _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(shuffle.data()))));
}

struct Sums_256 {
    __m256i sum_0, sum_1, sum_2;
};

/// 8 pixels from here in the low half, the 8 pixels that are 16 further in the high half.
WQZ_TARGET_AVX2 Sums_256 Sum_8_And_8(const uint8_t* yuyv)
{
    const __m256i in =
        _mm256_loadu2_m128i(reinterpret_cast<const __m128i*>(yuyv + 32), reinterpret_cast<const __m128i*>(yuyv));
    const __m256i luma = _mm256_and_si256(in, _mm256_set1_epi16(0xFF));
    const __m256i chroma =
        _mm256_sub_epi16(_mm256_maddubs_epi16(in, _mm256_set1_epi16(16 << 8)), _mm256_set1_epi16(128 * 16));
    const __m256i blue_red = _mm256_mulhi_epi16(chroma, _mm256_set1_epi32(Blue_Red));
    const __m256i green = _mm256_madd_epi16(chroma, _mm256_set1_epi32(Green));
    return {_mm256_add_epi16(luma, blue_red), _mm256_sub_epi16(luma, Shuffle_32(green, High_Word_Twice)),
            _mm256_add_epi16(luma, Shuffle_32(blue_red, Swap_Words))};
}

WQZ_TARGET_AVX2 void Store_Halves(uint8_t* low, uint8_t* high, __m256i value)
{
    _mm256_storeu2_m128i(reinterpret_cast<__m128i*>(high), reinterpret_cast<__m128i*>(low), value);
}

}  // namespace

__attribute__((target("avx2"))) size_t Convert_Avx2(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    size_t done = 0;
    for (; groups - done >= 16; done += 16, yuyv += 64, bgr += 96) {
        const Sums_256 first = Sum_8_And_8(yuyv);
        const Sums_256 last = Sum_8_And_8(yuyv + 16);
        const __m256i first_01 = _mm256_packus_epi16(first.sum_0, first.sum_1);
        const __m256i last_01 = _mm256_packus_epi16(last.sum_0, last.sum_1);
        const __m256i all_2 = _mm256_packus_epi16(first.sum_2, last.sum_2);
        const __m256i part_0 = _mm256_or_si256(Shuffle_32(first_01, Shuffle<0, Sums_0_1_Of_First_8>),
                                               Shuffle_32(all_2, Shuffle<0, Sum_2_Of_All>));
        const __m256i part_1 = _mm256_or_si256(_mm256_or_si256(Shuffle_32(first_01, Shuffle<1, Sums_0_1_Of_First_8>),
                                                               Shuffle_32(last_01, Shuffle<1, Sums_0_1_Of_Last_8>)),
                                               Shuffle_32(all_2, Shuffle<1, Sum_2_Of_All>));
        const __m256i part_2 = _mm256_or_si256(Shuffle_32(last_01, Shuffle<2, Sums_0_1_Of_Last_8>),
                                               Shuffle_32(all_2, Shuffle<2, Sum_2_Of_All>));
        Store_Halves(bgr, bgr + 48, part_0);
        Store_Halves(bgr + 16, bgr + 64, part_1);
        Store_Halves(bgr + 32, bgr + 80, part_2);
    }
    return done;
}

}  // namespace yuyv_bgr

#endif
