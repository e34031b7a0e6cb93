// Measures what a frame costs in a session, and how the costs grow with more sessions side by side.

#include <benchmark/benchmark.h>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "mapped_stream.h"
#include "running_session.h"

namespace {

/// @return the bytes that the camera copies to make a frame. It does so on the thread that makes the request.
double Bytes_Of_Camera(const Bench_Camera& camera)
{
    Mapped_Stream<Kernel_Calls> stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    const auto take = [&stream](int frames) {
        for (int i = 0; i < frames; ++i) {
            stream.Take_Frame([](uint8_t*, uint32_t) {});
        }
    };
    take(Warm_Up_Frames);
    const uint64_t before = Bytes_Copied();
    take(Measured_Frames);
    return static_cast<double>(Bytes_Copied() - before) / Measured_Frames;
}

// The heap may grow once more within the first few hundred frames, while blocks and list nodes find their places.
constexpr int Settling_Frames = 500;

void One_Session(benchmark::State& state, const Bench_Camera& camera)
{
    const double bytes_of_camera = Bytes_Of_Camera(camera);
    Loop_Meter meter(Settling_Frames, Measured_Frames);
    for (auto _ : state) {
        Running_Session session(camera, &meter);
        while (!meter.Is_Done()) {
            session.Take_Frame();
        }
    }
    const Loop_Meter::Totals& totals = meter.Result();
    constexpr double Per_Frame = 1e6 / Measured_Frames;
    const double copied = static_cast<double>(totals.bytes_copied) / Measured_Frames - bytes_of_camera;
    state.counters["wall us"] = totals.awake_wall * Per_Frame;
    state.counters["CPU us"] = totals.awake_cpu * Per_Frame;
    state.counters["CPU us of the sleeps"] = totals.asleep_cpu * Per_Frame;
    state.counters["asleep us"] = totals.asleep_wall * Per_Frame;
    state.counters["copies"] = copied / camera.Frame_Bytes();
    state.counters["page faults in 300 frames"] = static_cast<double>(totals.page_faults);
}

/// A session with an application that takes and counts its frames on another thread.
class Counted_Session {
public:
    explicit Counted_Session(const Bench_Camera& camera) : session(camera), application([this] { Take_Frames(); }) {}
    ~Counted_Session()
    {
        stop = true;
        application.join();
    }
    Counted_Session(const Counted_Session&) = delete;
    Counted_Session& operator=(const Counted_Session&) = delete;

    int Frames() const { return frames; }

private:
    void Take_Frames()
    {
        while (!stop) {
            session.Take_Frame();
            ++frames;
        }
    }

    std::atomic<bool> stop = false;
    std::atomic<int> frames = 0;
    Running_Session session;
    std::thread application;
};

void Many_Sessions(benchmark::State& state, uint32_t fourcc, int count)
{
    using namespace std::chrono_literals;
    using Clock = std::chrono::steady_clock;
    const std::vector<Bench_Camera> cameras = Cameras_Alike(fourcc);
    std::vector<std::unique_ptr<Counted_Session>> sessions;
    sessions.reserve(cameras.size());
    for (auto camera = cameras.begin(); camera != cameras.begin() + count; ++camera) {
        sessions.push_back(std::make_unique<Counted_Session>(*camera));
    }
    const auto frames = [&sessions] {
        int sum = 0;
        for (const auto& session : sessions) {
            sum += session->Frames();
        }
        return sum;
    };
    while (frames() < Warm_Up_Frames * count) {
        std::this_thread::sleep_for(10ms);
    }
    for (auto _ : state) {
        const double cpu_before = Process_Cpu();
        const int frames_before = frames();
        const auto start = Clock::now();
        std::this_thread::sleep_for(1s);
        const double wall = std::chrono::duration<double>(Clock::now() - start).count();
        const double delivered = frames() - frames_before;
        const double cpu = Process_Cpu() - cpu_before;
        state.counters["frames per second"] = delivered / wall;
        state.counters["per camera"] = delivered / wall / count;
        state.counters["CPU us per frame"] = cpu / delivered * 1e6;
        state.counters["CPU %"] = cpu / wall * 100;
    }
}

bool Register_All()
{
    for (const Bench_Camera& camera : Mode_Cameras()) {
        benchmark::RegisterBenchmark(("session/" + camera.Mode_Name()).c_str(), One_Session, camera)
            ->Iterations(1)
            ->Repetitions(5)
            ->UseRealTime();
    }
    for (const uint32_t fourcc : {V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_MJPEG}) {
        for (const int count : {1, 4, Growth_Cameras}) {
            const std::string name = "growth/" + Cameras_Alike(fourcc).front().Mode_Name() + ", " +
                                     std::to_string(count) + (count == 1 ? " camera" : " cameras");
            benchmark::RegisterBenchmark(name.c_str(), Many_Sessions, fourcc, count)
                ->Iterations(1)
                ->Repetitions(5)
                ->UseRealTime();
        }
    }
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

}  // namespace
