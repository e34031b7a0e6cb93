// The coefficients of the YUYV conversion, used by the tables and by the vector paths alike.
#ifndef WQZ_YUYV_COEFFICIENTS_H
#define WQZ_YUYV_COEFFICIENTS_H

// Fixed-point numbers with 12 fractional bits, for chroma minus 128. Products are shifted down towards minus infinity.
namespace yuyv_bgr {

constexpr int Fraction_Bits = 12;
constexpr int Blue_From_U = 7287;   // about 1.779
constexpr int Red_From_V = 5765;    // about 1.407
constexpr int Green_From_U = 1415;  // about 0.345, subtracted
constexpr int Green_From_V = 2936;  // about 0.717, subtracted

}  // namespace yuyv_bgr

#endif  // WQZ_YUYV_COEFFICIENTS_H
