// Whole captures through the flat functions, on virtual cameras.
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "Stream/YUV/yuv_stream.h"
#include "support/camera_fixture.h"
#include "support/record_tally.h"
#include "support/watched_device.h"
#include "USBCam/USBCam.h"
#include "USBCam_API/USBCam_API.h"

namespace {

using namespace virtual_camera;

// Keeps the catalogue's "**%d" lines out of the test's output.
void Open_Quietly(void* handle)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(WQZ_USBCam_Video_DEAL_WITH_INIT(handle, 0), 0);
    fflush(stdout);
    (void)testing::internal::GetCapturedStdout();
}

struct Received {
    uint32_t index;
    uint32_t sequence;
    bool as_sent;
};

bool Is_As_Sent(const Frame_Buffer_Data& frame, const std::string& node)
{
    std::vector<uint8_t> sent = Frame_Bytes(node, frame.buffer.sequence);
    const auto* bytes = static_cast<const uint8_t*>(frame.pMem);
    if (frame.PixFormat.u_PixFormat == 0) {
        return frame.buffer.bytesused == sent.size() && std::equal(sent.begin(), sent.end(), bytes);
    }
    std::vector<uint8_t> bgr(sent.size() / 2 * 3);
    YUV_Stream::YUV_Decode_Table.YUYV_Decode(sent.data(), static_cast<uint32_t>(sent.size()), bgr.data(), 0);
    return frame.buffer.bytesused == bgr.size() + 54 && std::equal(bgr.begin(), bgr.end(), bytes + 54);
}

void* Open(const v4l2_dev_sys_data_t& camera)
{
    void* handle = WQZ_USBCam_CREATE_DEVICE_POINT(camera);
    Open_Quietly(handle);
    return handle;
}

// Takes `count` frames through an open handle, then ends the capture and the handle in the documented order.
// Each frame is due only after the one before was taken, so that a busy machine loses none.
std::vector<Received> Take_Frames(void* handle, const v4l2_dev_sys_data_t& camera, Pix_Format mode, std::size_t count)
{
    Hold_Frames(camera.Device_Path);
    std::thread loop([=] { EXPECT_EQ(WQZ_USBCam_Video_DEAL_WITH(handle, mode), 0); });
    std::vector<Received> frames;
    Record_Tally tally;
    while (frames.size() < count) {
        Deliver_Frames(camera.Device_Path, 1);
        while (WQZ_USBCam_Video_STREAM_STATUS(handle, true) == 0) {
        }
        Frame_Buffer_Data* frame = WQZ_USBCam_GET_FRAME_BUFF(handle, false);
        EXPECT_EQ(frame->PixFormat.u_PixFormat, mode.u_PixFormat == 0 ? 0U : 1U);
        tally.Add(*frame);
        frames.push_back({frame->index, frame->buffer.sequence, Is_As_Sent(*frame, camera.Device_Path)});
        WQZ_USBCam_SAVE_FRAME_RES(handle, frame);
    }
    WQZ_USBCam_EVENT_LoopMode(handle, 0);
    loop.join();
    tally.Expect_Handed_Out(Numbers_Handed_Out(camera.Device_Path));
    tally.Expect_Balance(count);
    EXPECT_EQ(WQZ_USBCam_Clear_Frame_Buff(handle), 0);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(handle);
    WQZ_USBCam_DELETE_DEVICE_POINT(handle);
    return frames;
}

std::vector<Received> Capture(const v4l2_dev_sys_data_t& camera, Pix_Format mode, std::size_t count)
{
    return Take_Frames(Open(camera), camera, mode, count);
}

void Expect_Without_A_Gap(const std::vector<Received>& frames)
{
    for (std::size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i].index, i);
        EXPECT_EQ(frames[i].sequence, frames[0].sequence + i);
        EXPECT_TRUE(frames[i].as_sent) << "frame " << i;
    }
}

class Flat : public Camera_Fixture {
protected:
    Captured_Stderr printed;
};

TEST_F(Flat, CapturesInDifferentModesOneAfterAnother)
{
    const v4l2_dev_sys_data_t camera = Camera_Record();
    Expect_Without_A_Gap(Capture(camera, {0, 640, 480, 30}, 15));
    Expect_Without_A_Gap(Capture(camera, {1, 320, 240, 30}, 15));
    Expect_Without_A_Gap(Capture(camera, {0, 320, 240, 30}, 15));
}

TEST_F(Flat, TheCameraStaysBusyUntilItsBuffersAreCleared)
{
    const v4l2_dev_sys_data_t camera = Camera_Record();
    void* handle = WQZ_USBCam_CREATE_DEVICE_POINT(camera);
    Open_Quietly(handle);
    WQZ_USBCam_EVENT_LoopMode(handle, 0);
    EXPECT_EQ(WQZ_USBCam_Video_DEAL_WITH(handle, {0, 640, 480, 30}), 0);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(handle);

    v4l2_dev_sys_data_t record = camera;
    Video_Device other(&record);
    other.Video_Open();
    EXPECT_EQ(other.Video_Stream_Set_Format(V4L2_PIX_FMT_YUYV, 320, 240), -1) << "mappings are still alive";
    EXPECT_EQ(WQZ_USBCam_Clear_Frame_Buff(handle), 0);
    EXPECT_EQ(other.Video_Stream_Set_Format(V4L2_PIX_FMT_YUYV, 320, 240), 0);
    other.Video_Close();
    WQZ_USBCam_DELETE_DEVICE_POINT(handle);
}

TEST_F(Flat, TwoCamerasCaptureAtOnceWithoutLoss)
{
    Camera_Description second = Usb_Camera(1);
    second.capture_node = "/dev/video8";
    Add_Camera(second);
    const v4l2_dev_sys_data_t cameras[] = {Camera_Record(), Camera_Record("/dev/video8")};
    void* handles[] = {Open(cameras[0]), Open(cameras[1])};
    std::vector<Received> frames[2];
    std::thread other([&] { frames[1] = Take_Frames(handles[1], cameras[1], {1, 320, 240, 30}, 20); });
    frames[0] = Take_Frames(handles[0], cameras[0], {0, 640, 480, 30}, 20);
    other.join();
    Expect_Without_A_Gap(frames[0]);
    Expect_Without_A_Gap(frames[1]);
}

TEST_F(Flat, ListsAnEntryPerIntervalInCatalogueOrder)
{
    Camera_Description description = Usb_Camera(1);
    description.capture_node = "/dev/video8";
    const Frame_Size large = Discrete_Size(1280, 720, {{1, 30}, {2, 59}, {0, 30}});
    const Frame_Size small = Discrete_Size(320, 240, {{1, 60}, {1, 30}, {1001, 30000}});
    description.formats = {{V4L2_PIX_FMT_MJPEG, {large, small}}};
    Add_Camera(description);

    void* handle = WQZ_USBCam_CREATE_DEVICE_POINT(Camera_Record("/dev/video8"));
    Pix_Format untouched{1, 2, 3, 4};
    EXPECT_EQ(WQZ_USBCam_Get_Format_List_Size(handle), 0);
    EXPECT_EQ(WQZ_USBCam_Get_Format_List(handle, &untouched), 0);
    EXPECT_EQ(WQZ_USBCam_Get_Format_List(handle, nullptr), 0);
    EXPECT_EQ(untouched.u_Fps, 4U);

    Open_Quietly(handle);
    ASSERT_EQ(WQZ_USBCam_Get_Format_List_Size(handle), 6);
    std::vector<Pix_Format> modes(6);
    EXPECT_EQ(WQZ_USBCam_Get_Format_List(handle, modes.data()), 0);
    EXPECT_EQ(WQZ_USBCam_Get_Format_List(handle, nullptr), -2);
    const uint32_t rates[] = {30, 29, 0, 60, 30, 29};
    for (std::size_t i = 0; i < modes.size(); ++i) {
        EXPECT_EQ(modes[i].u_PixFormat, V4L2_PIX_FMT_MJPEG);
        EXPECT_EQ(modes[i].u_Width, i < 3 ? 1280U : 320U);
        EXPECT_EQ(modes[i].u_Height, i < 3 ? 720U : 240U);
        EXPECT_EQ(modes[i].u_Fps, rates[i]);
    }
    Format_Info& format = static_cast<USBCam*>(handle)->LC_Format_List.front();
    format.LC_Resolution_List.back().S_Resolution.pixel_format = V4L2_PIX_FMT_JPEG;
    EXPECT_EQ(WQZ_USBCam_Get_Format_List(handle, modes.data()), 0);
    EXPECT_EQ(modes[2].u_PixFormat, V4L2_PIX_FMT_MJPEG);
    EXPECT_EQ(modes[3].u_PixFormat, V4L2_PIX_FMT_JPEG) << "the size's own pixel format counts";
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(handle);
    WQZ_USBCam_DELETE_DEVICE_POINT(handle);
}

TEST_F(Flat, ControlsNeedAnOpenCamera)
{
    void* handle = WQZ_USBCam_CREATE_DEVICE_POINT(Camera_Record());
    int32_t value = 5;
    EXPECT_EQ(WQZ_USBCam_PU_Get(handle, V4L2_CID_CONTRAST, &value), 0);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(WQZ_USBCam_PU_Set(handle, V4L2_CID_CONTRAST, 1), -1);
    Open_Quietly(handle);
    EXPECT_EQ(WQZ_USBCam_PU_Set(handle, V4L2_CID_CONTRAST, 21), 0);
    EXPECT_EQ(WQZ_USBCam_PU_Get(handle, V4L2_CID_CONTRAST, &value), 0);
    EXPECT_EQ(value, 21);
    EXPECT_EQ(WQZ_USBCam_PU_Get(handle, V4L2_CID_PAN_SPEED, &value), 0) << "a failed read is not reported";
    EXPECT_EQ(value, 0);
    EXPECT_EQ(WQZ_USBCam_PU_Get(handle, V4L2_CID_CONTRAST, nullptr), -2);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(handle);
    WQZ_USBCam_DELETE_DEVICE_POINT(handle);
}

TEST_F(Flat, OpeningClearingClosingAndDeletingCallTheDerivedClass)
{
    v4l2_dev_sys_data_t camera = Camera_Record();
    bool destroyed = false;
    auto* watched = new Watched<USBCam>(&camera);
    watched->destroyed = &destroyed;
    void* handle = static_cast<USBCam*>(watched);
    Open_Quietly(handle);
    EXPECT_EQ(WQZ_USBCam_Clear_Frame_Buff(handle), 0);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(handle);
    EXPECT_EQ(watched->calls,
              "Video_Open Get_Video_Device_FD Video_Frame_Format Video_Stream_Clear_Frame_Buff Video_Close ");
    WQZ_USBCam_DELETE_DEVICE_POINT(handle);
    EXPECT_TRUE(destroyed);
}

TEST_F(Flat, ACameraThatDoesNotOpenHasAnEmptyFormatList)
{
    void* handle = WQZ_USBCam_CREATE_DEVICE_POINT(Camera_Record("/dev/no-such-node"));
    EXPECT_EQ(WQZ_USBCam_Video_DEAL_WITH_INIT(handle, 0), 0);
    EXPECT_EQ(WQZ_USBCam_Get_Format_List_Size(handle), 0);
    EXPECT_EQ(WQZ_USBCam_Video_DEAL_WITH(handle, {0, 640, 480, 30}), -1);
    static_cast<USBCam*>(handle)->CLEAR_FRAME_BUFF();
    WQZ_USBCam_DELETE_DEVICE_POINT(handle);
}

TEST(Flat_Discovery, FreesTheTextsOfAllRecords)
{
    constexpr int32_t Count = 2;
    const std::string text(5000, 'x');  // more than the allocator would keep aside
    auto* cameras = new v4l2_dev_sys_data_t[Count]{};
    const size_t before = mallinfo2().uordblks;
    for (int32_t i = 0; i < Count; ++i) {
        for (char** field : {&cameras[i].device, &cameras[i].name, &cameras[i].driver, &cameras[i].location}) {
            *field = strdup(text.c_str());
        }
    }
    WQZ_USBCam_DEVICE_FREE(cameras, Count);
    EXPECT_LE(mallinfo2().uordblks, before);
}

}  // namespace
