// Takes 60 frames of a camera, however often it is unplugged meanwhile. When it is back, the capture goes on in the
// same mode and with the same controls. Usage: recovery [CAMERA]
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>

#include "Camera/wqz_camera.hpp"

using namespace std::chrono_literals;

// Waits a minute for a camera that was unplugged.
void Go_On(wqz::Camera& camera)
{
    std::puts("unplugged");
    if (!camera.Recover(60s)) {
        throw std::runtime_error(camera.Explanation());
    }
    std::printf("back at %s\n", camera.Info().node);
}

// Returns the next frame, also when the camera has to come back first.
wqz::Frame Next_Frame(wqz::Camera& camera)
{
    for (;;) {
        try {
            wqz::Frame frame = camera.Read(5s);
            if (!frame) {
                throw std::runtime_error(camera.Explanation());
            }
            return frame;
        } catch (const wqz::Camera_Error& error) {
            if (error.Code() != ENODEV) {
                throw;
            }
            Go_On(camera);
        }
    }
}

int main(int argc, char** argv)
{
    try {
        wqz::Camera camera(argc > 1 ? argv[1] : "");
        camera.Start({"MJPG", 640, 480, 30});
        std::size_t bytes = 0;
        for (int taken = 0; taken < 60; ++taken) {
            bytes += Next_Frame(camera).Bytes().size();
        }
        std::printf("60 frames, %zu bytes\n", bytes);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
