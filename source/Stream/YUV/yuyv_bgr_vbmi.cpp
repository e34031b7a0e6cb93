// YUYV to blue-green-red with AVX-512 VBMI: 64 pixels at a time.
#include "Stream/YUV/yuyv_bgr_kernels.h"

#if defined(WQZ_YUYV_BGR_X86)

#include <immintrin.h>

#define WQZ_TARGET_VBMI __attribute__((target("avx512f,avx512bw,avx512vbmi")))
#include "Stream/YUV/yuyv_bgr_vbmi.h"

namespace yuyv_bgr {

WQZ_TARGET_VBMI size_t Convert_Avx512_Vbmi(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    return Convert_Vbmi(yuyv, groups, bgr);
}

}  // namespace yuyv_bgr

#endif
