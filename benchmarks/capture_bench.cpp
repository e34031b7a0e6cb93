// Measures the CPU time of a captured frame: a session of the library beside other ways to capture, all from the same
// virtual cameras.

#include <benchmark/benchmark.h>
#include <libv4l2.h>
#include <memory>
#include <opencv2/videoio.hpp>

#include "capture_setup.h"
#include "mapped_stream.h"
#include "pictures.h"
#include "Stream/YUV/yuv_stream.h"

namespace {

struct Libv4l2_Calls {
    static int Open(const char* node) { return v4l2_open(node, O_RDWR); }
    static int Request(int fd, unsigned long request, void* argument) { return v4l2_ioctl(fd, request, argument); }
    static void* Map(size_t length, int fd, uint32_t offset)
    {
        return v4l2_mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_SHARED, fd, offset);
    }
    static int Unmap(void* address, size_t length) { return v4l2_munmap(address, length); }
    static int Close(int fd) { return v4l2_close(fd); }
};

/// @return seconds of CPU time per frame, of all threads
template <typename Take>
double Measure(Take take)
{
    for (int i = 0; i < Warm_Up_Frames; ++i) {
        take();
    }
    const double before = Process_Cpu();
    for (int i = 0; i < Measured_Frames; ++i) {
        take();
    }
    return (Process_Cpu() - before) / Measured_Frames;
}

double By_Session(const Bench_Camera& camera)
{
    Running_Session session(camera);
    return Measure([&session] { session.Take_Frame(); });
}

using Kernel_Stream = Mapped_Stream<Kernel_Calls>;

/// What the camera, select and the two requests cost when nobody looks at the frame.
double Camera_Alone(const Bench_Camera& camera)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Measure([&stream] { stream.Take_Frame([](uint8_t*, uint32_t) {}); });
}

/// The same with the sleeps of a session: two of a millisecond for every frame.
double Camera_Alone_Sleeping(const Bench_Camera& camera)
{
    Kernel_Stream stream(camera.Node(), camera.fourcc, camera.width, camera.height);
    return Measure([&stream] {
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
    return Measure([&] {
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

/// OpenCV converts YUYV to BGR and passes Motion-JPEG on. It uses the least CPU time with one thread.
double By_Opencv(const Bench_Camera& camera)
{
    cv::setNumThreads(1);
    cv::VideoCapture capture(camera.number, cv::CAP_V4L2);
    const bool jpeg = camera.fourcc == V4L2_PIX_FMT_MJPEG;
    if (!capture.set(cv::CAP_PROP_FOURCC, camera.fourcc) || !capture.set(cv::CAP_PROP_FRAME_WIDTH, camera.width) ||
        !capture.set(cv::CAP_PROP_FRAME_HEIGHT, camera.height) || !capture.set(cv::CAP_PROP_CONVERT_RGB, !jpeg)) {
        throw std::runtime_error("OpenCV refuses the mode");
    }
    cv::Mat picture;
    const double time = Measure([&] {
        if (!capture.read(picture)) {
            throw std::runtime_error("OpenCV captures nothing");
        }
    });
    if (!jpeg && (picture.type() != CV_8UC3 || picture.cols != static_cast<int>(camera.width))) {
        throw std::runtime_error("OpenCV gives another picture");
    }
    return time;
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
    return Measure([&] {
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
