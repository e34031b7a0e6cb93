// Measures the conversion of a YUYV frame into a picture in its record, beside the conversion of its pixels alone.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <algorithm>
#include <chrono>
#include <memory>

#include "pictures.h"
#include "Stream/YUV/yuv_stream.h"

namespace {

long Page_Faults()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

/// Every round makes a record like those of the capture loop, with new memory. Only the conversion is timed.
void In_Place(benchmark::State& state, Picture_Size size)
{
    const size_t bytes = size.Pixels() * 2;
    Aligned_Bytes yuyv(bytes);
    Fill_Natural(yuyv.Data(), size);
    Frame_Buffer_Data frame{};
    frame.PixFormat.u_Width = size.width;
    frame.PixFormat.u_Height = size.height;
    long faults = 0;
    for (auto _ : state) {
        auto* const memory = new uint8_t[bytes + 256];
        std::copy_n(yuyv.Data(), bytes, memory);
        frame.pMem = memory;
        frame.buff_Length = static_cast<uint32_t>(bytes + 256);
        frame.buffer.bytesused = static_cast<uint32_t>(bytes);
        const long faults_before = Page_Faults();
        const auto start = std::chrono::steady_clock::now();
        YUV_Stream::Frame_buffer_Deal_With(&frame);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        faults += Page_Faults() - faults_before;
        state.SetIterationTime(elapsed.count());
        delete[] static_cast<uint8_t*>(frame.pMem);
    }
    state.counters["page faults"] = benchmark::Counter(static_cast<double>(faults), benchmark::Counter::kAvgIterations);
}

void Conversion_Alone(benchmark::State& state, Picture_Size size)
{
    const auto bytes = static_cast<uint32_t>(size.Pixels() * 2);
    Aligned_Bytes yuyv(bytes);
    Aligned_Bytes file(sizeof(bmp_header_t) + bytes / 2 * 3);
    Fill_Natural(yuyv.Data(), size);
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        YUV_Stream::YUV_Decode_Table.YUYV_Decode(yuyv.Data(), bytes, file.Data() + sizeof(bmp_header_t), bytes / 2 * 3);
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(elapsed.count());
        benchmark::ClobberMemory();
    }
}

bool Register_All()
{
    for (const Picture_Size size : Picture_Sizes) {
        const std::string row = "bmp/" + size.Name() + "/";
        benchmark::RegisterBenchmark((row + "in-place").c_str(), In_Place, size)->UseManualTime();
        benchmark::RegisterBenchmark((row + "conversion").c_str(), Conversion_Alone, size)->UseManualTime();
    }
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

}  // namespace
