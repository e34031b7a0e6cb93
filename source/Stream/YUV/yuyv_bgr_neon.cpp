// YUYV to blue-green-red with ARM's NEON: 32 pixels at a time, and 16 on 32-bit ARM, which has half as many registers.
#include "Stream/YUV/yuyv_bgr_kernels.h"

#if defined(WQZ_YUYV_BGR_NEON)

#include <arm_neon.h>

#include "Stream/YUV/yuyv_coefficients.h"

// A structured load brings first lumas, U, second lumas and V of several groups into four registers.
// The doubling product (u << 3) * Blue_From_U keeps its high half: (Blue_From_U * u) >> 12, which the tables add to Y
// for blue. Red works alike. The green products are summed in 32 bits before the shift, as in the tables. The sums fit
// 16 bits, and narrowing them to bytes clamps to 0..255.
namespace yuyv_bgr {
namespace {

#define WQZ_INLINE __attribute__((always_inline)) inline

constexpr int Doubling_Shift = 16 - 1 - Fraction_Bits;

// One register holds all coefficients, because registers are short; these are their places.
enum Place { Blue_U, Red_V, Green_U, Green_V };
constexpr int16_t Coefficients[4] = {Blue_From_U, Red_From_V, Green_From_U, Green_From_V};

struct Chroma_Parts {
    int16x8_t blue, green, red;
};

WQZ_INLINE Chroma_Parts Parts_Of(uint8x8_t u_bytes, uint8x8_t v_bytes, int16x4_t factors)
{
    const uint8x8_t zero = vdup_n_u8(128);
    const int16x8_t u = vreinterpretq_s16_u16(vsubl_u8(u_bytes, zero));
    const int16x8_t v = vreinterpretq_s16_u16(vsubl_u8(v_bytes, zero));
    const int32x4_t low =
        vmlal_lane_s16(vmull_lane_s16(vget_low_s16(u), factors, Green_U), vget_low_s16(v), factors, Green_V);
    const int32x4_t high =
        vmlal_lane_s16(vmull_lane_s16(vget_high_s16(u), factors, Green_U), vget_high_s16(v), factors, Green_V);
    return {vqdmulhq_lane_s16(vshlq_n_s16(u, Doubling_Shift), factors, Blue_U),
            vcombine_s16(vshrn_n_s32(low, Fraction_Bits), vshrn_n_s32(high, Fraction_Bits)),
            vqdmulhq_lane_s16(vshlq_n_s16(v, Doubling_Shift), factors, Red_V)};
}

struct Pixels {
    uint8x8_t blue, green, red;
};

WQZ_INLINE Pixels Add_Luma(uint8x8_t luma_bytes, const Chroma_Parts& parts)
{
    const int16x8_t luma = vreinterpretq_s16_u16(vmovl_u8(luma_bytes));
    return {vqmovun_s16(vaddq_s16(luma, parts.blue)), vqmovun_s16(vsubq_s16(luma, parts.green)),
            vqmovun_s16(vaddq_s16(luma, parts.red))};
}

#if defined(__aarch64__)

constexpr size_t Groups_At_A_Time = 16;

WQZ_INLINE uint8x16x2_t In_Turn(uint8x8_t first_low, uint8x8_t first_high, uint8x8_t second_low, uint8x8_t second_high)
{
    return vzipq_u8(vcombine_u8(first_low, first_high), vcombine_u8(second_low, second_high));
}

WQZ_INLINE void Convert_Vectors(const uint8_t* yuyv, uint8_t* bgr, int16x4_t factors)
{
    const uint8x16x4_t in = vld4q_u8(yuyv);
    const Chroma_Parts low = Parts_Of(vget_low_u8(in.val[1]), vget_low_u8(in.val[3]), factors);
    const Chroma_Parts high = Parts_Of(vget_high_u8(in.val[1]), vget_high_u8(in.val[3]), factors);
    const Pixels first_low = Add_Luma(vget_low_u8(in.val[0]), low);
    const Pixels first_high = Add_Luma(vget_high_u8(in.val[0]), high);
    const Pixels second_low = Add_Luma(vget_low_u8(in.val[2]), low);
    const Pixels second_high = Add_Luma(vget_high_u8(in.val[2]), high);
    const uint8x16x2_t blue = In_Turn(first_low.blue, first_high.blue, second_low.blue, second_high.blue);
    const uint8x16x2_t green = In_Turn(first_low.green, first_high.green, second_low.green, second_high.green);
    const uint8x16x2_t red = In_Turn(first_low.red, first_high.red, second_low.red, second_high.red);
    vst3q_u8(bgr, (uint8x16x3_t{{blue.val[0], green.val[0], red.val[0]}}));
    vst3q_u8(bgr + 48, (uint8x16x3_t{{blue.val[1], green.val[1], red.val[1]}}));
}

#else

constexpr size_t Groups_At_A_Time = 8;

WQZ_INLINE void Convert_Vectors(const uint8_t* yuyv, uint8_t* bgr, int16x4_t factors)
{
    const uint8x8x4_t in = vld4_u8(yuyv);
    const Chroma_Parts parts = Parts_Of(in.val[1], in.val[3], factors);
    const Pixels first = Add_Luma(in.val[0], parts);
    const Pixels second = Add_Luma(in.val[2], parts);
    const uint8x8x2_t blue = vzip_u8(first.blue, second.blue);
    const uint8x8x2_t green = vzip_u8(first.green, second.green);
    const uint8x8x2_t red = vzip_u8(first.red, second.red);
    vst3_u8(bgr, (uint8x8x3_t{{blue.val[0], green.val[0], red.val[0]}}));
    vst3_u8(bgr + 24, (uint8x8x3_t{{blue.val[1], green.val[1], red.val[1]}}));
}

#endif

}  // namespace

size_t Convert_Neon(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    const int16x4_t factors = vld1_s16(Coefficients);
    size_t done = 0;
    for (; groups - done >= Groups_At_A_Time; done += Groups_At_A_Time) {
        Convert_Vectors(yuyv + done * 4, bgr + done * 6, factors);
    }
    return done;
}

}  // namespace yuyv_bgr

#endif
