// YUYV to blue-green-red by vector instructions, and the choice among them.
#ifndef WQZ_YUYV_BGR_H
#define WQZ_YUYV_BGR_H

#include <cstddef>
#include <cstdint>

#include "Stream/YUV/yuyv_bgr_kernels.h"

// Every path gives the same bytes as the tables of YUV_Decode for every input.
namespace yuyv_bgr {

/// Convert_Whole_Vectors converts the groups that fill whole vectors; the tables convert the rest.
/// @param yuyv    groups of 4 bytes, at any alignment
/// @param groups  how many; exactly groups * 4 bytes may be read
/// @param bgr     receives 6 bytes per group, at any alignment; not a byte beyond is written
/// @return the number of groups converted, counted from the first

#if defined(WQZ_YUYV_BGR_CHOICE)

/// The ways to convert, narrowest first.
enum class Path { Tables, Ssse3, Avx2, Avx512_Vbmi, Neon };

size_t Convert_Whole_Vectors(const uint8_t* yuyv, size_t groups, uint8_t* bgr);

/// Whether the processor and the system can run the path.
bool Path_Available(Path path);

/// The path that conversions take, at first the widest available.
Path Chosen_Path();

/// Makes every later conversion take the path, for tests and measurements.
/// @return false, with nothing changed, when the path is not available
bool Force_Path(Path path);

#elif defined(WQZ_YUYV_BGR_NEON)

// Every 64-bit ARM processor has NEON.
inline size_t Convert_Whole_Vectors(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    return Convert_Neon(yuyv, groups, bgr);
}

#else

inline size_t Convert_Whole_Vectors(const uint8_t* /*yuyv*/, size_t /*groups*/, uint8_t* /*bgr*/)
{
    return 0;  // the tables convert everything
}

#endif

}  // namespace yuyv_bgr

#endif  // WQZ_YUYV_BGR_H
