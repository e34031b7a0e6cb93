// Repacking of raw samples in place: one plain loop, which the compiler turns into vector instructions.
#include "Stream/YUV/raw_repack.h"

#include <cstring>

namespace {

__attribute__((always_inline)) inline void Repack(uint8_t* samples, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, samples + i * 2, sizeof sample);
        sample = static_cast<uint16_t>((sample << 2 & 0x3FC) | (sample >> 8 & 0x3));
        std::memcpy(samples + i * 2, &sample, sizeof sample);
    }
}

#if defined(__x86_64__) || defined(__i386__)

// The same loop, compiled for vectors of twice the width.
__attribute__((target("avx2"))) void Repack_Avx2(uint8_t* samples, size_t count)
{
    Repack(samples, count);
}

#endif

}  // namespace

void Repack_Raw_Samples(uint8_t* samples, size_t count)
{
#if defined(__x86_64__) || defined(__i386__)
    if (__builtin_cpu_supports("avx2")) {
        Repack_Avx2(samples, count);
        return;
    }
#endif
    Repack(samples, count);
}
