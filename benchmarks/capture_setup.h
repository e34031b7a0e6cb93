#ifndef WQZ_BENCHMARKS_CAPTURE_SETUP_H
#define WQZ_BENCHMARKS_CAPTURE_SETUP_H

#include <linux/videodev2.h>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "loop_meter.h"

/// A virtual camera with one mode, which delivers as fast as it is asked.
struct Bench_Camera {
    int number;  ///< N of /dev/videoN
    uint32_t fourcc;
    uint32_t width;
    uint32_t height;
    std::string Node() const { return "/dev/video" + std::to_string(number); }
    std::string Mode_Name() const;
    uint32_t Frame_Bytes() const;  ///< of the frame numbered 1000
};

/// The cameras that all measurements share, made on first use: what they draw once is not drawn again.
/// YUYV and MJPEG at 640x480 and 1920x1080.
const std::vector<Bench_Camera>& Mode_Cameras();

constexpr int Growth_Cameras = 16;

/// Cameras alike, 640x480.
std::vector<Bench_Camera> Cameras_Alike(uint32_t fourcc);

constexpr int Warm_Up_Frames = 100;  // the camera draws its moving parts, the pools fill
constexpr int Measured_Frames = 300;

/// A running session of the library, its capture loop on a thread of its own.
class Running_Session {
public:
    /// @param meter  of the capture loop, or null
    explicit Running_Session(const Bench_Camera& camera, Loop_Meter* meter = nullptr);
    ~Running_Session();
    Running_Session(const Running_Session&) = delete;
    Running_Session& operator=(const Running_Session&) = delete;

    /// Waits for a frame, and gives it back.
    void Take_Frame();

private:
    void* handle_;
    std::thread capture_;
};

#endif  // WQZ_BENCHMARKS_CAPTURE_SETUP_H
