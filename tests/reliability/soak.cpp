// Repeats what programs do with cameras for a long time, and checks that nothing grows and that no frame is
// unaccounted.
//
// usage: soak capture SECONDS | cycles COUNT | cameras SECONDS | list COUNT | replug COUNT
//
// The last two need libumockdev-preload.so.0 preloaded. Prints what was done and held, and fails when something grew.
#include <umockdev.h>
#include <virtual_camera/virtual_camera.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Camera/wqz_camera.hpp"
#include "reliability/resources.h"
#include "USBCam_API/USBCam_API.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr uint32_t Width = 640;
constexpr uint32_t Height = 480;
constexpr int32_t Rate = 60;
constexpr int Cameras_At_Once = 16;

[[noreturn]] void Fail(const std::string& what)
{
    throw std::runtime_error(what);
}

void Require(bool holds, const std::string& what)
{
    if (!holds) {
        Fail(what);
    }
}

virtual_camera::Camera_Description Fast_Camera(uint32_t place)
{
    virtual_camera::Camera_Description camera = virtual_camera::Usb_Camera(place);
    const std::vector<v4l2_fract> intervals{{1, Rate}, {1, 30}};
    for (virtual_camera::Pixel_Format& format : camera.formats) {
        format.sizes = {{Width, Height, Width, Height, 0, 0, intervals, false}};
    }
    return camera;
}

std::string Node_At(uint32_t place)
{
    return "/dev/video" + std::to_string(2 * place);
}

const char* Format_Of_Turn(uint64_t turn)
{
    return turn % 2 == 0 ? "MJPG" : "YUYV";
}

/// How a consumer treats its frames, by turns.
std::chrono::milliseconds Pause_Of_Turn(uint64_t turn)
{
    constexpr std::chrono::milliseconds Pauses[] = {0ms, 45ms, 400ms};  // fast, slow, absent
    return Pauses[turn % 3];
}

/// Captures for a while, and checks each frame's number against the one before.
/// @return frames delivered
uint64_t Capture_Turn(wqz::Camera& camera, uint64_t turn, Clock::duration time)
{
    camera.Start({Format_Of_Turn(turn), Width, Height, Rate});
    const auto end = Clock::now() + time;
    uint32_t next = 0;
    uint64_t taken = 0;
    while (Clock::now() < end || taken == 0) {
        const wqz::Frame frame = camera.Read(5s);
        Require(static_cast<bool>(frame), "no frame came within five seconds");
        Require(frame.Sequence() == next + frame.Lost_Before(), "a frame is unaccounted for");
        Require(!frame.Damaged() && !frame.Bytes().empty(), "a frame is damaged");
        next = frame.Sequence() + 1;
        ++taken;
        std::this_thread::sleep_for(Pause_Of_Turn(turn));
    }
    const WQZ_Camera_Counts counts = camera.Counters();
    Require(counts.delivered == taken && counts.delivered + counts.lost == next, "the counters do not add up");
    camera.Stop();
    return taken;
}

v4l2_dev_sys_data_t Session_Record(const std::string& node)
{
    v4l2_dev_sys_data_t record{};
    record.valid = 1;
    node.copy(record.Device_Path, sizeof record.Device_Path - 1);
    return record;
}

/// Consumes a session's frames until the time is over and one has come. Their numbers must ascend.
uint64_t Consume(void* session, uint64_t turn, Clock::time_point end)
{
    uint64_t taken = 0;
    int64_t last = -1;
    while (Clock::now() < end || taken == 0) {
        Frame_Buffer_Data* frame = WQZ_USBCam_GET_FRAME_BUFF(session, false);
        if (frame == nullptr) {
            Require(Clock::now() < end + 5s, "a session's frames stay away");
            std::this_thread::sleep_for(2ms);
            continue;
        }
        Require(frame->index > last, "a session's frames are out of order");
        Require(frame->buffer.bytesused > 0 && (frame->buffer.flags & V4L2_BUF_FLAG_ERROR) == 0,
                "a session's frame is damaged");
        last = frame->index;
        ++taken;
        std::this_thread::sleep_for(Pause_Of_Turn(turn));
        WQZ_USBCam_SAVE_FRAME_RES(session, frame);
    }
    return taken;
}

/// One capture through the session functions, from creating the handle to deleting it.
uint64_t Session_Turn(const std::string& node, uint64_t turn, Clock::duration time)
{
    void* session = WQZ_USBCam_CREATE_DEVICE_POINT(Session_Record(node));
    WQZ_USBCam_Video_DEAL_WITH_INIT(session, 0);
    const Pix_Format mode{static_cast<uint32_t>(turn % 2), Width, Height, Rate};
    std::thread capture([=] { WQZ_USBCam_Video_DEAL_WITH(session, mode); });
    const uint64_t taken = Consume(session, turn, Clock::now() + time);
    WQZ_USBCam_EVENT_LoopMode(session, 0);
    capture.join();
    WQZ_USBCam_Clear_Frame_Buff(session);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(session);
    WQZ_USBCam_DELETE_DEVICE_POINT(session);
    return taken;
}

uint64_t Camera_Turn(const std::string& node, uint64_t turn, Clock::duration time)
{
    wqz::Camera camera(node);
    return Capture_Turn(camera, turn, time);
}

/// Runs one function for each camera on threads of their own, and ends the program when one of them throws.
uint64_t On_All(int cameras, const std::function<uint64_t(int)>& capture)
{
    std::atomic<uint64_t> frames{0};
    std::vector<std::thread> threads;
    for (int place = 0; place < cameras; ++place) {
        threads.emplace_back([&, place] {
            try {
                frames += capture(place);
            } catch (const std::exception& error) {
                std::fprintf(stderr, "FAILED: camera %d: %s\n", place, error.what());
                std::_Exit(1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    return frames;
}

/// Repeats a step and compares what the process holds after the first repetitions with what it holds at the end.
void Repeat(const char* name, uint64_t warm_up, uint64_t count, const std::function<uint64_t(uint64_t)>& step)
{
    uint64_t frames = 0;
    Resources before{};
    for (uint64_t turn = 0; turn < warm_up + count; ++turn) {
        if (turn == warm_up) {
            before = Present_Resources();
            frames = 0;
        }
        frames += step(turn);
    }
    const Resources after = Present_Resources();
    std::printf("%s: %llu times, %llu frames; held %s; at the end %s\n", name, static_cast<unsigned long long>(count),
                static_cast<unsigned long long>(frames), Text(before).c_str(), Text(after).c_str());
    Require(Is_Flat(before, after), std::string(name) + ": the process holds more than before");
}

// Two cameras, one for each interface. Every second turn has the other format, and three paces follow one another.
void Soak_Capture(uint64_t seconds)
{
    constexpr auto Turn = 10s;
    Repeat("turns of 10 s with two cameras", 6, seconds / 10, [=](uint64_t turn) {
        return On_All(2, [=](int place) {
            return place == 0 ? Camera_Turn(Node_At(0), turn, Turn) : Session_Turn(Node_At(1), turn, Turn);
        });
    });
}

void Soak_Cameras(uint64_t seconds)
{
    constexpr auto Turn = 10s;
    Repeat("turns of 10 s with 16 cameras", 2, seconds / 10, [=](uint64_t turn) {
        return On_All(Cameras_At_Once, [=](int place) {
            const std::string node = Node_At(static_cast<uint32_t>(place));
            return place % 2 == 0 ? Camera_Turn(node, turn, Turn) : Session_Turn(node, turn, Turn);
        });
    });
}

// The time is over at once, so that each capture ends after its first frames.
void Soak_Cycles(uint64_t count)
{
    constexpr auto Short = 20ms;
    Repeat("open, capture and close", 100, count, [=](uint64_t turn) {
        const uint64_t fast = turn / 2 % 2;  // the formats by turns, without a pause
        return turn % 2 == 0 ? Camera_Turn(Node_At(0), fast * 3, Short) : Session_Turn(Node_At(1), fast * 3, Short);
    });
}

void Soak_List(uint64_t count)
{
    Repeat("lists of 16 cameras", 100, count, [](uint64_t) {
        Require(wqz::List_Cameras().size() == Cameras_At_Once, "a camera is missing in the list");
        return uint64_t{0};
    });
}

void Soak_Replug(uint64_t count)
{
    const std::string node = Node_At(0);
    wqz::Camera camera(node);
    camera.Start({"MJPG", Width, Height, Rate});
    Repeat("unplugs and replugs", 20, count, [&](uint64_t) {
        Require(static_cast<bool>(camera.Read(5s)), "no frame came within five seconds");
        virtual_camera::Unplug(node);
        try {
            while (camera.Read(5s)) {
            }
            Fail("the unplug was not noticed");
        } catch (const wqz::Camera_Error& error) {
            Require(error.Code() == ENODEV, std::string("instead of the unplug: ") + error.what());
        }
        virtual_camera::Replug(node);
        camera.Recover(10s);
        Require(static_cast<bool>(camera.Read(5s)), "no frame came after the replug");
        return uint64_t{2};
    });
}

struct Part {
    const char* name;
    void (*run)(uint64_t amount);
    bool needs_tree;
};

constexpr Part Parts[] = {{"capture", Soak_Capture, false},
                          {"cycles", Soak_Cycles, false},
                          {"cameras", Soak_Cameras, false},
                          {"list", Soak_List, true},
                          {"replug", Soak_Replug, true}};

void Run(const Part& part, uint64_t amount)
{
    std::vector<virtual_camera::Camera_Description> cameras;
    for (uint32_t place = 0; place < Cameras_At_Once; ++place) {
        cameras.push_back(Fast_Camera(place));
    }
    UMockdevTestbed* tree = part.needs_tree ? umockdev_testbed_new() : nullptr;
    if (tree != nullptr) {
        Require(umockdev_in_mock_environment() != 0, "run with libumockdev-preload.so.0 preloaded");
        GError* error = nullptr;
        const std::string description = virtual_camera::Umockdev_Description(cameras);
        Require(umockdev_testbed_add_from_string(tree, description.c_str(), &error) != 0, "no device tree");
    }
    for (const virtual_camera::Camera_Description& camera : cameras) {
        virtual_camera::Add_Camera(camera);
    }
    part.run(amount);
    virtual_camera::Reset();
    g_clear_object(&tree);
}

}  // namespace

int main(int argc, char** argv)
{
    for (const Part& part : Parts) {
        if (argc == 3 && std::strcmp(argv[1], part.name) == 0) {
            try {
                Run(part, std::strtoull(argv[2], nullptr, 10));
                return 0;
            } catch (const std::exception& error) {
                std::fprintf(stderr, "FAILED: %s\n", error.what());
                return 1;
            }
        }
    }
    std::fprintf(stderr, "usage: soak capture|cameras SECONDS, soak cycles|list|replug COUNT\n");
    return 2;
}
