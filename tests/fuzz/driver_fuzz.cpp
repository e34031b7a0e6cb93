// Both interfaces on a driver and a libudev whose answers come from the input.
#include <linux/videodev2.h>
#include <virtual_camera/virtual_camera.h>

#include <algorithm>
#include <cstdio>

#include "Camera/wqz_camera.h"
#include "fuzz/hostile_system.h"
#include "USBCam_API/USBCam_API.h"

namespace {

constexpr uint32_t Most_Records = 50;
constexpr uint32_t Width = 32;  // small frames, because most of the time goes into painting them
constexpr uint32_t Height = 16;

template <typename Record>
std::vector<Record> Records()
{
    std::vector<Record> records(Most_Records);
    records[0].size = sizeof(Record);
    return records;
}

template <size_t N>
void Require_Text(const char (&field)[N])
{
    Require(std::find(field, field + N, '\0') != field + N);
}

void Plug_In_A_Camera()
{
    virtual_camera::Reset();
    virtual_camera::Camera_Description camera = virtual_camera::Usb_Camera();
    camera.capture_node = "/dev/video0";
    camera.max_rate = true;
    virtual_camera::Frame_Size size;
    size.width = size.max_width = Width;
    size.height = size.max_height = Height;
    size.intervals = {{1, 30}};
    camera.formats = {{V4L2_PIX_FMT_MJPEG, {size}}, {V4L2_PIX_FMT_YUYV, {size}}};
    virtual_camera::Add_Camera(camera);
}

void Read_Frames(WQZ_Camera* camera, int count)
{
    for (int i = 0; i < count; ++i) {
        WQZ_Camera_Frame frame{};
        frame.size = sizeof frame;
        if (WQZ_Camera_Read(camera, &frame, 0, i % 3 == 2 ? WQZ_CAMERA_READ_NEWEST : 0) != 0) {
            continue;
        }
        Require(frame.data != nullptr);
        unsigned sum = 0;
        for (uint64_t at = 0; at < frame.length; at += 512) {
            sum += frame.data[at];
        }
        Require(sum <= frame.length * 255U);
        (void)WQZ_Camera_Release(&frame);
    }
}

void Ask(WQZ_Camera* camera)
{
    std::vector<WQZ_Camera_Offer> offers = Records<WQZ_Camera_Offer>();
    (void)WQZ_Camera_Modes(camera, offers.data(), Most_Records);
    std::vector<WQZ_Camera_Control> controls = Records<WQZ_Camera_Control>();
    (void)WQZ_Camera_Controls(camera, controls.data(), Most_Records);
    for (const WQZ_Camera_Control& control : controls) {
        Require_Text(control.name);
        Require_Text(control.key);
    }
    std::vector<WQZ_Camera_Menu_Item> items = Records<WQZ_Camera_Menu_Item>();
    (void)WQZ_Camera_Menu(camera, V4L2_CID_POWER_LINE_FREQUENCY, items.data(), Most_Records);
    char text[16];
    WQZ_Camera_Setting setting{};
    setting.size = sizeof setting;
    setting.name = "power_line_frequency";
    setting.buffer = text;
    setting.buffer_size = sizeof text;
    (void)WQZ_Camera_Get_Control(camera, &setting);
    setting.text = "50 Hz";
    (void)WQZ_Camera_Set_Controls(camera, &setting, 1);
}

void Use_Camera(Fuzz_Input& input)
{
    const Hostile_System system(input);
    std::vector<WQZ_Camera_Info> cameras = Records<WQZ_Camera_Info>();
    (void)WQZ_Camera_List(cameras.data(), Most_Records);
    for (const WQZ_Camera_Info& info : cameras) {
        Require_Text(info.node);
        Require_Text(info.card);
        Require_Text(info.serial);
        Require_Text(info.identity);
    }
    WQZ_Camera* camera = nullptr;
    if (WQZ_Camera_Open(&camera, "/dev/video0") != 0) {
        return;
    }
    Ask(camera);
    WQZ_Camera_Request request{};
    request.size = sizeof request;
    request.fourcc = input.Below(2) == 0 ? V4L2_PIX_FMT_YUYV : V4L2_PIX_FMT_MJPEG;
    request.width = Width;
    request.height = Height;
    request.flags = input.Below(2);
    request.buffers = input.Below(6);
    if (WQZ_Camera_Start(camera, &request, nullptr) == 0) {
        Read_Frames(camera, 8);
        (void)WQZ_Camera_Recover(camera, 0);
        Read_Frames(camera, 2);
    }
    (void)WQZ_Camera_Close(camera);
}

void Capture(void* session, Fuzz_Input& input)
{
    (void)WQZ_USBCam_Video_DEAL_WITH_INIT(session, 0);
    std::vector<Pix_Format> modes(static_cast<size_t>(WQZ_USBCam_Get_Format_List_Size(session)));
    (void)WQZ_USBCam_Get_Format_List(session, modes.data());
    int32_t value = 0;
    (void)WQZ_USBCam_PU_Get(session, V4L2_CID_BRIGHTNESS, &value);
    WQZ_USBCam_EVENT_LoopMode(session, 6);
    (void)WQZ_USBCam_Video_DEAL_WITH(session, Pix_Format{input.Below(2), Width, Height, 30});
}

void Use_Session(Fuzz_Input& input)
{
    v4l2_dev_sys_data_t* cameras = nullptr;
    v4l2_dev_sys_data_t record{};
    {
        const Hostile_System system(input);
        const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF);
        for (int32_t i = 0; i < count; ++i) {
            Require_Text(cameras[i].iProduct);
            Require_Text(cameras[i].Device_Path);
        }
        WQZ_USBCam_DEVICE_FREE(cameras, count);
    }
    (void)std::snprintf(record.Device_Path, sizeof record.Device_Path, "/dev/video0");
    void* session = WQZ_USBCam_CREATE_DEVICE_POINT(record);
    try {
        const Hostile_System system(input);
        Capture(session, input);
    } catch (const Too_Many_Requests&) {  // the session repeats a refused request without end
    }
    (void)WQZ_USBCam_Clear_Frame_Buff(session);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(session);
    WQZ_USBCam_DELETE_DEVICE_POINT(session);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fuzz_Input input(data, size);
    Plug_In_A_Camera();
    if (input.Below(2) == 0) {
        Use_Camera(input);
    } else {
        Use_Session(input);
    }
    return 0;
}
