// Measures the camera interface where programs wait: how soon a frame is in hand once it is ready, and many cameras in
// one thread.

#include <benchmark/benchmark.h>
#include <poll.h>
#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "camera_stream.h"
#include "capture_setup.h"
#include "mapped_stream.h"

namespace {

using Kernel_Stream = Mapped_Stream<Kernel_Calls>;

constexpr auto Look_Away = [](const auto&...) {};

// Rare enough that every take has to wait, small enough that the camera hardly draws.
const Bench_Camera& Waiting_Camera()
{
    static const Bench_Camera camera = Plug_In_All({{4, V4L2_PIX_FMT_MJPEG, 320, 240, 200}}).front();
    return camera;
}

int64_t Now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * int64_t{1'000'000'000} + now.tv_nsec;
}

/// @param take  takes a frame and returns the nanoseconds from its being ready to its being in hand
/// @return the median in seconds
template <typename Take>
double Median_Latency(Take take)
{
    constexpr int Unsettled_Frames = 20, Frames = 200;
    for (int i = 0; i < Unsettled_Frames; ++i) {
        take();
    }
    std::vector<int64_t> latencies;
    for (int i = 0; i < Frames; ++i) {
        latencies.push_back(take());
    }
    std::nth_element(latencies.begin(), latencies.begin() + Frames / 2, latencies.end());
    return static_cast<double>(latencies[Frames / 2]) * 1e-9;
}

template <typename Wait>
double Latency_Of_Loop(const Bench_Camera& camera, Wait wait)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Median_Latency([&] {
        wait(stream);
        int64_t in_hand = 0;
        const timeval ready = stream.Take_Ready_Frame([&](const auto&...) { in_hand = Now(); }).timestamp;
        return in_hand - (ready.tv_sec * int64_t{1'000'000'000} + ready.tv_usec * int64_t{1000});
    });
}

double Latency_Of_Library(const Bench_Camera& camera)
{
    Camera_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Median_Latency([&] {
        int64_t latency = 0;
        stream.Take_Frame([&latency](const WQZ_Camera_Frame& frame) { latency = Now() - frame.time_ns; });
        return latency;
    });
}

/// CPU time of frames that have to be waited for, one by one.
double Cpu_Of_Library(const Bench_Camera& camera)
{
    Camera_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Cpu_Per_Frame([&stream] { stream.Take_Frame(Look_Away); });
}

double Cpu_Of_Poll_Loop(const Bench_Camera& camera)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Cpu_Per_Frame([&stream] {
        stream.Wait_By_Poll();
        stream.Take_Ready_Frame(Look_Away);
    });
}

/// Sixteen cameras and the array to poll them with.
template <typename Stream>
struct Many_Streams {
    // Started at fixed times, so that paced cameras have their frames at the same distances in each measurement.
    explicit Many_Streams(const std::vector<Bench_Camera>& cameras)
    {
        constexpr std::chrono::milliseconds Distance(5);
        auto next = std::chrono::steady_clock::now();
        for (const Bench_Camera& camera : cameras) {
            std::this_thread::sleep_until(next);
            next += Distance;
            streams.push_back(std::make_unique<Stream>(camera.Node(), camera.fourcc, camera.width, camera.height));
            readable.push_back({streams.back()->Descriptor(), POLLIN, 0});
        }
        frames.resize(streams.size());
    }

    /// Waits, then takes a frame from each camera that has one.
    template <typename Take>
    void Take_Round(Take take)
    {
        if (syscall(SYS_poll, readable.data(), readable.size(), 1000) <= 0) {  // as Mapped_Stream does
            throw std::runtime_error("no frame");
        }
        for (size_t i = 0; i < streams.size(); ++i) {
            if (readable[i].revents != 0) {
                frames[i] += take(*streams[i]);
            }
        }
    }

    std::vector<std::unique_ptr<Stream>> streams;
    std::vector<pollfd> readable;
    std::vector<int> frames;
};

int Take_From_Library(Camera_Stream& stream)
{
    return stream.Take_Frame(Look_Away, 0) ? 1 : 0;
}

int Take_From_Kernel(Kernel_Stream& stream)
{
    stream.Take_Ready_Frame(Look_Away);
    return 1;
}

/// Takes frames of all cameras in one thread for a second.
template <typename Stream>
void Count_Frames(benchmark::State& state, const std::vector<Bench_Camera>& cameras, int (*take)(Stream&))
{
    using Clock = std::chrono::steady_clock;
    constexpr int Unsettled_Rounds = 100;
    Many_Streams<Stream> many(cameras);
    for (int i = 0; i < Unsettled_Rounds; ++i) {
        many.Take_Round(take);
    }
    for (auto _ : state) {
        std::fill(many.frames.begin(), many.frames.end(), 0);
        const double cpu = Process_Cpu();
        const auto start = Clock::now();
        while (Clock::now() - start < std::chrono::seconds(1)) {
            many.Take_Round(take);
        }
        const double wall = std::chrono::duration<double>(Clock::now() - start).count();
        int sum = 0;
        for (const int frames : many.frames) {
            sum += frames;
        }
        state.counters["frames per second"] = sum / wall;
        state.counters["least of a camera"] = *std::min_element(many.frames.begin(), many.frames.end()) / wall;
        state.counters["CPU us per frame"] = (Process_Cpu() - cpu) / sum * 1e6;
    }
}

/// Runs a measurement and reports its exceptions.
template <typename Run>
benchmark::internal::Benchmark* Register(const std::string& name, Run run)
{
    return benchmark::RegisterBenchmark(name.c_str(), [run](benchmark::State& state) {
        try {
            run(state);
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
        }
    });
}

/// Measures a camera that has to be waited for.
template <typename Measure>
void Register_Waiting(const std::string& table, const std::string& subject, Measure measure)
{
    Register(table + "/320x240 MJPEG at 200 per second/" + subject,
             [measure](benchmark::State& state) {
                 for (auto _ : state) {
                     state.SetIterationTime(measure(Waiting_Camera()));
                 }
             })
        ->Iterations(1)
        ->Repetitions(9)
        ->UseManualTime();
}

std::vector<Bench_Camera> Paced_Cameras()
{
    std::vector<Bench_Camera> cameras;
    for (int i = 0; i < Growth_Cameras; ++i) {
        cameras.push_back({10 + 2 * Growth_Cameras + i, V4L2_PIX_FMT_MJPEG, 640, 480, 30});
    }
    return Plug_In_All(cameras);
}

void Register_Many(const std::string& rate, const std::vector<Bench_Camera>& cameras)
{
    Register("camera-many/" + rate + ", library",
             [cameras](benchmark::State& state) { Count_Frames(state, cameras, Take_From_Library); })
        ->Iterations(1)
        ->Repetitions(7);
    Register("camera-many/" + rate + ", poll loop",
             [cameras](benchmark::State& state) { Count_Frames(state, cameras, Take_From_Kernel); })
        ->Iterations(1)
        ->Repetitions(7);
}

bool Register_All()
{
    Register_Waiting("camera-latency", "library", Latency_Of_Library);
    Register_Waiting("camera-latency", "poll loop", [](const Bench_Camera& camera) {
        return Latency_Of_Loop(camera, [](Kernel_Stream& stream) { stream.Wait_By_Poll(); });
    });
    Register_Waiting("camera-latency", "select loop", [](const Bench_Camera& camera) {
        return Latency_Of_Loop(camera, [](Kernel_Stream& stream) { stream.Wait_By_Select(); });
    });
    Register_Waiting("camera-waiting", "library", Cpu_Of_Library);
    Register_Waiting("camera-waiting", "poll loop", Cpu_Of_Poll_Loop);
    Register_Many("as fast as taken", Cameras_Alike(V4L2_PIX_FMT_MJPEG));
    Register_Many("30 per second", Paced_Cameras());
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

}  // namespace
