// Discovery, catalogue and controls on the kernel's own drivers, compared with what v4l2-ctl reports.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <sstream>

#include "kernel_test_support.h"
#include "test_picture.h"
#include "Video/Video_Device.h"

namespace {

/// @return the FourCC in a v4l2-ctl line such as "[3]: 'Y16 -BE' (...)"
uint32_t Listed_Fourcc(const std::string& line)
{
    const size_t at = line.find('\'') + 1;
    const uint32_t code = v4l2_fourcc(static_cast<uint32_t>(line[at]), static_cast<uint32_t>(line[at + 1]),
                                      static_cast<uint32_t>(line[at + 2]), static_cast<uint32_t>(line[at + 3]));
    return line.compare(at + 4, 3, "-BE") == 0 ? code | 1U << 31 : code;
}

std::string Text_Of(const Pix_Format& entry)
{
    char text[80];
    snprintf(text, sizeof text, "%08x %ux%u %u\n", entry.u_PixFormat, entry.u_Width, entry.u_Height, entry.u_Fps);
    return text;
}

/// The modes that v4l2-ctl lists, one line each, rates truncated.
std::string Modes_By_V4l2_Ctl(const std::string& node)
{
    std::istringstream listing(Run_Command("v4l2-ctl -d " + node + " --list-formats-ext").output);
    std::string modes;
    Pix_Format entry{};
    for (std::string line; std::getline(listing, line);) {
        double seconds = 0, fps = 0;
        const char* const size = strstr(line.c_str(), "Size: Discrete");
        const char* const interval = strstr(line.c_str(), "Interval: Discrete");
        if (line.find("]: '") != std::string::npos) {
            entry.u_PixFormat = Listed_Fourcc(line);
        } else if (size != nullptr) {
            EXPECT_EQ(sscanf(size, "Size: Discrete %ux%u", &entry.u_Width, &entry.u_Height), 2) << line;
        } else if (interval != nullptr) {
            EXPECT_EQ(sscanf(interval, "Interval: Discrete %lfs (%lf", &seconds, &fps), 2) << line;
            entry.u_Fps = static_cast<uint32_t>(fps);
            modes += Text_Of(entry);
        }
    }
    return modes;
}

std::string Modes_By_Library(const Discovered_Camera& camera, int32_t* count)
{
    const Capture_Session session(camera);
    *count = WQZ_USBCam_Get_Format_List_Size(session.Handle());
    std::vector<Pix_Format> entries(static_cast<size_t>(*count));
    EXPECT_EQ(WQZ_USBCam_Get_Format_List(session.Handle(), entries.data()), 0);
    std::string modes;
    for (const Pix_Format& entry : entries) {
        modes += Text_Of(entry);
    }
    return modes;
}

class Devices : public testing::Test {
protected:
    static void SetUpTestSuite() { Plug_In_Usb_Camera(); }
};

TEST_F(Devices, DiscoveryListsEachCameraOnceWithItsIdentity)
{
    v4l2_dev_sys_data_t* records = nullptr;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&records, 0xFFFF, 0xFFFF);
    EXPECT_EQ(count, 2);
    WQZ_USBCam_DEVICE_FREE(records, count);

    const Discovered_Camera vivid("vivid");
    const v4l2_dev_sys_data_t& off_usb = vivid.S_Record;
    EXPECT_STREQ(off_usb.location, "platform:vivid-000");
    EXPECT_STREQ(off_usb.name, "vivid");
    EXPECT_EQ(off_usb.valid, 1);
    EXPECT_EQ(off_usb.vendor | off_usb.product | off_usb.busnum | off_usb.devnum, 0U);
    EXPECT_EQ(off_usb.Vid | off_usb.Pid | off_usb.Bcd, 0);
    EXPECT_STREQ(off_usb.iManufacturer, "");
    EXPECT_STREQ(off_usb.iProduct, "");
    EXPECT_STREQ(off_usb.iSerialNumber, "");

    const int32_t by_id = WQZ_USBCam_DEVICE_FIND_ID(&records, Test_Picture::Vendor, Test_Picture::Product);
    ASSERT_EQ(by_id, 1);
    const v4l2_dev_sys_data_t& usb = records[0];
    EXPECT_STREQ(usb.driver, "uvcvideo");
    EXPECT_STREQ(usb.location, "usb-vhci_hcd.0-1");
    EXPECT_EQ(std::string(usb.name).rfind(Test_Picture::Texts[1], 0), 0U) << usb.name;
    EXPECT_STREQ(usb.Device_Path, usb.device);
    EXPECT_EQ(usb.Vid, Test_Picture::Vendor);
    EXPECT_EQ(usb.Pid, Test_Picture::Product);
    EXPECT_EQ(usb.Bcd, Test_Picture::Release);
    EXPECT_STREQ(usb.iManufacturer, Test_Picture::Texts[0]);
    EXPECT_STREQ(usb.iProduct, Test_Picture::Texts[1]);
    EXPECT_STREQ(usb.iSerialNumber, Test_Picture::Texts[2]);
    const std::string sysfs = Run_Command("cat /sys/bus/usb/devices/1-1/busnum").output;
    EXPECT_EQ(std::to_string(usb.busnum) + "\n", sysfs);
    // The camera's first node is its capture node, the second carries metadata.
    const std::string caps = Run_Command("v4l2-ctl -D -d " + std::string(usb.device)).output;
    EXPECT_NE(caps.find("Device Caps      : 0x04200001"), std::string::npos) << caps;
    WQZ_USBCam_DEVICE_FREE(records, by_id);
}

TEST_F(Devices, TheCatalogueListsWhatV4l2CtlLists)
{
    Make_Vivid_Repeatable();
    for (const char* driver : {"uvcvideo", "vivid"}) {
        const Discovered_Camera camera(driver);
        int32_t count = 0;
        EXPECT_EQ(Modes_By_Library(camera, &count), Modes_By_V4l2_Ctl(camera.Node())) << driver;
        EXPECT_GE(count, 10) << driver;
        printf("%s: %d modes as v4l2-ctl lists them\n", driver, count);
    }
}

TEST_F(Devices, StepwiseSizesReadAsSmallestAndLargestWidth)
{
    const Discovered_Camera vivid("vivid");
    ASSERT_EQ(Run_Command("v4l2-ctl -d " + vivid.Node() + " -i 3").status, 0);
    const std::string listing = Run_Command("v4l2-ctl -d " + vivid.Node() + " --list-formats-ext").output;
    uint32_t smallest = 0, largest = 0;
    const char* const stepwise = strstr(listing.c_str(), "Size: Stepwise");
    ASSERT_NE(stepwise, nullptr) << listing;
    ASSERT_EQ(sscanf(stepwise, "Size: Stepwise %ux%*u - %ux", &smallest, &largest), 2);

    v4l2_dev_sys_data_t record = vivid.S_Record;
    Video_Device device(&record);
    ASSERT_GT(device.Video_Open(), 0);
    const int32_t formats = device.Video_Frame_Format();
    EXPECT_GT(formats, 10);
    uint32_t intervals = 0;
    for (int32_t i = 0; i < formats; ++i) {
        Format_Info_Base_Class* const format = device.Index_At_Format_Info(static_cast<uint32_t>(i));
        ASSERT_EQ(format->Size(), 1U) << i;
        EXPECT_EQ(format->Index_At(0)->Width(), static_cast<int32_t>(smallest));
        EXPECT_EQ(format->Index_At(0)->High(), static_cast<int32_t>(largest));
        // Count the intervals that the driver lists for exactly that width and height.
        v4l2_frmivalenum asked{};
        asked.pixel_format = static_cast<uint32_t>(format->Format());
        asked.width = smallest;
        asked.height = largest;
        while (ioctl(device.Get_Video_Device_FD(), VIDIOC_ENUM_FRAMEINTERVALS, &asked) == 0) {
            ++asked.index;
        }
        EXPECT_EQ(format->Index_At(0)->Size(), asked.index) << i;
        intervals += asked.index;
    }
    device.Video_Close();
    int32_t count = -1;
    (void)Modes_By_Library(vivid, &count);
    EXPECT_EQ(count, static_cast<int32_t>(intervals));
    printf("stepwise: %d formats, each %ux%u, %d modes in the flat list\n", formats, smallest, largest, count);
    EXPECT_EQ(Run_Command("v4l2-ctl -d " + vivid.Node() + " -i 0").status, 0);
}

int32_t Control_By_V4l2_Ctl(const std::string& node, const std::string& name)
{
    const Command_Result result = Run_Command("v4l2-ctl -d " + node + " -C " + name);
    int32_t value = 0;
    EXPECT_EQ(sscanf(result.output.c_str(), (name + ": %d").c_str(), &value), 1) << result.output;
    return value;
}

TEST_F(Devices, LibraryAndV4l2CtlReadEachOthersControlValues)
{
    struct Case {
        const char* driver;
        uint32_t id;
        const char* name;
        int32_t ours, theirs;
    };
    const Case cases[] = {{"uvcvideo", V4L2_CID_BRIGHTNESS, "brightness", 17, -5},
                          {"vivid", V4L2_CID_BRIGHTNESS, "brightness", 100, 90},
                          {"vivid", V4L2_CID_HUE, "hue", -100, 7}};
    for (const Case& c : cases) {
        const Discovered_Camera camera(c.driver);
        const Capture_Session session(camera);
        const auto id = static_cast<int32_t>(c.id);
        EXPECT_EQ(WQZ_USBCam_PU_Set(session.Handle(), id, c.ours), 0);
        EXPECT_EQ(Control_By_V4l2_Ctl(camera.Node(), c.name), c.ours) << c.driver;
        EXPECT_EQ(Run_Command("v4l2-ctl -d " + camera.Node() + " -c " + c.name + "=" + std::to_string(c.theirs)).status,
                  0);
        int32_t value = 0;
        EXPECT_EQ(WQZ_USBCam_PU_Get(session.Handle(), id, &value), 0);
        EXPECT_EQ(value, c.theirs) << c.driver;
    }
}

TEST_F(Devices, RefusedControlsAreReportedWithTheDriversError)
{
    const Discovered_Camera camera("uvcvideo");
    const Capture_Session session(camera);
    ASSERT_EQ(WQZ_USBCam_PU_Set(session.Handle(), V4L2_CID_AUTO_WHITE_BALANCE, 1), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(WQZ_USBCam_PU_Set(session.Handle(), V4L2_CID_WHITE_BALANCE_TEMPERATURE, 3000), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ioctl get control error , errno = 0xd, str = Permission denied\n");
    EXPECT_EQ(WQZ_USBCam_PU_Set(session.Handle(), V4L2_CID_AUTO_WHITE_BALANCE, 0), 0);
    EXPECT_EQ(WQZ_USBCam_PU_Set(session.Handle(), V4L2_CID_WHITE_BALANCE_TEMPERATURE, 3000), 0);
    EXPECT_EQ(Control_By_V4l2_Ctl(camera.Node(), "white_balance_temperature"), 3000);
    EXPECT_EQ(WQZ_USBCam_PU_Set(session.Handle(), V4L2_CID_AUTO_WHITE_BALANCE, 1), 0);

    int32_t value = 5;
    testing::internal::CaptureStderr();
    EXPECT_EQ(WQZ_USBCam_PU_Get(session.Handle(), V4L2_CID_SHARPNESS, &value), 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ioctl get control error , errno = 0x16, str = Invalid argument\n");
    EXPECT_EQ(value, 0);
    EXPECT_EQ(WQZ_USBCam_PU_Set(session.Handle(), V4L2_CID_SHARPNESS, 1), -1);
}

}  // namespace
