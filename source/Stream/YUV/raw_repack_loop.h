// The loop that repacks raw samples. It is compiled once for each instruction set that makes it faster.
#ifndef WQZ_RAW_REPACK_LOOP_H
#define WQZ_RAW_REPACK_LOOP_H

#include <cstddef>
#include <cstdint>
#include <cstring>

__attribute__((always_inline)) static inline void Repack_Loop(uint8_t* samples, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        uint16_t sample;
        std::memcpy(&sample, samples + i * 2, sizeof sample);
        sample = static_cast<uint16_t>((sample << 2 & 0x3FC) | (sample >> 8 & 0x3));
        std::memcpy(samples + i * 2, &sample, sizeof sample);
    }
}

#endif  // WQZ_RAW_REPACK_LOOP_H
