// Repacking of raw samples on 32-bit ARM with NEON, for which this file is compiled.
#include "Stream/YUV/raw_repack_neon.h"

#if defined(__arm__)

#include "Stream/YUV/raw_repack_loop.h"

void Repack_Raw_Samples_Neon(uint8_t* samples, size_t count)
{
    Repack_Loop(samples, count);
}

#endif
