// Conversion of YUYV and raw frames: tables, vector paths and raw splitting against the formulas.
#include "Stream/YUV/yuv_decode.h"

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Stream/YUV/yuyv_bgr.h"

// clang from 16 on has types of its own by the names that simde 0.8 declares.
#if defined(WQZ_YUYV_BGR_X86) && !(defined(__clang__) && __clang_major__ >= 16)
// The AVX-512 kernel a second time, on emulated instructions: this checks it on processors that lack them.
#define WQZ_EMULATED_VBMI
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/x86/avx512.h>
#undef _mm512_madd_epi16  // simde 0.7 gives it the arguments of the masked one
#define _mm512_madd_epi16(a, b) simde_mm512_madd_epi16(a, b)
#define WQZ_TARGET_VBMI
#include "Stream/YUV/yuyv_bgr_vbmi.h"
#endif

namespace {

using Bytes = std::vector<uint8_t>;

#if defined(__OPTIMIZE__) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
[[maybe_unused]] constexpr bool Slow_Build = false;
#else
[[maybe_unused]] constexpr bool Slow_Build = true;
#endif

YUV_Decode& Tables()
{
    static const auto tables = std::make_unique<YUV_Decode>();
    return *tables;
}

int Clamped(int value)
{
    return std::clamp(value, 0, 255);
}

/// One way to convert; each must give the bytes that the tables hold.
struct Way {
    std::string name;
    unsigned step_of_v;  ///< a slow way skips values of V
    std::function<void(uint8_t* yuyv, size_t size, uint8_t* bgr)> convert;
};

void Convert_By_Library(uint8_t* yuyv, size_t size, uint8_t* bgr)
{
    Tables().YUYV_Decode(yuyv, static_cast<uint32_t>(size), bgr, 0);
}

#if defined(WQZ_YUYV_BGR_CHOICE)

using yuyv_bgr::Path;

struct Named_Path {
    Path path;
    const char* name;
    size_t groups_of_56;  ///< how many groups of 56 fill whole vectors; tells which kernel ran
};

constexpr Named_Path Paths[] = {{Path::Tables, "tables", 0},
                                {Path::Ssse3, "ssse3", 56},
                                {Path::Avx2, "avx2", 48},
                                {Path::Avx512_Vbmi, "vbmi", 32},
                                {Path::Neon, "neon", 56}};

void Convert_By_Path(Path path, uint8_t* yuyv, size_t size, uint8_t* bgr)
{
    ASSERT_TRUE(yuyv_bgr::Force_Path(path));
    Convert_By_Library(yuyv, size, bgr);
}

std::vector<Way> Ways()
{
    std::vector<Way> ways;
    for (const auto& [path, name, groups] : Paths) {
        if (yuyv_bgr::Path_Available(path)) {
            ways.push_back({name, 1, [way = path](uint8_t* yuyv, size_t size, uint8_t* bgr) {
                                Convert_By_Path(way, yuyv, size, bgr);
                            }});
        }
    }
#if defined(WQZ_EMULATED_VBMI)
    ways.push_back({"emulated vbmi", Slow_Build ? 15U : 1U, [](uint8_t* yuyv, size_t size, uint8_t* bgr) {
                        const size_t done = yuyv_bgr::Convert_Vbmi(yuyv, size / 4, bgr);
                        ASSERT_EQ(done, size / 4 / 32 * 32);
                        Convert_By_Path(Path::Tables, yuyv + done * 4, size - done * 4, bgr + done * 6);
                    }});
#endif
    return ways;
}

/// Restores the chosen path.
class Yuyv : public testing::Test {
protected:
    ~Yuyv() override { yuyv_bgr::Force_Path(before); }

private:
    Path before = yuyv_bgr::Chosen_Path();
};

#else

std::vector<Way> Ways()
{
    return {{"the only way", 1, Convert_By_Library}};
}

class Yuyv : public testing::Test {};

#endif

/// The pixels by the formulas, without tables.
Bytes Expected_Pixels(const Bytes& yuyv)
{
    Bytes bgr(yuyv.size() / 4 * 6);
    uint8_t* out = bgr.data();
    for (size_t i = 0; i + 4 <= yuyv.size(); i += 4) {
        const int u = yuyv[i + 1] - 128;
        const int v = yuyv[i + 3] - 128;
        for (const int luma : {yuyv[i], yuyv[i + 2]}) {
            *out++ = static_cast<uint8_t>(Clamped(luma + ((7287 * u) >> 12)));
            *out++ = static_cast<uint8_t>(Clamped(luma - ((1415 * u + 2936 * v) >> 12)));
            *out++ = static_cast<uint8_t>(Clamped(luma + ((5765 * v) >> 12)));
        }
    }
    return bgr;
}

Bytes Random_Bytes(size_t size)
{
    static std::mt19937 random(7);
    Bytes bytes(size);
    std::generate(bytes.begin(), bytes.end(), [] { return static_cast<uint8_t>(random() >> 24); });
    return bytes;
}

/// Memory between two pages that may not be touched.
class Guarded_Memory {
public:
    Guarded_Memory()
    {
        base =
            static_cast<uint8_t*>(mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        EXPECT_NE(base, MAP_FAILED);
        EXPECT_EQ(mprotect(base, page, PROT_NONE), 0);
        EXPECT_EQ(mprotect(base + 2 * page, page, PROT_NONE), 0);
    }
    ~Guarded_Memory() { munmap(base, 3 * page); }
    Guarded_Memory(const Guarded_Memory&) = delete;
    Guarded_Memory& operator=(const Guarded_Memory&) = delete;
    uint8_t* First() { return base + page; }
    uint8_t* Last(size_t size) { return base + 2 * page - size; }

private:
    size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    uint8_t* base;
};

TEST(Tables, MatchTheFormulas)
{
    const YUV_Decode& tables = Tables();
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const int index = first << 8 | second;
            ASSERT_EQ(tables.B_Matrix[index], Clamped(first + ((7287 * (second - 128)) >> 12))) << index;
            ASSERT_EQ(tables.R_Matrix[index], Clamped(first + ((5765 * (second - 128)) >> 12))) << index;
            ASSERT_EQ(tables.G_UV_Matrix[index], ((1415 * (first - 128) + 2936 * (second - 128)) >> 12) + 256) << index;
        }
        for (int g = 0; g < 512; ++g) {
            ASSERT_EQ(tables.G_Matrix[first << 9 | g], Clamped(first + 256 - g)) << first << " " << g;
        }
    }
}

TEST(Tables, MatrixDebugPrintsRedInRowsOfSixteen)
{
    testing::internal::CaptureStdout();
    Tables().Matrix_Debug();
    const std::string text = testing::internal::GetCapturedStdout();
    constexpr size_t row = 12 + 16 * 3;
    ASSERT_EQ(text.size(), 4096 * row);
    EXPECT_EQ(text.substr(0x808 * row, row),
              "0x00008080:\n80\t81\t82\t84\t85\t87\t88\t89\t8B\t8C\t8E\t8F\t90\t92\t93\t95\t");
    EXPECT_EQ(text.substr(0xFFF * row, row),
              "0x0000FFF0:\nFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\tFF\t");
}

#if defined(WQZ_YUYV_BGR_X86)
TEST_F(Yuyv, TheWidestPathOfTheProcessorIsChosen)
{
    std::ifstream cpuinfo("/proc/cpuinfo");
    std::string line;
    while (std::getline(cpuinfo, line) && line.rfind("flags", 0) != 0) {
    }
    line += ' ';
    const auto has = [&line](const char* flag) {
        return line.find(std::string(" ") + flag + " ") != std::string::npos;
    };
    EXPECT_EQ(yuyv_bgr::Path_Available(Path::Ssse3), has("ssse3"));
    EXPECT_EQ(yuyv_bgr::Path_Available(Path::Avx2), has("avx2"));
    EXPECT_EQ(yuyv_bgr::Path_Available(Path::Avx512_Vbmi), has("avx512bw") && has("avx512vbmi"));

    const Path widest = has("avx512bw") && has("avx512vbmi") ? Path::Avx512_Vbmi
                        : has("avx2")                        ? Path::Avx2
                        : has("ssse3")                       ? Path::Ssse3
                                                             : Path::Tables;
    EXPECT_EQ(yuyv_bgr::Chosen_Path(), widest);
}
#endif

#if defined(__arm__)
// Nearly every processor with 32-bit ARM has NEON. A test run on one without it sets the variable.
TEST_F(Yuyv, NeonIsChosenWhereTheProcessorHasIt)
{
    const bool has_neon = std::getenv("WQZ_WITHOUT_NEON") == nullptr;
    EXPECT_EQ(yuyv_bgr::Path_Available(Path::Neon), has_neon);
    EXPECT_EQ(yuyv_bgr::Chosen_Path(), has_neon ? Path::Neon : Path::Tables);
}
#endif

#if defined(WQZ_YUYV_BGR_CHOICE)
// Every kernel converts whole vectors only, so the count tells which one ran.
TEST_F(Yuyv, AForcedPathIsChosenAndItsOwnKernelRuns)
{
    Bytes in(56 * 4);
    Bytes out(56 * 6);
    for (const auto& [path, name, groups] : Paths) {
        const Path last = yuyv_bgr::Chosen_Path();
        const bool available = yuyv_bgr::Path_Available(path);
        EXPECT_EQ(yuyv_bgr::Force_Path(path), available) << name;
        EXPECT_EQ(yuyv_bgr::Chosen_Path(), available ? path : last) << name;
        if (available) {
            EXPECT_EQ(yuyv_bgr::Convert_Whole_Vectors(in.data(), 56, out.data()), groups) << name;
        }
    }
}
#else
// The kernel converts whole vectors of 16 groups, where there is one; the tables convert the rest.
TEST_F(Yuyv, TheOnlyKernelRuns)
{
    Bytes in(56 * 4);
    Bytes out(56 * 6);
#if defined(WQZ_YUYV_BGR_NEON)
    EXPECT_EQ(yuyv_bgr::Convert_Whole_Vectors(in.data(), 56, out.data()), 48U);
#else
    EXPECT_EQ(yuyv_bgr::Convert_Whole_Vectors(in.data(), 56, out.data()), 0U);
#endif
}
#endif

// The second luma is 255 minus the first, so that both pixels see every (Y, U, V) in 2^24 groups.
TEST_F(Yuyv, EveryInputGivesTheDefinedPixel)
{
    Bytes in(256 * 256 * 4);
    Bytes out(256 * 256 * 6);
    const std::vector<Way> ways = Ways();
    for (unsigned v = 0; v < 256; ++v) {
        for (unsigned i = 0; i < 256 * 256; ++i) {
            const auto luma = static_cast<uint8_t>(i);
            const uint8_t group[] = {luma, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(255 - luma),
                                     static_cast<uint8_t>(v)};
            std::copy_n(group, 4, in.begin() + i * 4);
        }
        const Bytes expected = Expected_Pixels(in);
        for (const Way& way : ways) {
            if (v % way.step_of_v != 0) {
                continue;
            }
            std::fill(out.begin(), out.end(), uint8_t{0x55});
            way.convert(in.data(), in.size(), out.data());
            ASSERT_TRUE(out == expected) << way.name << ", V " << v;
        }
    }
}

// Before the page's end, the lengths also put source and target at every alignment that matters to a vector.
TEST_F(Yuyv, EveryLengthStaysWithinItsBytes)
{
    Guarded_Memory in;
    Guarded_Memory out;
    for (const Way& way : Ways()) {
        for (size_t size = 0; size <= 200; ++size) {
            const Bytes bytes = Random_Bytes(size);
            const Bytes expected = Expected_Pixels(bytes);
            for (const bool at_the_end : {false, true}) {
                uint8_t* const source = at_the_end ? in.Last(size) : in.First();
                uint8_t* const target = at_the_end ? out.Last(expected.size()) : out.First();
                std::copy(bytes.begin(), bytes.end(), source);
                // Bytes outside, but on the same page, must stay as they are.
                uint8_t* const neighbour = at_the_end ? target - 64 : target + expected.size();
                std::fill_n(neighbour, 64, uint8_t{0x55});
                way.convert(source, size, target);
                ASSERT_TRUE(std::equal(expected.begin(), expected.end(), target)) << way.name << ", " << size;
                ASSERT_EQ(std::count(neighbour, neighbour + 64, 0x55), 64) << way.name << ", " << size;
            }
        }
    }
}

// The colours of even and odd columns, in even and odd rows.
struct Mosaic {
    bool (YUV_Decode::*decode)(uint8_t*, uint32_t, uint32_t, uint8_t*, uint32_t);
    const char* rows[2];
};

constexpr Mosaic Mosaics[] = {
    {&YUV_Decode::RAW0_Decode, {"GR", "BG"}},
    {&YUV_Decode::RAW1_Decode, {"RG", "GB"}},
    {&YUV_Decode::RAW2_Decode, {"BG", "GR"}},
    {&YUV_Decode::RAW3_Decode, {"GB", "RR"}},
};

struct Raw_Shape {
    size_t width;
    size_t whole_rows;
    size_t further_bytes;
};

/// Pixels of an even number of rows. The other bytes stay 0x55.
Bytes Expected_Mosaic(const Mosaic& mosaic, const Raw_Shape& shape, const Bytes& raw, size_t room)
{
    Bytes bgr(room, 0x55);
    const size_t rows = (shape.whole_rows + 1) / 2 * 2;
    for (size_t y = 0; y < rows; ++y) {
        for (size_t x = 0; x < shape.width / 2 * 2; ++x) {
            uint8_t* const pixel = bgr.data() + (y * shape.width + x) * 3;
            memset(pixel, 0, 3);
            const char colour = mosaic.rows[y % 2][x % 2];
            pixel[colour == 'B' ? 0 : colour == 'G' ? 1 : 2] = raw[(y * shape.width + x) * 2];
        }
    }
    return bgr;
}

TEST(Raw, EverySampleLandsInItsColour)
{
    const Raw_Shape shapes[] = {
        {2, 2, 0},   {16, 6, 0},  {642, 4, 0},
        {16, 3, 0},  {16, 1, 31},  // the last pair takes one row more than there are
        {16, 4, 31},               // a partial row is dropped
        {5, 2, 0},   {5, 3, 9},    // the odd column is left out
        {1, 2, 0},
    };
    for (const Mosaic& mosaic : Mosaics) {
        for (const Raw_Shape& shape : shapes) {
            const size_t even_rows = (shape.whole_rows + 1) / 2 * 2;
            Bytes raw = Random_Bytes((even_rows + 1) * shape.width * 2);
            Bytes bgr((even_rows + 1) * shape.width * 3, 0x55);
            const auto size = static_cast<uint32_t>(shape.whole_rows * shape.width * 2 + shape.further_bytes);
            EXPECT_TRUE((Tables().*mosaic.decode)(raw.data(), size, static_cast<uint32_t>(shape.width), bgr.data(), 0));
            EXPECT_TRUE(bgr == Expected_Mosaic(mosaic, shape, raw, bgr.size()))
                << mosaic.rows[0] << " " << shape.width << "x" << shape.whole_rows;
        }
    }
}

TEST(Raw, LessThanARowIsRefused)
{
    uint8_t raw[32] = {};
    uint8_t bgr[48];
    memset(bgr, 0x55, sizeof bgr);
    for (const Mosaic& mosaic : Mosaics) {
        EXPECT_FALSE((Tables().*mosaic.decode)(raw, 31, 16, bgr, 48));
        EXPECT_FALSE((Tables().*mosaic.decode)(raw, 32, 0, bgr, 48));
        for (const uint32_t nonsense : {0x80000000U, 0x80000001U, 0xFFFFFFFFU}) {
            EXPECT_FALSE((Tables().*mosaic.decode)(raw, 32, nonsense, bgr, 48)) << "a row has more than 32 bits hold";
        }
        EXPECT_FALSE((Tables().*mosaic.decode)(nullptr, 0, 16, nullptr, 0));
    }
    EXPECT_EQ(std::count(bgr, bgr + sizeof bgr, 0x55), 48);
}

// Every sample value, repacked from its own memory.
void Expect_Samples_Repacked()
{
    // Every sample value, from an odd address on, then a single byte.
    Bytes ten(1 + 65536 * 2 + 1, 0x77);
    for (size_t sample = 0; sample < 65536; ++sample) {
        ten[1 + sample * 2] = static_cast<uint8_t>(sample);
        ten[2 + sample * 2] = static_cast<uint8_t>(sample >> 8);
    }
    Bytes twelve = ten;
    Tables().RAW10_Decode(ten.data() + 1, static_cast<uint32_t>(ten.size() - 1));
    Tables().RAW12_Decode(twelve.data() + 1, static_cast<uint32_t>(twelve.size() - 1));
    EXPECT_TRUE(ten == twelve);
    EXPECT_EQ(ten.front(), 0x77);
    EXPECT_EQ(ten.back(), 0x77);
    for (size_t sample = 0; sample < 65536; ++sample) {
        const size_t repacked = ten[1 + sample * 2] + ten[2 + sample * 2] * size_t{256};
        ASSERT_EQ(repacked, (sample & 0xFF) * 4 + (sample >> 8) % 4) << sample;
    }
}

TEST_F(Yuyv, RawSamplesOfTenAndTwelveBitsAreRepackedAlikeByEveryPath)
{
#if defined(WQZ_YUYV_BGR_CHOICE)
    for (const auto& [path, name, groups] : Paths) {
        if (yuyv_bgr::Force_Path(path)) {
            SCOPED_TRACE(name);
            Expect_Samples_Repacked();
        }
    }
#else
    Expect_Samples_Repacked();
#endif
}

TEST_F(Yuyv, AConversionSaysWhetherThereWasAGroup)
{
    Bytes in(12);
    Bytes out(18);
    for (uint32_t size = 0; size <= in.size(); ++size) {
        EXPECT_EQ(Tables().YUYV_Decode(in.data(), size, out.data(), 18), size >= 4) << size;
    }
}

}  // namespace
