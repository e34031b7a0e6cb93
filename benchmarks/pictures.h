#ifndef WQZ_BENCHMARKS_PICTURES_H
#define WQZ_BENCHMARKS_PICTURES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Sizes at which conversions are measured.
struct Picture_Size {
    uint32_t width;
    uint32_t height;
    size_t Pixels() const { return size_t{width} * height; }
    std::string Name() const { return std::to_string(width) + "x" + std::to_string(height); }
};

inline constexpr Picture_Size Picture_Sizes[] = {{640, 480}, {1920, 1080}, {3840, 2160}};

/// Bytes that begin at a cache line, already touched.
class Aligned_Bytes {
public:
    explicit Aligned_Bytes(size_t size) : lines_((size + sizeof(Line) - 1) / sizeof(Line)) {}
    uint8_t* Data() { return lines_.front().bytes; }

private:
    struct alignas(64) Line {
        uint8_t bytes[64]{};
    };
    std::vector<Line> lines_;
};

/// Fills with bytes that no predictor or table cache can profit from; the same on every run.
void Fill_Noise(uint8_t* bytes, size_t size);

/// Fills a YUYV picture with what a camera sees: soft shading, a few edges, little sensor noise, weak colours.
void Fill_Natural(uint8_t* yuyv, Picture_Size size);

/// Reads read_bytes and writes write_bytes in the widest steps the processor has, nothing else: the speed that no
/// conversion of that shape can exceed.
/// @param read_bytes   a multiple of 128
/// @param write_bytes  the same, and out may be in then; or three for every two that are read
void Read_And_Write(const uint8_t* in, size_t read_bytes, uint8_t* out, size_t write_bytes);

#endif  // WQZ_BENCHMARKS_PICTURES_H
