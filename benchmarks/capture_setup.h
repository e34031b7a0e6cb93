// The virtual cameras and the running session that the capture benchmarks share.
#ifndef WQZ_BENCHMARKS_CAPTURE_SETUP_H
#define WQZ_BENCHMARKS_CAPTURE_SETUP_H

#include <linux/videodev2.h>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "loop_meter.h"

/// A virtual camera with one mode. It delivers frames as fast as the program takes them.
struct Bench_Camera {
    int number;  ///< N of /dev/videoN
    uint32_t fourcc;
    uint32_t width;
    uint32_t height;
    std::string Node() const { return "/dev/video" + std::to_string(number); }
    std::string Mode_Name() const;
    uint32_t Frame_Bytes() const;  ///< the size of frame number 1000
};

/// The cameras that all measurements share, one each for YUYV and MJPEG at 640x480 and 1920x1080. They are made on
/// first use and kept, so that they draw the still parts of their frames only once.
const std::vector<Bench_Camera>& Mode_Cameras();

constexpr int Growth_Cameras = 16;

/// @return Growth_Cameras cameras of one kind, at 640x480
std::vector<Bench_Camera> Cameras_Alike(uint32_t fourcc);

constexpr int Warm_Up_Frames = 100;  // meanwhile the cameras draw their first frames and the pools fill
constexpr int Measured_Frames = 300;

/// A running session of the library with its capture loop on a thread of its own.
class Running_Session {
public:
    /// @param meter  measures the capture loop; may be null
    explicit Running_Session(const Bench_Camera& camera, Loop_Meter* meter = nullptr);
    ~Running_Session();
    Running_Session(const Running_Session&) = delete;
    Running_Session& operator=(const Running_Session&) = delete;

    /// Waits for a frame and gives it back.
    void Take_Frame();

private:
    void* handle;
    std::thread capture;
};

#endif  // WQZ_BENCHMARKS_CAPTURE_SETUP_H
