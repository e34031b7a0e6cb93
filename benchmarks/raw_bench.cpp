// Measures the splitting of raw Bayer frames into colours and the repacking of samples, beside the limit of the memory.

#include <benchmark/benchmark.h>
#include <memory>

#include "pictures.h"
#include "Stream/YUV/yuv_decode.h"

namespace {

struct Raw_Frame {
    Picture_Size size;
    Aligned_Bytes samples{size.Pixels() * 2};
    Aligned_Bytes pixels{size.Pixels() * 3};
    YUV_Decode decode;
    explicit Raw_Frame(Picture_Size frame_size) : size(frame_size) { Fill_Noise(samples.Data(), size.Pixels() * 2); }
    uint32_t Bytes() const { return static_cast<uint32_t>(size.Pixels() * 2); }
};

template <bool (YUV_Decode::*Member)(uint8_t*, uint32_t, uint32_t, uint8_t*, uint32_t)>
void Split(Raw_Frame& frame)
{
    (frame.decode.*Member)(frame.samples.Data(), frame.Bytes(), frame.size.width, frame.pixels.Data(),
                           frame.Bytes() / 2 * 3);
}

template <void (YUV_Decode::*Member)(uint8_t*, uint32_t)>
void Repack(Raw_Frame& frame)
{
    (frame.decode.*Member)(frame.samples.Data(), frame.Bytes());
}

void Split_Limit(Raw_Frame& frame)
{
    Read_And_Write(frame.samples.Data(), frame.size.Pixels() * 2, frame.pixels.Data(), frame.size.Pixels() * 3);
}

void Repack_Limit(Raw_Frame& frame)
{
    Read_And_Write(frame.samples.Data(), frame.size.Pixels() * 2, frame.samples.Data(), frame.size.Pixels() * 2);
}

void Register(const std::shared_ptr<Raw_Frame>& frame)
{
    const std::tuple<const char*, const char*, void (*)(Raw_Frame&)> subjects[] = {
        {"raw-split", "raw0", Split<&YUV_Decode::RAW0_Decode>},
        {"raw-split", "raw1", Split<&YUV_Decode::RAW1_Decode>},
        {"raw-split", "raw2", Split<&YUV_Decode::RAW2_Decode>},
        {"raw-split", "raw3", Split<&YUV_Decode::RAW3_Decode>},
        {"raw-split", "limit", Split_Limit},
        {"raw-repack", "raw10", Repack<&YUV_Decode::RAW10_Decode>},
        {"raw-repack", "raw12", Repack<&YUV_Decode::RAW12_Decode>},
        {"raw-repack", "limit", Repack_Limit},
    };
    for (const auto& [table, subject, run] : subjects) {
        const std::string name = std::string(table) + "/" + frame->size.Name() + "/" + subject;
        benchmark::RegisterBenchmark(name.c_str(), [frame, run = run](benchmark::State& state) {
            for (auto _ : state) {
                run(*frame);
                benchmark::ClobberMemory();
            }
            state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(frame->size.Pixels()));
        })->UseRealTime();
    }
}

bool Register_All()
{
    for (const Picture_Size size : Picture_Sizes) {
        Register(std::make_shared<Raw_Frame>(size));
    }
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

}  // namespace
