// Fills test pictures, and finds the speed limit of the memory.
#include "pictures.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "memory_pass.h"
#include "Stream/YUV/yuyv_bgr.h"

void Fill_Noise(uint8_t* bytes, size_t size)
{
    std::mt19937 random(1);
    std::generate_n(bytes, size, [&random] { return static_cast<uint8_t>(random() >> 24); });
}

namespace {

uint8_t To_Byte(double value)
{
    return static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
}

}  // namespace

void Fill_Natural(uint8_t* yuyv, Picture_Size size)
{
    std::mt19937 random(2);
    std::normal_distribution<double> sensor_noise(0.0, 1.5);
    for (uint32_t y = 0; y < size.height; ++y) {
        const double v = static_cast<double>(y) / size.height;
        for (uint32_t x = 0; x < size.width; ++x, yuyv += 2) {
            const double u = static_cast<double>(x) / size.width;
            const double disc = std::hypot((u - 0.6) * 1.6, v - 0.5) < 0.3 ? 45.0 : 0.0;
            const double stripes = v > 0.7 && std::fmod(u * 24, 1.0) < 0.5 ? -35.0 : 0.0;
            const double shading = 110 + 60 * std::sin(2.1 * u + 1.3 * v) - 40 * v;
            yuyv[0] = To_Byte(shading + disc + stripes + sensor_noise(random));
            const double colour = x % 2 == 0 ? 18 * std::cos(3 * u) - disc / 3 : 14 * std::sin(2 * v) + disc / 2;
            yuyv[1] = To_Byte(128 + colour + sensor_noise(random) / 2);
        }
    }
}

void Read_And_Write(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes)
{
#if defined(WQZ_YUYV_BGR_X86)
    if (yuyv_bgr::Path_Available(yuyv_bgr::Path::Avx512_Vbmi)) {
        return Memory_Pass<64>(in, read_bytes, out, write_bytes);
    }
    if (yuyv_bgr::Path_Available(yuyv_bgr::Path::Avx2)) {
        return Memory_Pass<32>(in, read_bytes, out, write_bytes);
    }
#endif
    Memory_Pass<16>(in, read_bytes, out, write_bytes);
}
