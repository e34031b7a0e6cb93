// Measures the search for the end of a zero-padded Motion-JPEG image, beside plain scans from the buffer's end.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <cstring>
#include <memory>

#include "pictures.h"
#include "Stream/frame_buffer.h"

namespace {

constexpr uint32_t Buffer_Bytes = 4U << 20;

/// Sends standard error to /dev/null during its lifetime. The time includes printing, but not the speed of a terminal.
class Silence {
public:
    Silence() : before(dup(STDERR_FILENO))
    {
        const int nothing = open("/dev/null", O_WRONLY);
        dup2(nothing, STDERR_FILENO);
        close(nothing);
    }
    ~Silence()
    {
        dup2(before, STDERR_FILENO);
        close(before);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

private:
    int before;
};

uint32_t By_Library(uint8_t* buffer)
{
    return static_cast<uint32_t>(Frame_Buffer::MJPEG_Length(buffer, Buffer_Bytes));
}

uint32_t By_Bytes(uint8_t* buffer)
{
    uint32_t end = Buffer_Bytes;
    while (end > 0 && buffer[end - 1] == 0) {
        --end;
        benchmark::DoNotOptimize(end);  // keeps the compiler from replacing the loop
    }
    return end;
}

uint32_t By_Vectors(uint8_t* buffer)
{
    constexpr uint32_t Step = 128;
    uint32_t end = Buffer_Bytes;
    for (; end >= Step; end -= Step) {
        uint64_t words[Step / sizeof(uint64_t)];
        std::memcpy(words, buffer + end - Step, sizeof words);
        uint64_t any = 0;
        for (const uint64_t word : words) {  // the compiler makes vectors of it
            any |= word;
        }
        if (any != 0) {
            break;
        }
    }
    while (end > 0 && buffer[end - 1] == 0) {
        --end;
    }
    return end;
}

void Find_End(benchmark::State& state, uint32_t (*find)(uint8_t*), uint32_t image_bytes)
{
    Aligned_Bytes buffer(Buffer_Bytes);
    Fill_Noise(buffer.Data(), image_bytes);
    buffer.Data()[0] = 0xFF;
    buffer.Data()[1] = 0xD8;
    buffer.Data()[image_bytes - 2] = 0xFF;
    buffer.Data()[image_bytes - 1] = 0xD9;
    const Silence silence;
    if (find(buffer.Data()) != image_bytes) {
        state.SkipWithError("wrong length");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(find(buffer.Data()));
        benchmark::ClobberMemory();
    }
}

bool Register_All()
{
    const std::pair<const char*, uint32_t> images[] = {{"50 KB", 50'000}, {"500 KB", 500'000}, {"3.9 MB", 3'900'000}};
    for (const auto& [name, bytes] : images) {
        const std::string row = "mjpeg/" + std::string(name) + "/";
        benchmark::RegisterBenchmark((row + "library").c_str(), Find_End, By_Library, bytes);
        benchmark::RegisterBenchmark((row + "byte loop").c_str(), Find_End, By_Bytes, bytes);
        benchmark::RegisterBenchmark((row + "vector scan").c_str(), Find_End, By_Vectors, bytes);
    }
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

}  // namespace
