// Discovery through the real libudev on mocked device trees, with virtual cameras behind the nodes.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <libudev.h>
#include <umockdev.h>
#include <unistd.h>
#include <virtual_camera/virtual_camera.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "USBCam_API/USBCam_API.h"
#include "Video/usb_video_enum.h"

namespace {

using namespace virtual_camera;

std::vector<std::string> released_types;  // the types of the udev devices that were released

class Device_Tree {
public:
    Device_Tree() : bed(umockdev_testbed_new()) {}
    ~Device_Tree() { g_object_unref(bed); }
    Device_Tree(const Device_Tree&) = delete;
    Device_Tree& operator=(const Device_Tree&) = delete;

    void Add(const std::string& text)
    {
        GError* error = nullptr;
        const bool added = umockdev_testbed_add_from_string(bed, text.c_str(), &error) != FALSE;
        EXPECT_TRUE(added) << (error == nullptr ? "" : error->message) << "\n" << text;
        g_clear_error(&error);
    }

private:
    UMockdevTestbed* bed;
};

struct Free_Cameras {
    void operator()(v4l2_dev_sys_data_t* array) const { WQZ_USBCam_DEVICE_FREE(array, count); }
    int32_t count = 0;
};
using Cameras = std::unique_ptr<v4l2_dev_sys_data_t, Free_Cameras>;

class Discovery : public testing::Test {
protected:
    Discovery()
    {
        EXPECT_TRUE(umockdev_in_mock_environment()) << "run with libumockdev-preload.so.0 preloaded";
        Reset();
        Start_Log();
    }
    ~Discovery() override { Reset(); }

    void Plug_In(const std::vector<Camera_Description>& cameras)
    {
        tree.Add(Umockdev_Description(cameras));
        for (const Camera_Description& camera : cameras) {
            Add_Camera(camera);
        }
    }

    static Camera_Description Described(uint32_t port, const std::string& node, const std::string& location)
    {
        Camera_Description camera = Usb_Camera(port);
        camera.capture_node = node;
        camera.has_metadata = false;
        camera.bus_info = location;
        return camera;
    }

    static Camera_Description On_Platform(const std::string& node, const std::string& location)
    {
        Camera_Description camera = Platform_Camera(node);
        camera.bus_info = location;
        return camera;
    }

    static Cameras Find(uint16_t vid = 0xFFFF, uint16_t pid = 0xFFFF)
    {
        v4l2_dev_sys_data_t* array = nullptr;
        const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&array, vid, pid);
        EXPECT_NE(array, nullptr);
        return Cameras(array, Free_Cameras{count});
    }

    static std::string Nodes(const Cameras& cameras)
    {
        std::string nodes;
        for (int32_t i = 0; i < cameras.get_deleter().count; ++i) {
            nodes += std::string(cameras.get()[i].device) + " ";
        }
        return nodes;
    }

    // Frees the strings of a scan whose records went into no array.
    static void Free_Strings(USB_Video_Enum& scan)
    {
        for (v4l2_dev_sys_data_t& record : scan.C_Dev_Mes.V4l2_dev_message) {
            for (char* text : {record.device, record.name, record.driver, record.location}) {
                free(text);
            }
        }
    }

    Device_Tree tree;
};

TEST_F(Discovery, WithoutCamerasTheArrayIsEmpty)
{
    EXPECT_EQ(Nodes(Find()), "");
    const USB_Video_Enum scan;
    EXPECT_EQ(scan.C_Dev_Mes.S_V4L2_Device_List_Index.num_devices, 0U);
    EXPECT_EQ(scan.C_Dev_Mes.S_V4L2_Device_List_Index.udev, nullptr);
}

TEST_F(Discovery, AUsbCameraIsFoundOnceWithEveryFieldFilled)
{
    Camera_Description camera = Usb_Camera();
    camera.card = "Bench Camera";
    camera.bus_info = "usb-0000:00:14.0-7";
    camera.usb->vendor = 0x1b3f;
    camera.usb->product_id = 0xfe01;
    camera.usb->bcd_device = 0x0123;
    camera.usb->bus = 12;
    camera.usb->manufacturer = "Maker";
    camera.usb->product = "Model 7";
    camera.usb->serial = "SN 0042";
    Plug_In({camera});
    const Cameras found = Find();
    ASSERT_EQ(found.get_deleter().count, 1) << "capture and metadata node are one camera";
    const v4l2_dev_sys_data_t& record = *found;
    EXPECT_STREQ(record.device, "/dev/video0");
    EXPECT_STREQ(record.Device_Path, "/dev/video0");
    EXPECT_STREQ(record.name, "Bench Camera");
    EXPECT_STREQ(record.driver, "uvcvideo");
    EXPECT_STREQ(record.location, "usb-0000:00:14.0-7");
    EXPECT_EQ(record.vendor, 0x1b3fU);
    EXPECT_EQ(record.product, 0xfe01U);
    EXPECT_EQ(record.Vid, 0x1b3f);
    EXPECT_EQ(record.Pid, 0xfe01);
    EXPECT_EQ(record.Bcd, 0x0123);
    EXPECT_EQ(record.devnum, 0x0123U);
    EXPECT_EQ(record.busnum, 12U);
    EXPECT_EQ(record.valid, 1);
    EXPECT_EQ(record.current, 0);
    EXPECT_STREQ(record.iManufacturer, "Maker");
    EXPECT_STREQ(record.iProduct, "Model 7");
    EXPECT_STREQ(record.iSerialNumber, "SN 0042");

    USB_Video_Enum scan;
    EXPECT_EQ(scan.C_Dev_Mes.S_V4L2_Device_List_Index.num_devices, 2U);
    EXPECT_STREQ(scan.C_Dev_Mes.V4l2_dev_message.back().device, "/dev/video1");
    Free_Strings(scan);
}

TEST_F(Discovery, IdsFilterExactly)
{
    Camera_Description other = Described(2, "/dev/video4", "usb-2");
    other.usb->vendor = 0xFFFF;
    other.usb->product_id = 0x1234;
    Plug_In({Described(0, "/dev/video0", "usb-0"), Described(1, "/dev/video2", "usb-1"), other});
    const Camera_Description& model = Usb_Camera();
    EXPECT_EQ(Nodes(Find()), "/dev/video0 /dev/video2 /dev/video4 ");
    EXPECT_EQ(Nodes(Find(model.usb->vendor, model.usb->product_id)), "/dev/video0 /dev/video2 ");
    EXPECT_EQ(Nodes(Find(0xFFFF, 0x1234)), "/dev/video4 ") << "a single 0xFFFF is an ordinary id";
    EXPECT_EQ(Nodes(Find(model.usb->vendor, 0xFFFF)), "");
}

TEST_F(Discovery, OnlyNeighboursWithOneLocationMerge)
{
    Plug_In({On_Platform("/dev/video10", ""), On_Platform("/dev/video11", "AAAA"), On_Platform("/dev/video12", "AAAA"),
             On_Platform("/dev/video13", "B"), On_Platform("/dev/video14", "B"), On_Platform("/dev/video15", "AAAA")});
    Alter("/dev/video10", VIDIOC_QUERYCAP,
          [](void* argument) { std::memset(static_cast<v4l2_capability*>(argument)->bus_info, 0, 32); });
    EXPECT_EQ(Nodes(Find()), "/dev/video11 /dev/video13 /dev/video15 ")
        << "an empty location is never taken before another";
}

TEST_F(Discovery, ACameraThatIsNotOnUsbHasNoIdsAndAnEmptyDevicePath)
{
    Plug_In({On_Platform("/dev/video10", "platform:cam-000")});
    const Cameras found = Find();
    ASSERT_EQ(found.get_deleter().count, 1);
    EXPECT_STREQ(found->device, "/dev/video10");
    EXPECT_STREQ(found->location, "platform:cam-000");
    EXPECT_STREQ(found->Device_Path, "");
    EXPECT_STREQ(found->iProduct, "");
    EXPECT_EQ(found->vendor + found->product + found->busnum + found->devnum + found->Bcd, 0U);
    EXPECT_EQ(found->valid, 1);
}

TEST_F(Discovery, MissingAttributesReadAsZeroAndLongOnesAreCutAt255)
{
    const std::string usb = "/devices/pci0/usb9/9-1";
    tree.Add("P: " + usb + "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nA: manufacturer=" + std::string(255, 'm') +
             "\nA: product=" + std::string(256, 'p') + "\nA: serial=" + std::string(4000, 's') + "\n\nP: " + usb +
             "/video4linux/video3\nN: video3\nE: DEVNAME=/dev/video3\nE: SUBSYSTEM=video4linux\n");
    Add_Camera(Described(0, "/dev/video3", "usb-9"));
    Alter("/dev/video3", VIDIOC_QUERYCAP, [](void* argument) {
        auto* capability = static_cast<v4l2_capability*>(argument);
        std::memset(capability->card, 'c', sizeof capability->card);
        std::memset(capability->driver, 'd', sizeof capability->driver);
        std::memset(capability->bus_info, 'b', sizeof capability->bus_info);
    });
    const Cameras found = Find();
    ASSERT_EQ(found.get_deleter().count, 1);
    EXPECT_EQ(found->vendor + found->product + found->busnum + found->devnum, 0U);
    EXPECT_EQ(std::strlen(found->iManufacturer), 255U);
    EXPECT_EQ(std::strlen(found->iProduct), 255U);
    EXPECT_EQ(std::strlen(found->iSerialNumber), 255U);
    EXPECT_STREQ(found->Device_Path, "/dev/video3");
    EXPECT_EQ(found->name, std::string(32, 'c'));
    EXPECT_EQ(found->driver, std::string(16, 'd'));
    EXPECT_EQ(found->location, std::string(32, 'b'));
}

TEST_F(Discovery, NodesThatDoNotAnswerAreSkippedAndEveryDescriptorIsClosed)
{
    Plug_In({Described(0, "/dev/video0", "usb-0"), Described(1, "/dev/video2", "usb-1"),
             Described(2, "/dev/video4", "usb-2")});
    tree.Add("P: /devices/platform/nodeless/video4linux/video9\nE: SUBSYSTEM=video4linux\n");
    Fail("/dev/video0", Call_Open, {EACCES});
    Fail("/dev/video2", VIDIOC_QUERYCAP, {ENOTTY});
    Clear_Log();
    testing::internal::CaptureStderr();
    EXPECT_EQ(Nodes(Find()), "/dev/video4 ");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(Log_Names(), "open open VIDIOC_QUERYCAP close open VIDIOC_QUERYCAP close");
    EXPECT_EQ(Log()[1].value, O_RDWR | O_NONBLOCK);
}

TEST_F(Discovery, ANodeThatIsOpenedAsDescriptor0Answers)
{
    Plug_In({Described(0, "/dev/video0", "usb-0")});
    const int standard_input = dup(STDIN_FILENO);
    close(STDIN_FILENO);
    EXPECT_EQ(Nodes(Find()), "/dev/video0 ");
    EXPECT_EQ(Log()[1].fd, STDIN_FILENO);
    dup2(standard_input, STDIN_FILENO);
    close(standard_input);
}

TEST_F(Discovery, ReleasesTheUsbDeviceOfEachNodeAndNothingElse)
{
    Plug_In({Described(0, "/dev/video0", "usb-0"), On_Platform("/dev/video10", "platform:cam-000"),
             Described(1, "/dev/video2", "usb-1")});
    released_types.clear();
    (void)Find();
    EXPECT_EQ(released_types, (std::vector<std::string>{"usb_device", "usb_device"}));
}

}  // namespace

// The linker presents this to discovery instead of libudev's.
extern "C" udev_device* __real_udev_device_unref(udev_device* device);
extern "C" udev_device* __wrap_udev_device_unref(udev_device* device);
extern "C" udev_device* __wrap_udev_device_unref(udev_device* device)
{
    const char* type = udev_device_get_devtype(device);
    released_types.emplace_back(type == nullptr ? "" : type);
    return __real_udev_device_unref(device);
}

// Leak suppressions match callers inside libudev, which only the slow unwinder finds.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}
