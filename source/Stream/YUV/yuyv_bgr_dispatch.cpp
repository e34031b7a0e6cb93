// The choice among the vector kernels, made once when the library is loaded.
#include "Stream/YUV/yuyv_bgr.h"

#if defined(WQZ_YUYV_BGR_CHOICE)

#include <atomic>

#if defined(__arm__)
#include <asm/hwcap.h>
#include <sys/auxv.h>
#endif

namespace yuyv_bgr {
namespace {

using Kernel = size_t (*)(const uint8_t*, size_t, uint8_t*);

size_t Convert_Nothing(const uint8_t* /*yuyv*/, size_t /*groups*/, uint8_t* /*bgr*/)
{
    return 0;
}

#if defined(WQZ_YUYV_BGR_X86)

constexpr Path Paths[] = {Path::Avx512_Vbmi, Path::Avx2, Path::Ssse3};

Kernel Kernel_Of(Path path)
{
    switch (path) {
        case Path::Ssse3:
            return Convert_Ssse3;
        case Path::Avx2:
            return Convert_Avx2;
        case Path::Avx512_Vbmi:
            return Convert_Avx512_Vbmi;
        default:
            return Convert_Nothing;
    }
}

bool Processor_Has(Path path)
{
    __builtin_cpu_init();
    switch (path) {
        case Path::Ssse3:
            return __builtin_cpu_supports("ssse3");
        case Path::Avx2:
            return __builtin_cpu_supports("avx2");
        case Path::Avx512_Vbmi:
            return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                   __builtin_cpu_supports("avx512vbmi");
        default:
            return false;
    }
}

#else  // 32-bit ARM

constexpr Path Paths[] = {Path::Neon};

Kernel Kernel_Of(Path path)
{
    return path == Path::Neon ? Convert_Neon : Convert_Nothing;
}

bool Processor_Has(Path path)
{
    return path == Path::Neon && (getauxval(AT_HWCAP) & HWCAP_NEON) != 0;
}

#endif

Path Widest_Path()
{
    for (const Path path : Paths) {
        if (Processor_Has(path)) {
            return path;
        }
    }
    return Path::Tables;
}

// While the library is being loaded, before this is initialised, the value is Tables, which gives the same bytes.
std::atomic<Path> chosen_path{Widest_Path()};

}  // namespace

size_t Convert_Whole_Vectors(const uint8_t* yuyv, size_t groups, uint8_t* bgr)
{
    return Kernel_Of(Chosen_Path())(yuyv, groups, bgr);
}

bool Path_Available(Path path)
{
    return path == Path::Tables || Processor_Has(path);
}

Path Chosen_Path()
{
    return chosen_path.load(std::memory_order_relaxed);
}

bool Force_Path(Path path)
{
    if (!Path_Available(path)) {
        return false;
    }
    chosen_path.store(path, std::memory_order_relaxed);
    return true;
}

}  // namespace yuyv_bgr

#endif
