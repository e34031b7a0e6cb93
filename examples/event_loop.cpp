// Takes 60 frames in a program that also waits for other things: one thread, one poll, no call that blocks. When the
// camera is unplugged, the program goes on with it as soon as it is back. Usage: event_loop [CAMERA]
#include <poll.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include "Camera/wqz_camera.hpp"

using namespace std::chrono_literals;

enum { Frames, Plugging };  // what the program waits for

// Takes a frame if there is one.
int Take_Frame(wqz::Camera& camera, pollfd& frames)
{
    try {
        const wqz::Frame frame = camera.Read(0s);
        return frame ? 1 : 0;
    } catch (const wqz::Camera_Error& error) {
        if (error.Code() != ENODEV) {
            throw;
        }
        std::puts("unplugged");
        frames.fd = -1;  // poll passes over it until the camera is back
        return 0;
    }
}

// Goes on with the camera when it is the one that was plugged in.
void Handle_Plugging(wqz::Monitor& monitor, wqz::Camera& camera, pollfd& frames)
{
    const std::string identity = camera.Info().identity;
    while (const auto event = monitor.Read(0s)) {
        if (event->kind == WQZ_CAMERA_EVENT_PLUGGED && event->info.identity == identity && camera.Recover(0s)) {
            std::puts("back");
            frames.fd = camera.Descriptor();
        }
    }
}

int main(int argc, char** argv)
{
    try {
        wqz::Monitor monitor;
        wqz::Camera camera(argc > 1 ? argv[1] : "");
        camera.Start({"MJPG", 640, 480, 30});
        pollfd sources[] = {{camera.Descriptor(), POLLIN, 0}, {monitor.Descriptor(), POLLIN, 0}};
        for (int taken = 0; taken < 60;) {
            (void)poll(sources, 2, -1);
            if (sources[Frames].revents != 0) {
                taken += Take_Frame(camera, sources[Frames]);
            }
            if (sources[Plugging].revents != 0) {
                Handle_Plugging(monitor, camera, sources[Frames]);
            }
        }
        const WQZ_Camera_Counts counts = camera.Counters();
        std::printf("%d frames, %d lost\n", static_cast<int>(counts.delivered), static_cast<int>(counts.lost));
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
