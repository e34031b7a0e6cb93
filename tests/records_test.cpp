// The layouts that callers of the class-level interface rely on, and the trace buffer.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "Stream/video_stream.h"
#include "Stream/YUV/yuv_stream.h"
#include "USBCam/USBCam.h"
#include "Video/usb_video_enum.h"

namespace {

// Members must lie in ascending order; `address` is that of each member of one object.
template <typename... Member>
void Expect_Ascending(const Member&... member)
{
    const void* addresses[] = {static_cast<const void*>(&member)...};
    for (std::size_t i = 1; i < sizeof...(member); ++i) {
        EXPECT_LT(addresses[i - 1], addresses[i]) << "member " << i;
    }
}

TEST(Records, MembersLieInTheirOrder)
{
    v4l2_dev_sys_data_t camera{};
    USBCam s(&camera);
    Expect_Ascending(s.S_Dev_Message, s.C_V4L2_VC_Pu, s.LC_Format_List, s.u_VideoStream_Queue_buff, s.LC_Buffer_List,
                     s.C_PixFormat, s.Video_Device_FD, s.MJPEG_Task, s.YUV_Task, s.Unusual_Task, s.Yuv_mode_select,
                     s.cFrame_Buffer, s.cFrame_RES, s.cMutex, s.iFd, s.iLoopMode, s.tv_b, s.fps_i);
    const YUV_Decode& tables = YUV_Stream::YUV_Decode_Table;
    Expect_Ascending(tables.R_Matrix, tables.G_UV_Matrix, tables.G_Matrix, tables.B_Matrix);
    EXPECT_EQ(sizeof(YUV_Decode), 384U * 1024U);
    EXPECT_EQ(sizeof(v4l2_device_list_t), 40U);
    EXPECT_EQ(sizeof(Frame_Buffer), sizeof(Frame_Buffer_Data));
    EXPECT_FALSE(std::is_polymorphic_v<Frame_Buffer>);
    EXPECT_EQ(sizeof(Video_Stream_EXE_Base_Class::YUV_MODE), 4U);
}

// The index of a virtual function in its table: the C++ ABI of x86-64 keeps its offset in the member pointer.
template <typename Member>
std::ptrdiff_t Slot(Member member)
{
    std::ptrdiff_t offset = 0;
    std::memcpy(&offset, &member, sizeof offset);
    return offset / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(Records, VirtualOperationsKeepTheirSlots)
{
    using Device = Video_Device_Base_Class;
    const std::ptrdiff_t device[] = {Slot(&Device::Get_Video_Device_FD),
                                     Slot(&Device::Index_At_Format_Info),
                                     Slot(&Device::Video_Open),
                                     Slot(&Device::Video_Close),
                                     Slot(&Device::Video_Frame_Format),
                                     Slot(&Device::Video_Stream_Set_Frame_Buff),
                                     Slot(&Device::Video_Stream_Clear_Frame_Buff),
                                     Slot(&Device::Video_Stream_Set_Format),
                                     Slot(&Device::Video_Stream_Set_Frame_Rate),
                                     Slot(&Device::Video_Stream_Start_Stream),
                                     Slot(&Device::Video_Stream_Stop_Stream),
                                     Slot(&Device::Get_Current_PixFormat)};
    for (std::ptrdiff_t i = 0; i < 12; ++i) {
        EXPECT_EQ(device[i], i + 2) << "the destructor has the first two";
    }
    EXPECT_EQ(Slot(&Video_Device::Video_Exe), 18) << "behind all that is inherited";
    EXPECT_EQ(Slot(&Format_Info_Base_Class::Index_At), 2);
    EXPECT_EQ(Slot(&Format_Info_Base_Class::Size), 4);
    EXPECT_EQ(Slot(&Resolution_Info_Base_Class::Index_At_Numerator), 2);
    EXPECT_EQ(Slot(&Resolution_Info_Base_Class::Size), 6);
    EXPECT_EQ(Slot(&Video_Stream_EXE_Base_Class::Set_Task_MJPEG), 2);
    EXPECT_EQ(Slot(&Video_Stream_EXE_Base_Class::Set_YUV_Mode), 5);
}

// The leak checker reports strings that stay. Freeing the string of the third record would crash.
TEST(Records, DeviceFreeReleasesTheArrayAndTheStringsOfItsCountedRecords)
{
    auto* cameras = new v4l2_dev_sys_data_t[3]();
    for (int i = 0; i < 2; ++i) {
        cameras[i].device = strdup("/dev/video0");
        cameras[i].name = strdup("name");
        cameras[i].driver = strdup("driver");
        cameras[i].location = strdup("location");
    }
    cameras[2].name = reinterpret_cast<char*>(1);
    WQZ_USBCam_DEVICE_FREE(cameras, 2);
    WQZ_USBCam_DEVICE_FREE(nullptr, 2);
}

TEST(Records, ANewSessionIsClosedWithAnEndlessBudget)
{
    v4l2_dev_sys_data_t camera{};
    std::strcpy(camera.Device_Path, "/dev/video7");
    USBCam session(&camera);
    EXPECT_STREQ(session.S_Dev_Message.Device_Path, "/dev/video7");
    EXPECT_EQ(session.Get_Video_Device_FD(), 0);
    EXPECT_EQ(session.iLoopMode, -1);
    EXPECT_EQ(session.fps_i, 0);
    EXPECT_TRUE(session.cFrame_RES.empty() && session.cFrame_Buffer.empty());
    int32_t value = 5;
    EXPECT_EQ(session.C_V4L2_VC_Pu.V4L2_Static_Pu_Get_Control(V4L2_CID_BRIGHTNESS, &value), -1);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(session.Index_At_Format_Info(3), nullptr);
}

TEST(Records, TheFactoryStoresWhatItReturns)
{
    v4l2_dev_sys_data_t camera{};
    PVOID stored = nullptr;
    Video_Device_Base_Class* device = creater_Video_Device_Base_Class(&camera, &stored);
    EXPECT_EQ(stored, static_cast<void*>(device));
    EXPECT_NE(dynamic_cast<Video_Stream_EXE_Base_Class*>(device), nullptr);
    delete_Video_Device_Base_Class(device);
    delete_Video_Device_Base_Class(nullptr);
}

TEST(Trace, SetLogCopiesJustTheGivenBytes)
{
    std::strcpy(WQZ_USBCam_Get_Cache(), "xyz rest");
    WQZ_USBCam_Set_Log("abc", 2);
    EXPECT_STREQ(WQZ_USBCam_Log(), "abz rest");
    WQZ_USBCam_Set_Log(nullptr, 0);
    EXPECT_STREQ(WQZ_USBCam_Log(), "abz rest");
}

}  // namespace
