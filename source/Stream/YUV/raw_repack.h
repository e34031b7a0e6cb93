// Repacking of raw samples in place.
#ifndef WQZ_RAW_REPACK_H
#define WQZ_RAW_REPACK_H

#include <cstddef>
#include <cstdint>

/// Repacks 16-bit samples in place: the first byte becomes bits 2 to 9, the low two bits of the second byte become
/// bits 0 and 1, the upper six bits 0.
void Repack_Raw_Samples(uint8_t* samples, size_t count);

#endif  // WQZ_RAW_REPACK_H
