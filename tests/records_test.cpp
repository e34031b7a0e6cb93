// The layouts that callers of the class-level interface rely on, and the trace buffer.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "Stream/video_stream.h"
#include "Stream/YUV/yuv_stream.h"
#include "USBCam/USBCam.h"
#include "Video/usb_video_enum.h"

namespace {

using Layout = std::vector<std::size_t>;

/// Layouts by the width of pointers, and where pointers have 32 bits by the width of times.
Layout Either(const Layout& pointers_64, const Layout& pointers_32, const Layout& pointers_32_times_64)
{
    return sizeof(void*) == 8 ? pointers_64 : sizeof(time_t) == 4 ? pointers_32 : pointers_32_times_64;
}

#if defined(__aarch64__)
constexpr bool Mutex_Of_48_Bytes = true;  // elsewhere, pthread_mutex_t has 40 or 24
#else
constexpr bool Mutex_Of_48_Bytes = false;
#endif

Layout Either(const Layout& pointers_64, const Layout& pointers_32)
{
    return Either(pointers_64, pointers_32, pointers_32);
}

template <typename Object, typename... Member>
Layout Offsets(const Object& object, const Member&... member)
{
    const auto* begin = reinterpret_cast<const volatile char*>(&object);
    return {static_cast<std::size_t>(reinterpret_cast<const volatile char*>(&member) - begin)...};
}

TEST(Records, MembersOfTheFlatRecordsKeepTheirOffsets)
{
    const v4l2_dev_sys_data_t c{};
    EXPECT_EQ(Offsets(c, c.device, c.name, c.driver, c.location, c.vendor, c.product, c.valid, c.current, c.busnum,
                      c.devnum, c.Vid, c.Pid, c.Bcd, c.iManufacturer, c.iProduct, c.iSerialNumber, c.Device_Path),
              Either({0, 8, 16, 24, 32, 36, 40, 44, 48, 56, 64, 66, 68, 70, 326, 582, 838},
                     {0, 4, 8, 12, 16, 20, 24, 28, 32, 40, 48, 50, 52, 54, 310, 566, 822}));
    const Pix_Format mode{};
    EXPECT_EQ(Offsets(mode, mode.u_PixFormat, mode.u_Width, mode.u_Height, mode.u_Fps), (Layout{0, 4, 8, 12}));
    const Frame_Buffer_Data f{};
    EXPECT_EQ(Offsets(f, f.buffer, f.PixFormat, f.Frame_Time, f.fd, f.device_path, f.pMem, f.buff_Length, f.buff_Offset,
                      f.index),
              Either({0, 88, 104, 120, 124, 384, 392, 396, 400}, {0, 68, 84, 92, 96, 352, 356, 360, 364},
                     {0, 80, 96, 112, 116, 372, 376, 380, 384}));
    EXPECT_EQ((Layout{sizeof c, sizeof mode, sizeof f}), Either({1096, 16, 408}, {1080, 16, 368}, {1080, 16, 392}));
}

TEST(Records, SessionAndDeviceMembersKeepTheirOffsets)
{
    v4l2_dev_sys_data_t camera{};
    const USBCam s(&camera);
    EXPECT_EQ(
        Offsets(s, s.S_Dev_Message, s.C_V4L2_VC_Pu, s.LC_Format_List, s.u_VideoStream_Queue_buff, s.LC_Buffer_List,
                s.C_PixFormat, s.Video_Device_FD, s.MJPEG_Task, s.YUV_Task, s.Unusual_Task, s.Yuv_mode_select),
        Either({16, 1112, 1128, 1152, 1160, 1184, 1200, 1208, 1216, 1224, 1232},
               {8, 1088, 1096, 1108, 1112, 1124, 1140, 1144, 1148, 1152, 1156}));
    EXPECT_EQ(Offsets(s, s.C_V4L2_VC_Pu.VC_fd), Either({1120}, {1092}));
    EXPECT_EQ(
        Offsets(s, s.cFrame_Buffer, s.cFrame_RES, s.cMutex.mutex, s.cMutex.cond, s.iFd, s.iLoopMode, s.tv_b, s.fps_i),
        Mutex_Of_48_Bytes
            ? (Layout{1240, 1264, 1288, 1336, 1384, 1388, 1392, 1408})
            : Either({1240, 1264, 1288, 1328, 1376, 1380, 1384, 1400}, {1160, 1172, 1184, 1208, 1256, 1260, 1264, 1272},
                     {1160, 1172, 1184, 1208, 1256, 1260, 1264, 1280}));
    EXPECT_EQ((Layout{sizeof(Video_Device), sizeof(USBCam)}),
              Mutex_Of_48_Bytes ? (Layout{1240, 1416}) : Either({1240, 1408}, {1160, 1280}, {1160, 1288}));
    EXPECT_EQ(sizeof(Video_Stream_EXE_Base_Class::YUV_MODE), 4U);
}

TEST(Records, MembersOfTheOtherClassesKeepTheirOffsets)
{
    const Format_Info format;
    EXPECT_EQ(Offsets(format, format.S_Format, format.LC_Resolution_List), Either({8, 72}, {4, 68}));
    const Resolution_Info size;
    EXPECT_EQ(Offsets(size, size.S_Resolution, size.LS_Frame_Rata), Either({8, 56}, {4, 48}));
    const USBDev_Message scan;
    const v4l2_device_list_t& index = scan.S_V4L2_Device_List_Index;
    EXPECT_EQ(Offsets(scan, index, scan.V4l2_dev_message), Either({8, 48}, {4, 24}));
    EXPECT_EQ(Offsets(index, index.udev, index.udev_mon, index.udev_fd, index.list_devices, index.num_devices),
              Either({0, 8, 16, 24, 32}, {0, 4, 8, 12, 16}));
    Mutex_Class mutex;
    const Mutex_Lock_Class lock(mutex);
    EXPECT_EQ(Offsets(lock, lock.pC_Mutex, lock.Init_Pace, lock.lock_status), Either({8, 16, 48}, {4, 8, 32}));
    const YUV_Decode& tables = YUV_Stream::YUV_Decode_Table;
    EXPECT_EQ(Offsets(tables, tables.R_Matrix, tables.G_UV_Matrix, tables.G_Matrix, tables.B_Matrix),
              (Layout{0, 0x10000, 0x30000, 0x50000}));
    EXPECT_EQ((Layout{sizeof(Format_Info), sizeof(Resolution_Info), sizeof(USB_Video_Enum), sizeof(Mutex_Lock_Class),
                      sizeof(Frame_Buffer), sizeof(YUV_Stream), sizeof(Video_Stream), sizeof(YUV_Decode)}),
              Either({96, 80, 72, 56, sizeof(Frame_Buffer_Data), 8, 8, 0x60000},
                     {80, 60, 36, 36, sizeof(Frame_Buffer_Data), 4, 4, 0x60000}));
}

TEST(Records, ThePictureHeaderLiesAsInTheFile)
{
    using Header = bmp_header_t;
    EXPECT_EQ((Layout{offsetof(Header, file_type), offsetof(Header, file_size), offsetof(Header, reserved1),
                      offsetof(Header, reserved2), offsetof(Header, offset), offsetof(Header, head_size),
                      offsetof(Header, width), offsetof(Header, height), offsetof(Header, bit_planes),
                      offsetof(Header, bits_per_pixel), offsetof(Header, compression), offsetof(Header, image_size),
                      offsetof(Header, h_res), offsetof(Header, v_res), offsetof(Header, color_palette),
                      offsetof(Header, vip_color), offsetof(Header, rgb_data)}),
              (Layout{0, 2, 6, 8, 10, 14, 18, 22, 26, 28, 30, 34, 38, 42, 46, 50, 54}));
    EXPECT_EQ(sizeof(Header), 54U) << "the pixels take no room in the record";
}

// The index of a virtual function in its table: the C++ ABI keeps its offset in the member pointer, plus one on x86.
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
