// YUYV to blue-green-red with ARM's NEON: 32 pixels at a time.
#include "Stream/YUV/yuyv_bgr_kernels.h"

#if defined(WQZ_YUYV_BGR_NEON)

#include <arm_neon.h>

#include "Stream/YUV/yuyv_coefficients.h"

// A structured load brings first lumas, U, second lumas and V of 16 groups into four registers.
// The doubling product (u << 3) * Blue_From_U keeps its high half: (Blue_From_U * u) >> 12, which the tables add to Y
// for blue. Red works alike. The green products are summed in 32 bits before the shift, as in the tables. The sums fit
// 16 bits, and narrowing them to bytes clamps to 0..255.
namespace yuyv_bgr {
namespace {

#define WQZ_INLINE __attribute__((always_inline)) inline

constexpr int Doubling_Shift = 16 - 1 - Fraction_Bits;

struct Chroma_Parts {
    int16x8_t blue, green, red;
};

WQZ_INLINE Chroma_Parts Parts_Of(uint8x8_t u_bytes, uint8x8_t v_bytes)
{
    const uint8x8_t zero = vdup_n_u8(128);
    const int16x8_t u = vreinterpretq_s16_u16(vsubl_u8(u_bytes, zero));
    const int16x8_t v = vreinterpretq_s16_u16(vsubl_u8(v_bytes, zero));
    const int32x4_t low = vmlal_n_s16(vmull_n_s16(vget_low_s16(u), Green_From_U), vget_low_s16(v), Green_From_V);
    const int32x4_t high = vmlal_n_s16(vmull_n_s16(vget_high_s16(u), Green_From_U), vget_high_s16(v), Green_From_V);
    return {vqdmulhq_n_s16(vshlq_n_s16(u, Doubling_Shift), Blue_From_U),
            vcombine_s16(vshrn_n_s32(low, Fraction_Bits), vshrn_n_s32(high, Fraction_Bits)),
            vqdmulhq_n_s16(vshlq_n_s16(v, Doubling_Shift), Red_From_V)};
}

struct Pixels {
    uint8x16_t blue, green, red;
};

WQZ_INLINE uint8x16_t Narrow(int16x8_t low, int16x8_t high)
{
    return vcombine_u8(vqmovun_s16(low), vqmovun_s16(high));
}

WQZ_INLINE Pixels Add_Luma(uint8x16_t luma, const Chroma_Parts& low, const Chroma_Parts& high)
{
    const int16x8_t luma_low = vreinterpretq_s16_u16(vmovl_u8(vget_low_u8(luma)));
    const int16x8_t luma_high = vreinterpretq_s16_u16(vmovl_u8(vget_high_u8(luma)));
    return {Narrow(vaddq_s16(luma_low, low.blue), vaddq_s16(luma_high, high.blue)),
            Narrow(vsubq_s16(luma_low, low.green), vsubq_s16(luma_high, high.green)),
            Narrow(vaddq_s16(luma_low, low.red), vaddq_s16(luma_high, high.red))};
}

// The first and second pixels of 16 groups, in turn.
WQZ_INLINE void Store_Pixels(uint8_t* bgr, const Pixels& first, const Pixels& second)
{
    const uint8x16x2_t blue = vzipq_u8(first.blue, second.blue);
    const uint8x16x2_t green = vzipq_u8(first.green, second.green);
    const uint8x16x2_t red = vzipq_u8(first.red, second.red);
    vst3q_u8(bgr, (uint8x16x3_t{{blue.val[0], green.val[0], red.val[0]}}));
    vst3q_u8(bgr + 48, (uint8x16x3_t{{blue.val[1], green.val[1], red.val[1]}}));
}

}  // namespace

size_t Convert_Neon(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    size_t done = 0;
    for (; groups - done >= 16; done += 16, yuyv += 64, bgr += 96) {
        const uint8x16x4_t in = vld4q_u8(yuyv);
        const Chroma_Parts low = Parts_Of(vget_low_u8(in.val[1]), vget_low_u8(in.val[3]));
        const Chroma_Parts high = Parts_Of(vget_high_u8(in.val[1]), vget_high_u8(in.val[3]));
        Store_Pixels(bgr, Add_Luma(in.val[0], low, high), Add_Luma(in.val[2], low, high));
    }
    return done;
}

}  // namespace yuyv_bgr

#endif
