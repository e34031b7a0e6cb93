// The virtual cameras that the capture benchmarks share, and the clock that they measure by.
#ifndef WQZ_BENCHMARKS_CAPTURE_SETUP_H
#define WQZ_BENCHMARKS_CAPTURE_SETUP_H

#include <linux/videodev2.h>
#include <cstdint>
#include <string>
#include <vector>

/// A virtual camera with one mode.
struct Bench_Camera {
    int number;  ///< N of /dev/videoN
    uint32_t fourcc;
    uint32_t width;
    uint32_t height;
    uint32_t fps = 0;  ///< 0: a frame is ready as soon as a buffer is queued for it
    std::string Node() const { return "/dev/video" + std::to_string(number); }
    std::string Mode_Name() const;
    uint32_t Frame_Bytes() const;  ///< the size of frame number 1000
};

/// @return seconds of CPU time of the whole process
double Process_Cpu();

/// Plugs cameras in, for good.
std::vector<Bench_Camera> Plug_In_All(std::vector<Bench_Camera> cameras);

/// The cameras that all measurements share, one each for YUYV and MJPEG at 640x480 and 1920x1080. They are made on
/// first use and kept, so that they draw the still parts of their frames only once.
const std::vector<Bench_Camera>& Mode_Cameras();

constexpr int Growth_Cameras = 16;

/// @return Growth_Cameras cameras of one kind, at 640x480
std::vector<Bench_Camera> Cameras_Alike(uint32_t fourcc);

constexpr int Warm_Up_Frames = 100;  // meanwhile the cameras draw their first frames and the pools fill
constexpr int Measured_Frames = 300;

/// @param take  takes one frame
/// @return seconds of CPU time per frame, of all threads
template <typename Take>
double Cpu_Per_Frame(Take take)
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

#endif  // WQZ_BENCHMARKS_CAPTURE_SETUP_H
