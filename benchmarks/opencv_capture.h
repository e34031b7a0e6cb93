// A capture through OpenCV.
#ifndef WQZ_BENCHMARKS_OPENCV_CAPTURE_H
#define WQZ_BENCHMARKS_OPENCV_CAPTURE_H

#include <opencv2/videoio.hpp>
#include <stdexcept>

#include "capture_setup.h"

/// Captures as OpenCV does by itself, with four buffers. One thread uses the least CPU time.
class Opencv_Capture {
public:
    /// @param to_bgr  convert or decode frames; otherwise OpenCV only copies their bytes
    Opencv_Capture(const Bench_Camera& camera, bool to_bgr) : capture(camera.number, cv::CAP_V4L2)
    {
        cv::setNumThreads(1);
        if (!capture.set(cv::CAP_PROP_FOURCC, camera.fourcc) || !capture.set(cv::CAP_PROP_FRAME_WIDTH, camera.width) ||
            !capture.set(cv::CAP_PROP_FRAME_HEIGHT, camera.height) || !capture.set(cv::CAP_PROP_CONVERT_RGB, to_bgr)) {
            throw std::runtime_error("OpenCV refuses the mode");
        }
        Take_Frame();
        if (to_bgr && (picture.type() != CV_8UC3 || picture.cols != static_cast<int>(camera.width))) {
            throw std::runtime_error("OpenCV gives another picture");
        }
    }

    void Take_Frame()
    {
        if (!capture.read(picture)) {
            throw std::runtime_error("OpenCV captures nothing");
        }
    }

private:
    cv::VideoCapture capture;
    cv::Mat picture;
};

#endif  // WQZ_BENCHMARKS_OPENCV_CAPTURE_H
