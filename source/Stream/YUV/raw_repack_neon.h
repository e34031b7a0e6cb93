// Repacking of raw samples on 32-bit ARM with NEON.
#ifndef WQZ_RAW_REPACK_NEON_H
#define WQZ_RAW_REPACK_NEON_H

#include <cstddef>
#include <cstdint>

#if defined(__arm__)
/// See Repack_Raw_Samples. The processor must have NEON.
void Repack_Raw_Samples_Neon(uint8_t* samples, size_t count);
#endif

#endif  // WQZ_RAW_REPACK_NEON_H
