// YUYV to blue-green-red with vector instructions.
#ifndef WQZ_YUYV_BGR_SIMD_H
#define WQZ_YUYV_BGR_SIMD_H

#include <cstddef>
#include <cstdint>

// YUYV to blue-green-red by vector arithmetic that gives the same bytes as the tables of YUV_Decode for every input.
namespace yuyv_bgr {

/// The ways to convert, narrowest first.
enum class Path { Tables, Ssse3, Avx2, Avx512_Vbmi };

/// Converts the groups that fill whole vectors of the chosen path; the rest is left to the tables.
/// @param yuyv    groups of 4 bytes, at any alignment
/// @param groups  how many; exactly groups * 4 bytes may be read
/// @param bgr     receives 6 bytes per group, at any alignment; not a byte beyond is written
/// @return the number of groups converted, counted from the first
size_t Convert_Whole_Vectors(const uint8_t* yuyv, size_t groups, uint8_t* bgr);

/// Whether the processor and the system can run the path.
bool Path_Available(Path path);

/// The path that conversions take, at first the widest available.
Path Chosen_Path();

/// Makes every later conversion take the path, for tests and measurements.
/// @return false, with nothing changed, when the path is not available
bool Force_Path(Path path);

}  // namespace yuyv_bgr

#endif  // WQZ_YUYV_BGR_SIMD_H
