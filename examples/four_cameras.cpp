// Captures from up to four cameras in one thread, with one poll for all of them: 30 frames of each. A camera that is
// unplugged is left out, and the others go on.
#include <poll.h>
#include <chrono>
#include <cstdio>
#include <exception>
#include <vector>

#include "Camera/wqz_camera.hpp"

using namespace std::chrono_literals;

constexpr int Frames = 30;  // of each camera
constexpr std::size_t Most_Cameras = 4;

std::vector<wqz::Camera> Start_Cameras()
{
    std::vector<wqz::Camera> cameras;
    for (const WQZ_Camera_Info& info : wqz::List_Cameras()) {
        if (info.error == 0 && cameras.size() < Most_Cameras) {
            cameras.emplace_back(info.node);
            // A small mode, because four cameras on one USB bus share its bandwidth.
            cameras.back().Start({"MJPG", 320, 240, 15});
        }
    }
    return cameras;
}

// Takes a frame if there is one. Returns whether the camera goes on.
bool Take_Frame(wqz::Camera& camera, int& taken)
{
    try {
        const wqz::Frame frame = camera.Read(0s);
        taken += frame ? 1 : 0;
        return taken < Frames;
    } catch (const wqz::Camera_Error& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return false;
    }
}

int main()
{
    try {
        std::vector<wqz::Camera> cameras = Start_Cameras();
        std::vector<int> taken(cameras.size());
        std::vector<pollfd> sources;
        sources.reserve(cameras.size());
        for (const wqz::Camera& camera : cameras) {
            sources.push_back({camera.Descriptor(), POLLIN, 0});
        }
        for (std::size_t running = cameras.size(); running > 0;) {
            (void)poll(sources.data(), sources.size(), -1);
            for (std::size_t i = 0; i < cameras.size(); ++i) {
                if (sources[i].revents != 0 && !Take_Frame(cameras[i], taken[i])) {
                    sources[i].fd = -1;  // poll passes over it
                    sources[i].revents = 0;
                    --running;
                }
            }
        }
        for (std::size_t i = 0; i < cameras.size(); ++i) {
            std::printf("%s: %d frames\n", cameras[i].Info().node, taken[i]);
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
