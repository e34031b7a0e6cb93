// Fills test pictures, and finds the speed limit of the memory.
#include "pictures.h"

#include <algorithm>
#include <cmath>
#include <random>

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

namespace {

template <size_t Width>
struct Vector {
    typedef uint8_t Type __attribute__((vector_size(Width), aligned(1), may_alias));
};

/// Writes as many bytes as it reads, or three for every two.
template <size_t Width>
__attribute__((always_inline)) inline void Pass(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes)
{
    using Bytes = typename Vector<Width>::Type;
    const size_t read_vectors = read_bytes / Width;
    const size_t write_vectors = write_bytes / Width;
    const auto* source = reinterpret_cast<const Bytes*>(in);
    auto* target = reinterpret_cast<Bytes*>(out);
    if (read_vectors == write_vectors) {
        for (size_t i = 0; i + 2 <= read_vectors; i += 2) {
            const Bytes a = source[i];
            const Bytes b = source[i + 1];
            target[i] = ~a;
            target[i + 1] = ~b;
        }
        return;
    }
    for (size_t i = 0; i + 2 <= read_vectors; i += 2, target += 3) {
        const Bytes a = source[i];
        const Bytes b = source[i + 1];
        target[0] = a;
        target[1] = a ^ b;
        target[2] = b;
    }
}

__attribute__((target("avx512f,avx512bw"))) void Pass_512(const uint8_t* in, size_t read, uint8_t* out, size_t write)
{
    Pass<64>(in, read, out, write);
}

__attribute__((target("avx2"))) void Pass_256(const uint8_t* in, size_t read, uint8_t* out, size_t write)
{
    Pass<32>(in, read, out, write);
}

}  // namespace

void Read_And_Write(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes)
{
    if (__builtin_cpu_supports("avx512bw")) {
        Pass_512(in, read_bytes, out, write_bytes);
    } else if (__builtin_cpu_supports("avx2")) {
        Pass_256(in, read_bytes, out, write_bytes);
    } else {
        Pass<16>(in, read_bytes, out, write_bytes);
    }
}
