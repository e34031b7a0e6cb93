// Measures what a frame costs through the camera interface, beside a hand-written loop and other libraries that take
// frames from the same virtual cameras.

#include <benchmark/benchmark.h>
#include <sys/resource.h>
#include <turbojpeg.h>

#include "allocation_count.h"
#include "camera_stream.h"
#include "libv4l2_calls.h"
#include "mapped_stream.h"
#include "opencv_capture.h"
#include "pictures.h"
#include "Stream/YUV/yuv_stream.h"

namespace {

using Kernel_Stream = Mapped_Stream<Kernel_Calls>;

constexpr auto Look_Away = [](const auto&...) {};

double By_Library(const Bench_Camera& camera)
{
    Camera_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Cpu_Per_Frame([&stream] { stream.Take_Frame(Look_Away); });
}

double By_Poll_Loop(const Bench_Camera& camera)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Cpu_Per_Frame([&stream] {
        stream.Wait_By_Poll();
        stream.Take_Ready_Frame(Look_Away);
    });
}

double By_Opencv(const Bench_Camera& camera)
{
    Opencv_Capture capture(camera, false);
    return Cpu_Per_Frame([&capture] { capture.Take_Frame(); });
}

double By_Libv4l2(const Bench_Camera& camera)
{
    Mapped_Stream<Libv4l2_Calls> stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Cpu_Per_Frame([&stream] { stream.Take_Frame(Look_Away); });
}

double To_Bgr_By_Library(const Bench_Camera& camera)
{
    Camera_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    const size_t bytes = size_t{camera.width} * camera.height * 3;
    Aligned_Bytes bgr(bytes);
    return Cpu_Per_Frame([&] {
        stream.Take_Frame([&](const WQZ_Camera_Frame& frame) {
            if (WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, bgr.Data(), bytes, 0) != 0) {
                throw std::runtime_error("not converted");
            }
        });
    });
}

/// Decodes Motion-JPEG with one TurboJPEG handle that is kept.
class Jpeg_Decoder {
public:
    Jpeg_Decoder() : handle(tjInitDecompress()) {}
    ~Jpeg_Decoder() { tjDestroy(handle); }
    Jpeg_Decoder(const Jpeg_Decoder&) = delete;
    Jpeg_Decoder& operator=(const Jpeg_Decoder&) = delete;

    void Decode(const uint8_t* image, unsigned long bytes, uint8_t* bgr, int width, int height)
    {
        if (tjDecompress2(handle, image, bytes, bgr, width, width * 3, height, TJPF_BGR, 0) != 0) {
            throw std::runtime_error("not decoded");
        }
    }

private:
    tjhandle handle;
};

/// The loop with nothing but the conversion between dequeue and requeue.
double To_Bgr_By_Poll_Loop(const Bench_Camera& camera)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    Aligned_Bytes bgr(size_t{camera.width} * camera.height * 3);
    Jpeg_Decoder decoder;
    return Cpu_Per_Frame([&] {
        stream.Wait_By_Poll();
        stream.Take_Ready_Frame([&](uint8_t* bytes, uint32_t used) {
            if (camera.fourcc == V4L2_PIX_FMT_YUYV) {
                YUV_Stream::YUV_Decode_Table.YUYV_Decode(bytes, used, bgr.Data(), used / 2 * 3);
            } else {
                decoder.Decode(bytes, used, bgr.Data(), static_cast<int>(camera.width),
                               static_cast<int>(camera.height));
            }
        });
    });
}

double To_Bgr_By_Opencv(const Bench_Camera& camera)
{
    Opencv_Capture capture(camera, true);
    return Cpu_Per_Frame([&capture] { capture.Take_Frame(); });
}

int64_t Page_Faults()
{
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_minflt;
}

struct Memory_Use {
    int64_t allocations = 0;
    int64_t page_faults = 0;
};

/// @param take  takes a frame and hands its bytes and their number to the function it is given
template <typename Take>
Memory_Use Memory_Of_Frames(Take take)
{
    // The virtual camera's queues allocate once in 128 frames. A multiple of that holds a fixed number of them.
    constexpr int Frames = 1280;
    // One byte of each page, as a program reads a frame.
    const auto read_pages = [](const uint8_t* bytes, uint64_t size) {
        for (uint64_t at = 0; at < size; at += 4096) {
            benchmark::DoNotOptimize(bytes[at]);
        }
    };
    for (int i = 0; i < Warm_Up_Frames; ++i) {
        take(read_pages);
    }
    const Memory_Use before{Allocations(), Page_Faults()};
    for (int i = 0; i < Frames; ++i) {
        take(read_pages);
    }
    return {Allocations() - before.allocations, Page_Faults() - before.page_faults};
}

Memory_Use Memory_By_Library(const Bench_Camera& camera)
{
    Camera_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Memory_Of_Frames([&stream](auto use) {
        stream.Take_Frame([&use](const WQZ_Camera_Frame& frame) { use(frame.data, frame.length); });
    });
}

/// The camera always has a frame, so that no wait adds its own memory.
Memory_Use Memory_Of_Camera(const Bench_Camera& camera)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Memory_Of_Frames([&stream](auto use) { stream.Take_Ready_Frame(use); });
}

void Memory_Above_The_Camera(benchmark::State& state, const Bench_Camera& camera)
{
    try {
        for (auto _ : state) {
            const Memory_Use alone = Memory_Of_Camera(camera);
            const Memory_Use with_library = Memory_By_Library(camera);
            state.counters["allocations"] = static_cast<double>(with_library.allocations - alone.allocations);
            state.counters["page faults"] = static_cast<double>(with_library.page_faults - alone.page_faults);
        }
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
    }
}

using Measurement = double (*)(const Bench_Camera&);

benchmark::internal::Benchmark* Register(const std::string& table, const Bench_Camera& camera, const char* subject,
                                         Measurement measure)
{
    const std::string name = table + "/" + camera.Mode_Name() + "/" + subject;
    return benchmark::RegisterBenchmark(name.c_str(),
                                        [camera, measure](benchmark::State& state) {
                                            try {
                                                for (auto _ : state) {
                                                    state.SetIterationTime(measure(camera));
                                                }
                                            } catch (const std::exception& error) {
                                                state.SkipWithError(error.what());
                                            }
                                        })
        ->Iterations(1)
        ->UseManualTime();
}

bool Register_All()
{
    const std::pair<const char*, Measurement> takes[] = {
        {"library", By_Library}, {"poll loop", By_Poll_Loop}, {"opencv", By_Opencv}, {"libv4l2", By_Libv4l2}};
    const std::pair<const char*, Measurement> conversions[] = {
        {"library", To_Bgr_By_Library}, {"poll loop", To_Bgr_By_Poll_Loop}, {"opencv", To_Bgr_By_Opencv}};
    for (const Bench_Camera& camera : Mode_Cameras()) {
        for (const auto& [subject, measure] : takes) {
            Register("camera-frame", camera, subject, measure);
        }
        for (const auto& [subject, measure] : conversions) {
            auto* const conversion = Register("camera-bgr", camera, subject, measure);
            if (camera.fourcc == V4L2_PIX_FMT_MJPEG) {
                conversion->Repetitions(5);  // decoding takes seconds
            }
        }
        benchmark::RegisterBenchmark(("camera-memory/" + camera.Mode_Name()).c_str(), Memory_Above_The_Camera, camera)
            ->Iterations(1)
            ->Repetitions(5);
    }
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

}  // namespace
