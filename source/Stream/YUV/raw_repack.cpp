// Repacking of raw samples in place: one plain loop, which the compiler turns into vector instructions.
#include "Stream/YUV/raw_repack.h"

#include "Stream/YUV/raw_repack_loop.h"
#include "Stream/YUV/raw_repack_neon.h"
#include "Stream/YUV/yuyv_bgr.h"

#if defined(__x86_64__) || defined(__i386__)

// The same loop, compiled for vectors of twice the width.
__attribute__((target("avx2"))) static void Repack_Avx2(uint8_t* samples, size_t count)
{
    Repack_Loop(samples, count);
}

#endif

void Repack_Raw_Samples(uint8_t* samples, size_t count)
{
#if defined(__x86_64__) || defined(__i386__)
    const yuyv_bgr::Path path = yuyv_bgr::Chosen_Path();
    if (path == yuyv_bgr::Path::Avx2 || path == yuyv_bgr::Path::Avx512_Vbmi) {
        Repack_Avx2(samples, count);
        return;
    }
#elif defined(__arm__)
    if (yuyv_bgr::Chosen_Path() == yuyv_bgr::Path::Neon) {
        Repack_Raw_Samples_Neon(samples, count);
        return;
    }
#endif
    Repack_Loop(samples, count);
}
