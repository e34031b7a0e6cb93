// Sizes, contents and memory of the pictures that the benchmarks convert.
#ifndef WQZ_BENCHMARKS_PICTURES_H
#define WQZ_BENCHMARKS_PICTURES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// A size at which conversions are measured.
struct Picture_Size {
    uint32_t width;
    uint32_t height;
    size_t Pixels() const { return size_t{width} * height; }
    std::string Name() const { return std::to_string(width) + "x" + std::to_string(height); }
};

inline constexpr Picture_Size Picture_Sizes[] = {{640, 480}, {1920, 1080}, {3840, 2160}};

/// Memory that begins at a cache line. Every page of it is already mapped.
class Aligned_Bytes {
public:
    explicit Aligned_Bytes(size_t size) : lines((size + sizeof(Line) - 1) / sizeof(Line)) {}
    uint8_t* Data() { return lines.front().bytes; }

private:
    struct alignas(64) Line {
        uint8_t bytes[64]{};
    };
    std::vector<Line> lines;
};

/// Fills memory with bytes that defeat branch predictors and table caches. They are the same on every run.
void Fill_Noise(uint8_t* bytes, size_t size);

/// Fills a YUYV picture like a camera would: soft shading, a few edges, weak colours and a little sensor noise.
void Fill_Natural(uint8_t* yuyv, Picture_Size size);

/// Reads read_bytes and writes write_bytes in the widest steps that a conversion takes, and does nothing else. No
/// conversion that reads and writes as much can be faster.
/// @param read_bytes   a multiple of 128
/// @param write_bytes  either read_bytes, and then `out` may be `in`, or three bytes for every two that are read
void Read_And_Write(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes);

#endif  // WQZ_BENCHMARKS_PICTURES_H
