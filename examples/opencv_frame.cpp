// Measures how bright and how sharp a camera's pictures are, with OpenCV on the memory of the driver: no frame is
// copied. Usage: opencv_frame [CAMERA]
#include <chrono>
#include <cstdio>
#include <exception>
#include <opencv2/imgproc.hpp>
#include <stdexcept>

#include "Camera/wqz_camera.hpp"

using namespace std::chrono_literals;

// A view of the frame's bytes: valid as long as the frame is held, and only to be read.
cv::Mat View(const wqz::Frame& frame)
{
    auto* bytes = const_cast<uint8_t*>(frame.Bytes().data());  // a cv::Mat has no constant form
    return cv::Mat(static_cast<int>(frame.Height()), static_cast<int>(frame.Width()), CV_8UC2, bytes,
                   frame.Bytes_Per_Line());
}

bool Is_Whole(const wqz::Frame& frame)
{
    return !frame.Damaged() && frame.Bytes().size() >= std::size_t{frame.Bytes_Per_Line()} * frame.Height();
}

void Measure(const cv::Mat& yuyv)
{
    cv::Mat luma;
    cv::Mat edges;
    cv::extractChannel(yuyv, luma, 0);
    cv::Laplacian(luma, edges, CV_16S);
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(edges, mean, deviation);
    std::printf("brightness %.1f, sharpness %.1f\n", cv::mean(luma)[0], deviation[0]);
}

int main(int argc, char** argv)
{
    try {
        wqz::Camera camera(argc > 1 ? argv[1] : "");
        wqz::Request request = {"YUYV", 640, 480, 30};
        request.exact = true;
        camera.Start(request);
        for (int measured = 0; measured < 10;) {
            const wqz::Frame frame = camera.Read(5s);
            if (!frame) {
                throw std::runtime_error(camera.Explanation());
            }
            if (Is_Whole(frame)) {
                Measure(View(frame));
                ++measured;
            }
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
