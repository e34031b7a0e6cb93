// YUYV to blue-green-red with the vector instructions of x86, and the choice among them.
#include "Stream/YUV/yuyv_bgr_simd.h"

#include <immintrin.h>
#include <array>
#include <atomic>

#define WQZ_TARGET_VBMI __attribute__((target("avx512f,avx512bw,avx512vbmi")))
#include "Stream/YUV/yuyv_bgr_vbmi.h"
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
namespace {

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

alignas(16) constexpr uint8_t Swap_Words[16] = {2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13};
alignas(16) constexpr uint8_t High_Word_Twice[16] = {2, 3, 2, 3, 6, 7, 6, 7, 10, 11, 10, 11, 14, 15, 14, 15};

#define WQZ_TARGET_SSSE3 __attribute__((target("ssse3"), always_inline)) inline

template <typename Array>
WQZ_TARGET_SSSE3 __m128i Shuffle_16(__m128i bytes, const Array& shuffle)
{
    return _mm_shuffle_epi8(bytes, _mm_load_si128(reinterpret_cast<const __m128i*>(&shuffle)));
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

#define WQZ_TARGET_AVX2 __attribute__((target("avx2"), always_inline)) inline

template <typename Array>
WQZ_TARGET_AVX2 __m256i Shuffle_32(__m256i bytes, const Array& shuffle)
{
    return _mm256_shuffle_epi8(bytes,
                               _mm256_broadcastsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(&shuffle))));
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

size_t Convert_Nothing(const uint8_t* /*yuyv*/, size_t /*groups*/, uint8_t* /*bgr*/)
{
    return 0;
}

Path Widest_Path()
{
    for (const Path path : {Path::Avx512_Vbmi, Path::Avx2, Path::Ssse3}) {
        if (Path_Available(path)) {
            return path;
        }
    }
    return Path::Tables;
}

using Kernel = size_t (*)(const uint8_t*, size_t, uint8_t*);
constexpr Kernel Kernels[] = {Convert_Nothing, Convert_Ssse3, Convert_Avx2, Convert_Vbmi};

// While the library is being loaded, before this is initialised, the value is Tables, which gives the same bytes.
std::atomic<Path> chosen_path{Widest_Path()};

}  // namespace

size_t Convert_Whole_Vectors(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    return Kernels[static_cast<size_t>(Chosen_Path())](yuyv, groups, bgr);
}

bool Path_Available(Path path)
{
    __builtin_cpu_init();
    switch (path) {
        case Path::Ssse3:
            return __builtin_cpu_supports("ssse3");
        case Path::Avx2:
            return __builtin_cpu_supports("avx2");
        case Path::Avx512_Vbmi:
            return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                   __builtin_cpu_supports("avx512vbmi");
        case Path::Tables:
            break;
    }
    return true;
}

Path Chosen_Path()
{
    return chosen_path.load(std::memory_order_relaxed);
}

bool Force_Path(Path path)
{
    if (!Path_Available(path)) {
        return false;
    }
    chosen_path.store(path, std::memory_order_relaxed);
    return true;
}

}  // namespace yuyv_bgr
