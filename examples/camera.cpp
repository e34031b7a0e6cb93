// Saves ten Motion-JPEG pictures of a camera as picture-0.jpg to picture-9.jpg. Usage: camera [CAMERA]
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Camera/wqz_camera.hpp"

using namespace std::chrono_literals;

void Save(const wqz::Frame& frame, const std::string& name)
{
    std::ofstream file(name, std::ios::binary);
    const wqz::Bytes bytes = frame.Bytes();
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!file.flush()) {
        throw std::runtime_error(name + " cannot be written");
    }
}

void Capture(const std::string& name)
{
    wqz::Camera camera(name);
    wqz::Request request = {"MJPG", 640, 480, 30};
    request.exact = true;  // otherwise the driver chooses the nearest mode that it has
    const wqz::Mode mode = camera.Start(request);
    std::printf("%s: %ux%u, %g frames per second\n", camera.Info().node, mode.width, mode.height, mode.Rate());
    for (int saved = 0; saved < 10;) {
        const wqz::Frame frame = camera.Read(5s);
        if (!frame) {
            throw std::runtime_error(camera.Explanation());
        }
        if (!frame.Damaged()) {
            Save(frame, "picture-" + std::to_string(saved++) + ".jpg");
        }
    }
}

int main(int argc, char** argv)
{
    try {
        Capture(argc > 1 ? argv[1] : "");  // without a name it takes the only camera
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
