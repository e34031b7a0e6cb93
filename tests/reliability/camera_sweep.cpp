// A whole use of the camera interface, with a look at each result.
#include <linux/videodev2.h>
#include <virtual_camera/virtual_camera.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <utility>

#include "Camera/wqz_camera.h"
#include "reliability/sweep_case.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int32_t Frame_Ms = 500;  // time given to one frame, which takes 2 without a failure
constexpr int64_t Call_Ms = 2000;  // what a call may take beyond the time that it was given, on a busy machine
constexpr uint32_t Width = 320;
constexpr uint32_t Height = 240;

template <typename Record>
Record Sized()
{
    Record record{};
    record.size = sizeof record;
    return record;
}

bool Is_Result_Of_Read(int32_t result)
{
    constexpr int32_t named[] = {0, -ETIMEDOUT, -ECANCELED, -ENODEV, -ENOBUFS, -EIO, -EINVAL};
    return std::find(std::begin(named), std::end(named), result) != std::end(named);
}

class Camera_Use {
public:
    explicit Camera_Use(Report& report_) : report(report_) {}

    void Whole(const char* name);
    void Short();

private:
    // Makes a call whose failures count, and checks its time and its explanation.
    template <typename Body>
    int32_t Call(const char* name, int32_t milliseconds, Body body)
    {
        const auto begin = Clock::now();
        int32_t result = 0;
        {
            const faults::In_Library use;
            result = body();
        }
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
        report.Expect(elapsed < milliseconds + Call_Ms, std::string(name) + " took " + std::to_string(elapsed) + " ms");
        report.Expect(result >= 0 || Explained(), std::string(name) + " failed without an explanation");
        return result;
    }
    bool Explained() const
    {
        return WQZ_Camera_Explain(camera, nullptr, 0) > 0 || WQZ_Camera_Explain(nullptr, nullptr, 0) > 0;
    }

    void List();
    void Watch();
    bool Open(const char* name);
    void Ask();
    int32_t Start(uint32_t fourcc);
    int32_t Read(int32_t milliseconds, uint32_t flags);
    void Check(const WQZ_Camera_Frame& frame);
    void Close();

    Report& report;
    WQZ_Camera* camera = nullptr;
    WQZ_Camera_Mode mode = Sized<WQZ_Camera_Mode>();
};

void Camera_Use::List()
{
    WQZ_Camera_Info cameras[4] = {};
    cameras[0].size = sizeof cameras[0];
    (void)Call("List", 0, [&] { return WQZ_Camera_List(cameras, 4); });
}

void Camera_Use::Watch()
{
    WQZ_Camera_Monitor* monitor = nullptr;
    if (Call("Monitor_Open", 0, [&] { return WQZ_Camera_Monitor_Open(&monitor); }) == 0) {
        report.Expect(monitor != nullptr, "Monitor_Open without a handle");
        auto event = Sized<WQZ_Camera_Event>();
        (void)Call("Monitor_Read", 5, [&] { return WQZ_Camera_Monitor_Read(monitor, &event, 5); });
        (void)Call("Monitor_Close", 0, [&] { return WQZ_Camera_Monitor_Close(monitor); });
    }
}

bool Camera_Use::Open(const char* name)
{
    const int32_t result = Call("Open", 0, [&] { return WQZ_Camera_Open(&camera, name); });
    report.Expect((result == 0) == (camera != nullptr), "Open and its handle disagree");
    return result == 0;
}

// Catalogue and controls.
void Camera_Use::Ask()
{
    WQZ_Camera_Offer offers[8] = {};
    offers[0].size = sizeof offers[0];
    (void)Call("Modes", 0, [&] { return WQZ_Camera_Modes(camera, offers, 8); });
    WQZ_Camera_Control controls[8] = {};
    controls[0].size = sizeof controls[0];
    (void)Call("Controls", 0, [&] { return WQZ_Camera_Controls(camera, controls, 8); });
    (void)Call("Menu", 0, [&] { return WQZ_Camera_Menu(camera, V4L2_CID_POWER_LINE_FREQUENCY, nullptr, 0); });
    auto setting = Sized<WQZ_Camera_Setting>();
    setting.name = "brightness";
    setting.value = 7;
    (void)Call("Set_Controls", 0, [&] { return WQZ_Camera_Set_Controls(camera, &setting, 1); });
    setting.value = 0;
    const int32_t result = Call("Get_Control", 0, [&] { return WQZ_Camera_Get_Control(camera, &setting); });
    report.Expect(result == setting.result, "Get_Control and its setting disagree");
}

int32_t Camera_Use::Start(uint32_t fourcc)
{
    auto request = Sized<WQZ_Camera_Request>();
    request.fourcc = fourcc;
    request.width = Width;
    request.height = Height;
    request.flags = WQZ_CAMERA_START_EXACT;
    const int32_t result = Call("Start", 0, [&] { return WQZ_Camera_Start(camera, &request, &mode); });
    report.Expect(result != 0 || (mode.fourcc == fourcc && mode.width == Width && mode.height == Height),
                  "Start accepted another mode");
    return result;
}

// An unmarked frame holds the bytes that the camera sent, under its own label.
void Camera_Use::Check(const WQZ_Camera_Frame& frame)
{
    report.Expect(frame.fourcc == mode.fourcc && frame.width == Width && frame.height == Height, "a wrong label");
    if ((frame.flags & WQZ_CAMERA_FRAME_DAMAGED) == 0) {
        const std::vector<uint8_t> sent = virtual_camera::Frame_Bytes(Swept_Node, frame.sequence);
        report.Expect(frame.length == sent.size() && std::memcmp(frame.data, sent.data(), sent.size()) == 0,
                      "an unmarked frame with wrong bytes");
    }
}

int32_t Camera_Use::Read(int32_t milliseconds, uint32_t flags)
{
    auto frame = Sized<WQZ_Camera_Frame>();
    const int32_t result =
        Call("Read", milliseconds, [&] { return WQZ_Camera_Read(camera, &frame, milliseconds, flags); });
    report.Expect(Is_Result_Of_Read(result), "Read answered " + std::to_string(result));
    report.Expect((result == 0) == (frame.data != nullptr), "Read and its record disagree");
    if (result == 0) {
        Check(frame);
        std::vector<uint8_t> pixels(Width * Height * 3);
        (void)Call("Convert", 0,
                   [&] { return WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels.data(), pixels.size(), 0); });
        (void)Call("Release", 0, [&] { return WQZ_Camera_Release(&frame); });
        report.Expect(frame.data == nullptr, "a released frame is still there");
    }
    return result;
}

void Camera_Use::Close()
{
    (void)Call("Close", 0, [&] { return WQZ_Camera_Close(std::exchange(camera, nullptr)); });
}

void Camera_Use::Whole(const char* name)
{
    List();
    Watch();
    if (!Open(name)) {
        return;
    }
    Ask();
    for (const uint32_t fourcc : {V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_MJPEG}) {
        (void)Start(fourcc);
        for (int i = 0; i < 3; ++i) {
            (void)Read(Frame_Ms, 0);
        }
        (void)Read(Frame_Ms, WQZ_CAMERA_READ_NEWEST);
        (void)Call("Cancel", 0, [&] { return WQZ_Camera_Cancel(camera); });
        report.Expect(Read(Frame_Ms, 0) == -ECANCELED, "a cancelled Read went on");
        (void)Call("Recover", Frame_Ms, [&] { return WQZ_Camera_Recover(camera, Frame_Ms); });
        (void)Read(Frame_Ms, 0);
        (void)Call("Stop", 0, [&] { return WQZ_Camera_Stop(camera); });
    }
    Close();
}

// What must work when the failures are over.
void Camera_Use::Short()
{
    const std::string words = "afterwards: ";
    if (!Open(Swept_Node)) {
        report.Expect(false, words + "no open");
        return;
    }
    report.Expect(Start(V4L2_PIX_FMT_YUYV) == 0, words + "no start");
    for (int i = 0; i < 2; ++i) {
        report.Expect(Read(Frame_Ms + static_cast<int32_t>(Call_Ms), 0) == 0, words + "no frame");
    }
    Close();
}

}  // namespace

void Sweep_Camera(Report& report, const std::vector<faults::Fault>& /*failures*/)
{
    const std::string before = Held_Resources();
    Camera_Use(report).Whole("");
    faults::End();
    const std::string after = Held_Resources();
    report.Expect(after == before, "before: " + before + "; after: " + after);
    Camera_Use(report).Short();
}
