// Plugs virtual cameras in and measures CPU time.
#include "capture_setup.h"

#include <virtual_camera/virtual_camera.h>
#include <ctime>

namespace {

void Plug_In(const Bench_Camera& camera)
{
    virtual_camera::Camera_Description description = virtual_camera::Usb_Camera(static_cast<uint32_t>(camera.number));
    description.has_metadata = false;
    description.metadata_node.clear();
    description.capture_node = camera.Node();
    description.max_rate = camera.fps == 0;
    virtual_camera::Frame_Size size;
    size.width = size.max_width = camera.width;
    size.height = size.max_height = camera.height;
    size.intervals = {{1, camera.fps == 0 ? 30 : camera.fps}};
    description.formats = {{camera.fourcc, {size}}};
    virtual_camera::Add_Camera(description);
}

std::vector<Bench_Camera> Cameras_From(int first, uint32_t fourcc)
{
    std::vector<Bench_Camera> cameras;
    cameras.reserve(Growth_Cameras);
    for (int i = 0; i < Growth_Cameras; ++i) {
        cameras.push_back({first + i, fourcc, 640, 480});
    }
    return Plug_In_All(cameras);
}

}  // namespace

double Process_Cpu()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::vector<Bench_Camera> Plug_In_All(std::vector<Bench_Camera> cameras)
{
    for (const Bench_Camera& camera : cameras) {
        Plug_In(camera);
    }
    return cameras;
}

std::string Bench_Camera::Mode_Name() const
{
    return std::to_string(width) + "x" + std::to_string(height) + (fourcc == V4L2_PIX_FMT_MJPEG ? " MJPEG" : " YUYV");
}

uint32_t Bench_Camera::Frame_Bytes() const
{
    return static_cast<uint32_t>(virtual_camera::Frame_Bytes(Node(), 1000).size());
}

const std::vector<Bench_Camera>& Mode_Cameras()
{
    static const std::vector<Bench_Camera> cameras = Plug_In_All({{0, V4L2_PIX_FMT_YUYV, 640, 480},
                                                                  {1, V4L2_PIX_FMT_YUYV, 1920, 1080},
                                                                  {2, V4L2_PIX_FMT_MJPEG, 640, 480},
                                                                  {3, V4L2_PIX_FMT_MJPEG, 1920, 1080}});
    return cameras;
}

std::vector<Bench_Camera> Cameras_Alike(uint32_t fourcc)
{
    static const std::vector<Bench_Camera> yuyv = Cameras_From(10, V4L2_PIX_FMT_YUYV);
    static const std::vector<Bench_Camera> mjpeg = Cameras_From(10 + Growth_Cameras, V4L2_PIX_FMT_MJPEG);
    return fourcc == V4L2_PIX_FMT_YUYV ? yuyv : mjpeg;
}
