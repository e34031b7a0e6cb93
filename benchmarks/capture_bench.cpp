// Measures the CPU time of a captured frame: a session of the library beside other ways to capture, all from the same
// virtual cameras.

#include <benchmark/benchmark.h>

#include "libv4l2_calls.h"
#include "mapped_stream.h"
#include "opencv_capture.h"
#include "pictures.h"
#include "running_session.h"
#include "Stream/YUV/yuv_stream.h"

namespace {

double By_Session(const Bench_Camera& camera)
{
    Running_Session session(camera);
    return Cpu_Per_Frame([&session] { session.Take_Frame(); });
}

using Kernel_Stream = Mapped_Stream<Kernel_Calls>;

/// What the camera, select and the two requests cost when nobody looks at the frame.
double Camera_Alone(const Bench_Camera& camera)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Cpu_Per_Frame([&stream] { stream.Take_Frame([](uint8_t*, uint32_t) {}); });
}

/// The same with the sleeps of a session: two of a millisecond for every frame.
double Camera_Alone_Sleeping(const Bench_Camera& camera)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Cpu_Per_Frame([&stream] {
        stream.Take_Frame([](uint8_t*, uint32_t) { usleep(1000); });
        usleep(1000);
    });
}

/// A loop that copies each frame once and, for YUYV, converts the copy.
double By_Minimal_Loop(const Bench_Camera& camera, bool sleeping)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    const size_t pixels = size_t{camera.width} * camera.height;
    Aligned_Bytes copy(pixels * 2);
    Aligned_Bytes bgr(pixels * 3);
    return Cpu_Per_Frame([&] {
        uint32_t size = 0;
        stream.Take_Frame([&](const uint8_t* bytes, uint32_t used) {
            if (sleeping) {
                usleep(1000);
            }
            size = used;
            std::copy_n(bytes, used, copy.Data());
        });
        if (sleeping) {
            usleep(1000);
        }
        if (camera.fourcc == V4L2_PIX_FMT_YUYV) {
            YUV_Stream::YUV_Decode_Table.YUYV_Decode(copy.Data(), size, bgr.Data(), size / 2 * 3);
        }
    });
}

/// OpenCV converts YUYV to BGR and passes Motion-JPEG on.
double By_Opencv(const Bench_Camera& camera)
{
    Opencv_Capture capture(camera, camera.fourcc == V4L2_PIX_FMT_YUYV);
    return Cpu_Per_Frame([&capture] { capture.Take_Frame(); });
}

/// libv4l2 converts YUYV to BGR in a buffer of its own. It passes Motion-JPEG on, which is then copied once, because a
/// session also delivers a private copy.
double By_Libv4l2(const Bench_Camera& camera)
{
    const bool jpeg = camera.fourcc == V4L2_PIX_FMT_MJPEG;
    const size_t bgr_bytes = size_t{camera.width} * camera.height * 3;
    Mapped_Stream<Libv4l2_Calls> stream(camera.Node(), jpeg ? camera.fourcc : V4L2_PIX_FMT_BGR24, camera.width,
                                        camera.height);
    Aligned_Bytes copy(bgr_bytes);
    return Cpu_Per_Frame([&] {
        stream.Take_Frame([&](const uint8_t* bytes, uint32_t used) {
            if (jpeg) {
                std::copy_n(bytes, used, copy.Data());
            } else if (used != bgr_bytes) {
                throw std::runtime_error("libv4l2 gives another picture");
            }
        });
    });
}

bool Register_All()
{
    const std::pair<const char*, double (*)(const Bench_Camera&)> subjects[] = {
        {"session", By_Session},
        {"minimal", [](const Bench_Camera& camera) { return By_Minimal_Loop(camera, false); }},
        {"minimal-sleeping", [](const Bench_Camera& camera) { return By_Minimal_Loop(camera, true); }},
        {"opencv", By_Opencv},
        {"libv4l2", By_Libv4l2},
        {"camera", Camera_Alone},
        {"camera-sleeping", Camera_Alone_Sleeping},
    };
    for (const Bench_Camera& camera : Mode_Cameras()) {
        for (const auto& [subject, measure] : subjects) {
            const std::string name = "capture/" + camera.Mode_Name() + "/" + subject;
            benchmark::RegisterBenchmark(name.c_str(),
                                         [camera, measure = measure](benchmark::State& state) {
                                             try {
                                                 for (auto _ : state) {
                                                     state.SetIterationTime(measure(camera));
                                                 }
                                             } catch (const std::exception& error) {
                                                 state.SkipWithError(error.what());
                                             }
                                         })
                ->Iterations(1)
                ->Repetitions(5)
                ->UseManualTime();
        }
    }
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

}  // namespace
