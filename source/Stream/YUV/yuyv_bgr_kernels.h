// The vector kernels that a processor family has.
#ifndef WQZ_YUYV_BGR_KERNELS_H
#define WQZ_YUYV_BGR_KERNELS_H

#include <cstddef>
#include <cstdint>

#if defined(__x86_64__) || defined(__i386__)
#define WQZ_YUYV_BGR_X86
#elif defined(__aarch64__) || defined(__arm__)
#define WQZ_YUYV_BGR_NEON
#endif
// On these the instructions are known only when the program runs.
#if defined(WQZ_YUYV_BGR_X86) || defined(__arm__)
#define WQZ_YUYV_BGR_CHOICE
#endif

// Each kernel converts as Convert_Whole_Vectors says, with no other effect.
namespace yuyv_bgr {

#if defined(WQZ_YUYV_BGR_X86)
size_t Convert_Ssse3(const uint8_t* yuyv, size_t groups, uint8_t* bgr);
size_t Convert_Avx2(const uint8_t* yuyv, size_t groups, uint8_t* bgr);
size_t Convert_Avx512_Vbmi(const uint8_t* yuyv, size_t groups, uint8_t* bgr);
#elif defined(WQZ_YUYV_BGR_NEON)
size_t Convert_Neon(const uint8_t* yuyv, size_t groups, uint8_t* bgr);
#endif

}  // namespace yuyv_bgr

#endif  // WQZ_YUYV_BGR_KERNELS_H
