// Measures the conversion of YUYV to 24-bit pixels: every path of the library, other libraries, and the memory's limit.

#include <benchmark/benchmark.h>
#include <libyuv.h>
#include <functional>
#include <memory>
#include <opencv2/imgproc.hpp>

extern "C" {
#include <libswscale/swscale.h>
}

#include "pictures.h"
#include "Stream/YUV/yuv_decode.h"
#include "Stream/YUV/yuyv_bgr.h"

namespace {

struct Conversion {
    Picture_Size size;
    Aligned_Bytes yuyv{size.Pixels() * 2};
    Aligned_Bytes bgr{size.Pixels() * 3};
    explicit Conversion(Picture_Size picture_size) : size(picture_size) {}
};

YUV_Decode& Tables()
{
    static const auto tables = std::make_unique<YUV_Decode>();
    return *tables;
}

void Convert(benchmark::State& state, Conversion& picture)
{
    const auto bytes = static_cast<uint32_t>(picture.size.Pixels() * 2);
    for (auto _ : state) {
        Tables().YUYV_Decode(picture.yuyv.Data(), bytes, picture.bgr.Data(), bytes / 2 * 3);
        benchmark::ClobberMemory();
    }
}

#if defined(WQZ_YUYV_BGR_CHOICE)
void By_Path(benchmark::State& state, Conversion& picture, yuyv_bgr::Path path)
{
    const yuyv_bgr::Path before = yuyv_bgr::Chosen_Path();
    if (!yuyv_bgr::Force_Path(path)) {
        state.SkipWithError("not available on this processor");
        return;
    }
    Convert(state, picture);
    yuyv_bgr::Force_Path(before);
}
#endif

/// Converts by way of 32-bit pixels, row by row, so that these stay in the first-level cache.
void By_Libyuv(benchmark::State& state, Conversion& picture)
{
    const int width = static_cast<int>(picture.size.width);
    Aligned_Bytes row(size_t{picture.size.width} * 4);
    for (auto _ : state) {
        for (size_t y = 0; y < picture.size.height; ++y) {
            libyuv::YUY2ToARGB(picture.yuyv.Data() + y * picture.size.width * 2, width * 2, row.Data(), width * 4,
                               width, 1);
            libyuv::ARGBToRGB24(row.Data(), width * 4, picture.bgr.Data() + y * picture.size.width * 3, width * 3,
                                width, 1);
        }
        benchmark::ClobberMemory();
    }
}

void By_Opencv(benchmark::State& state, Conversion& picture, int threads)
{
    cv::setNumThreads(threads);
    const int width = static_cast<int>(picture.size.width);
    const int height = static_cast<int>(picture.size.height);
    const cv::Mat yuyv(height, width, CV_8UC2, picture.yuyv.Data());
    cv::Mat bgr(height, width, CV_8UC3, picture.bgr.Data());
    for (auto _ : state) {
        cv::cvtColor(yuyv, bgr, cv::COLOR_YUV2BGR_YUY2);
        benchmark::ClobberMemory();
    }
}

void By_Swscale(benchmark::State& state, Conversion& picture)
{
    const int width = static_cast<int>(picture.size.width);
    const int height = static_cast<int>(picture.size.height);
    const std::unique_ptr<SwsContext, decltype(&sws_freeContext)> context(
        sws_getContext(width, height, AV_PIX_FMT_YUYV422, width, height, AV_PIX_FMT_BGR24, SWS_POINT, nullptr, nullptr,
                       nullptr),
        sws_freeContext);
    if (!context) {
        state.SkipWithError("no such conversion");
        return;
    }
    const uint8_t* const in[] = {picture.yuyv.Data()};
    uint8_t* const out[] = {picture.bgr.Data()};
    const int in_stride[] = {width * 2};
    const int out_stride[] = {width * 3};
    for (auto _ : state) {
        sws_scale(context.get(), in, in_stride, 0, height, out, out_stride);
        benchmark::ClobberMemory();
    }
}

void By_Memory_Alone(benchmark::State& state, Conversion& picture)
{
    for (auto _ : state) {
        Read_And_Write(picture.yuyv.Data(), picture.size.Pixels() * 2, picture.bgr.Data(), picture.size.Pixels() * 3);
        benchmark::ClobberMemory();
    }
}

void Register(const std::shared_ptr<Conversion>& picture, const std::string& content)
{
    using Measurement = std::function<void(benchmark::State&, Conversion&)>;
    const std::pair<const char*, Measurement> subjects[] = {
#if defined(WQZ_YUYV_BGR_CHOICE)
        {"tables", [](auto& state, auto& p) { By_Path(state, p, yuyv_bgr::Path::Tables); }},
        {"ssse3", [](auto& state, auto& p) { By_Path(state, p, yuyv_bgr::Path::Ssse3); }},
        {"avx2", [](auto& state, auto& p) { By_Path(state, p, yuyv_bgr::Path::Avx2); }},
        {"vbmi", [](auto& state, auto& p) { By_Path(state, p, yuyv_bgr::Path::Avx512_Vbmi); }},
        {"neon", [](auto& state, auto& p) { By_Path(state, p, yuyv_bgr::Path::Neon); }},
#elif defined(WQZ_YUYV_BGR_NEON)
        {"neon", Convert},
#else
        {"tables", Convert},
#endif
        {"libyuv", By_Libyuv},
        {"opencv", [](auto& state, auto& p) { By_Opencv(state, p, 1); }},
        {"opencv-threads", [](auto& state, auto& p) { By_Opencv(state, p, -1); }},
        {"swscale", By_Swscale},
        {"limit", By_Memory_Alone},
    };
    for (const auto& [subject, measure] : subjects) {
        const std::string name = "yuyv/" + picture->size.Name() + " " + content + "/" + subject;
        benchmark::RegisterBenchmark(name.c_str(), [picture, measure = measure](benchmark::State& state) {
            measure(state, *picture);
            state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(picture->size.Pixels()));
        })->UseRealTime();
    }
}

bool Register_All()
{
    for (const Picture_Size size : Picture_Sizes) {
        const auto noise = std::make_shared<Conversion>(size);
        Fill_Noise(noise->yuyv.Data(), size.Pixels() * 2);
        Register(noise, "noise");
        const auto natural = std::make_shared<Conversion>(size);
        Fill_Natural(natural->yuyv.Data(), size);
        Register(natural, "natural");
    }
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

void Build_Tables(benchmark::State& state)
{
    const auto tables = std::make_unique<YUV_Decode>();
    for (auto _ : state) {
        tables->Matrix_Init();
        benchmark::ClobberMemory();
    }
}
BENCHMARK(Build_Tables)->Name("tables/building, warm pages/library");

}  // namespace
