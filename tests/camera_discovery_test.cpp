// The camera interface: which cameras there are, by which names they open, and how they come and go.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/wait.h>
#include <umockdev.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <set>

#include "Camera/camera_explain.h"
#include "support/open_camera.h"

namespace {

using namespace virtual_camera;

struct Unref {
    void operator()(UMockdevTestbed* bed) const { g_object_unref(bed); }
};

class Cameras : public testing::Test {
protected:
    Cameras() : bed(umockdev_testbed_new())
    {
        EXPECT_TRUE(umockdev_in_mock_environment()) << "run with libumockdev-preload.so.0 preloaded";
        Reset();
    }
    ~Cameras() override { Reset(); }

    void Describe_Tree(const std::string& text)
    {
        GError* error = nullptr;
        EXPECT_TRUE(umockdev_testbed_add_from_string(bed.get(), text.c_str(), &error)) << text;
        g_clear_error(&error);
    }

    void Plug_In(const std::vector<Camera_Description>& cameras)
    {
        Describe_Tree(Umockdev_Description(cameras));
        for (const Camera_Description& camera : cameras) {
            Add_Camera(camera);
        }
    }

    static Camera_Description At(uint32_t place, const std::string& node, const std::string& serial)
    {
        Camera_Description camera = Usb_Camera(place);
        camera.capture_node = node;
        camera.has_metadata = false;
        camera.usb->serial = serial;
        return camera;
    }

    static std::vector<WQZ_Camera_Info> List()
    {
        std::vector<WQZ_Camera_Info> cameras(16, Sized<WQZ_Camera_Info>());
        const int32_t count = WQZ_Camera_List(cameras.data(), static_cast<uint32_t>(cameras.size()));
        EXPECT_EQ(WQZ_Camera_List(nullptr, 0), count);
        cameras.resize(static_cast<size_t>(std::max(count, 0)));
        return cameras;
    }

    // "/dev/video0=identity ..."
    static std::string Identities()
    {
        std::string text;
        for (const WQZ_Camera_Info& info : List()) {
            text += std::string(info.node) + "=" + info.identity + " ";
        }
        return text;
    }

    // The node that a name opens, or the error.
    static std::string Opened(const char* name)
    {
        WQZ_Camera* camera = nullptr;
        const int32_t result = WQZ_Camera_Open(&camera, name);
        EXPECT_EQ(camera == nullptr, result != 0);
        if (result != 0) {
            return std::to_string(result);
        }
        auto info = Sized<WQZ_Camera_Info>();
        EXPECT_EQ(WQZ_Camera_Describe(camera, &info), 0);
        EXPECT_EQ(WQZ_Camera_Close(camera), 0);
        return info.node;
    }

    std::unique_ptr<UMockdevTestbed, Unref> bed;
};

TEST_F(Cameras, ACameraIsDescribedWholeAndItsMetadataNodeIsNoCamera)
{
    Camera_Description camera = Usb_Camera();
    camera.card = "Bench Camera";
    camera.usb->vendor = 0x046d;
    camera.usb->product_id = 0x0825;
    camera.usb->bcd_device = 0x0110;
    camera.usb->bus = 3;
    camera.usb->manufacturer = "Maker";
    camera.usb->product = "Model 7";
    camera.usb->serial = "SN 0042";
    Plug_In({camera});
    const std::vector<WQZ_Camera_Info> cameras = List();
    ASSERT_EQ(cameras.size(), 1U);
    const WQZ_Camera_Info& info = cameras[0];
    EXPECT_EQ(info.error, 0);
    EXPECT_EQ(info.index, 0U);
    EXPECT_EQ(info.vendor, 0x046d);
    EXPECT_EQ(info.product, 0x0825);
    EXPECT_EQ(info.release, 0x0110);
    EXPECT_EQ(info.bus, 3U);
    EXPECT_STREQ(info.node, "/dev/video0");
    EXPECT_STREQ(info.card, "Bench Camera");
    EXPECT_STREQ(info.driver, "uvcvideo");
    EXPECT_STRNE(info.location, "");
    EXPECT_STREQ(info.manufacturer, "Maker");
    EXPECT_STREQ(info.product_name, "Model 7");
    EXPECT_STREQ(info.serial, "SN 0042");
    EXPECT_STREQ(info.identity, "046d:0825:SN 0042");
}

TEST_F(Cameras, IdentitiesAreSerialsOrElsePorts)
{
    Plug_In({At(0, "/dev/video0", "AAA"), At(1, "/dev/video2", "BBB"), At(2, "/dev/video4", "BBB"),
             At(3, "/dev/video6", ""), Platform_Camera("/dev/video10")});
    const std::vector<WQZ_Camera_Info> cameras = List();
    ASSERT_EQ(cameras.size(), 5U);
    EXPECT_STREQ(cameras[0].identity, "1d6b:0102:AAA");
    for (size_t i = 1; i < 4; ++i) {
        EXPECT_EQ(std::string(cameras[i].identity).find("1d6b:0102@"), 0U) << cameras[i].identity;
    }
    EXPECT_NE(std::string(cameras[4].identity).find("platform"), std::string::npos) << cameras[4].identity;
    for (const WQZ_Camera_Info& info : cameras) {
        EXPECT_EQ(Opened(info.identity), info.node) << "each is the name of one camera";
    }
}

TEST_F(Cameras, TwoCaptureNodesOfOneDeviceAreToldApart)
{
    Camera_Description first = At(0, "/dev/video0", "AAA");
    Camera_Description second = first;
    second.capture_node = "/dev/video2";
    Plug_In({first, second});
    EXPECT_EQ(Identities(), "/dev/video0=1d6b:0102:AAA /dev/video2=1d6b:0102:AAA#2 ");
    EXPECT_EQ(Opened("1d6b:0102:AAA"), "/dev/video0");
    EXPECT_EQ(Opened("1d6b:0102:AAA#2"), "/dev/video2");
    EXPECT_EQ(Opened("AAA"), std::to_string(-ENOTUNIQ));
}

TEST_F(Cameras, EveryNameOpensItsCamera)
{
    Camera_Description other = At(1, "/dev/video2", "2024");
    other.usb->vendor = 0xABCD;
    other.usb->product_id = 0x0012;
    Plug_In({At(0, "/dev/video0", "AAA"), other, Platform_Camera("/dev/video10")});
    EXPECT_EQ(Opened("/dev/video2"), "/dev/video2");
    EXPECT_EQ(Opened("abcd:0012"), "/dev/video2");
    EXPECT_EQ(Opened("ABCD:0012"), "/dev/video2");
    EXPECT_EQ(Opened("2024"), "/dev/video2") << "a serial of digits is no place in the list";
    EXPECT_EQ(Opened("AAA"), "/dev/video0");
    EXPECT_EQ(Opened("1d6b:0102:AAA"), "/dev/video0");
    EXPECT_EQ(Opened("2"), "/dev/video10");
    EXPECT_EQ(Opened("3"), std::to_string(-ENOENT));
    EXPECT_EQ(Opened("0000:0000"), std::to_string(-ENOENT)) << "which cameras without USB do not answer to";
    EXPECT_EQ(Opened("AAAA"), std::to_string(-ENOENT));
    EXPECT_NE(Explanation(nullptr).find("AAAA"), std::string::npos);
    EXPECT_EQ(Opened("/dev/video77"), std::to_string(-ENOENT));
    EXPECT_EQ(Opened(nullptr), std::to_string(-ENOTUNIQ));
    for (const char* node : {"/dev/video0", "/dev/video2", "/dev/video10"}) {
        EXPECT_NE(Explanation(nullptr).find(node), std::string::npos) << Explanation(nullptr);
    }
}

TEST_F(Cameras, ALinkOpensTheNodeThatItPointsAt)
{
    const std::string usb = "/devices/pci0/usb9/9-1";
    Describe_Tree("P: " + usb +
                  "\nE: SUBSYSTEM=usb\nE: DEVTYPE=usb_device\nA: idVendor=1d6b\nA: idProduct=0102\n\nP: " + usb +
                  "/video4linux/video3\nN: video3\nS: v4l/by-id/usb-WQZ-video-index0\nE: DEVNAME=/dev/video3\n" +
                  "E: SUBSYSTEM=video4linux\nE: ID_PATH=pci-0-usb-0:1:1.0\n");
    Add_Camera(At(0, "/dev/video3", ""));
    EXPECT_EQ(Identities(), "/dev/video3=1d6b:0102@pci-0-usb-0:1:1.0 ");
    EXPECT_EQ(Opened("/dev/v4l/by-id/usb-WQZ-video-index0"), "/dev/video3");
    EXPECT_EQ(Opened(""), "/dev/video3") << "the only one";
}

TEST_F(Cameras, ANodeThatMayNotBeOpenedIsListedWithTheReason)
{
    Plug_In({At(0, "/dev/video0", "AAA")});
    Describe_Tree(
        "P: /devices/platform/isp/video4linux/video5\nN: video5\nE: DEVNAME=/dev/video5\nE: SUBSYSTEM=video4linux\n"
        "E: ID_V4L_CAPABILITIES=:capture:\nA: name=Sensor\nA: index=1\n\n"
        "P: /devices/platform/isp/video4linux/video6\nN: video6\nE: DEVNAME=/dev/video6\nE: SUBSYSTEM=video4linux\n"
        "E: ID_V4L_CAPABILITIES=:video_output:\nA: name=Output\nA: index=0\n\n");
    for (const char* node : {"/dev/video5", "/dev/video6"}) {
        Add_Camera(Platform_Camera(node));
        Fail(node, Call_Open, {EACCES, -1, Always});
    }
    Fail("/dev/video0", Call_Open, {EACCES, -1, Always});
    const std::vector<WQZ_Camera_Info> cameras = List();
    ASSERT_EQ(cameras.size(), 2U) << Identities();
    EXPECT_STREQ(cameras[0].node, "/dev/video0");
    EXPECT_EQ(cameras[0].error, -EACCES);
    EXPECT_STREQ(cameras[0].identity, "1d6b:0102:AAA");
    EXPECT_STREQ(cameras[1].node, "/dev/video5");
    EXPECT_EQ(cameras[1].error, -EACCES);
    EXPECT_STREQ(cameras[1].card, "Sensor");
    EXPECT_EQ(Opened("AAA"), std::to_string(-EACCES));
    EXPECT_NE(Explanation(nullptr).find("group video"), std::string::npos) << Explanation(nullptr);
}

TEST_F(Cameras, AMetadataNodeAndAMissingNodeAreRefused)
{
    Plug_In({Usb_Camera()});
    EXPECT_EQ(Opened("/dev/video1"), std::to_string(-ENOTSUP));
    EXPECT_NE(Explanation(nullptr).find("no pictures"), std::string::npos);
    Unplug("/dev/video0");
    EXPECT_EQ(Identities(), "");
    EXPECT_EQ(Opened(nullptr), std::to_string(-ENOENT));
}

TEST_F(Cameras, ListingOpensAndClosesEachNodeOnceAndPrintsNothing)
{
    Plug_In({Usb_Camera(0), Usb_Camera(1)});
    Start_Log();
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(WQZ_Camera_List(nullptr, 0), 2);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    const std::string once = "open VIDIOC_QUERYCAP close";
    EXPECT_EQ(Log_Names(), once + " " + once + " " + once + " " + once);
}

TEST_F(Cameras, RecoverFindsTheCameraAtAnotherPortAndNode)
{
    Plug_In({At(0, "/dev/video0", "AAA"), At(1, "/dev/video2", "BBB")});
    WQZ_Camera* camera = nullptr;
    ASSERT_EQ(WQZ_Camera_Open(&camera, "BBB"), 0);
    const auto request = Request_For(V4L2_PIX_FMT_MJPEG, 320, 240);
    ASSERT_EQ(WQZ_Camera_Start(camera, &request, nullptr), 0);
    Unplug("/dev/video2");
    Start_Log();
    EXPECT_EQ(WQZ_Camera_Recover(camera, 100), -ETIMEDOUT) << "the other camera of this model is not taken";
    EXPECT_LT(Log().size(), 40U) << "it looks now and then, not all the time";
    Plug_In({At(5, "/dev/video4", "BBB")});
    ASSERT_EQ(WQZ_Camera_Recover(camera, 2000), 0) << Explanation(camera);
    auto info = Sized<WQZ_Camera_Info>();
    EXPECT_EQ(WQZ_Camera_Describe(camera, &info), 0);
    EXPECT_STREQ(info.node, "/dev/video4");
    auto frame = Sized<WQZ_Camera_Frame>();
    ASSERT_EQ(WQZ_Camera_Read(camera, &frame, 2000, 0), 0);
    EXPECT_EQ(frame.fourcc, V4L2_PIX_FMT_MJPEG);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(WQZ_Camera_Close(camera), 0);
}

TEST_F(Cameras, AMonitorReportsCamerasThatComeAndGo)
{
    Plug_In({At(0, "/dev/video0", "AAA")});
    WQZ_Camera_Monitor* monitor = nullptr;
    ASSERT_EQ(WQZ_Camera_Monitor_Open(&monitor), 0) << Explanation(nullptr);
    auto event = Sized<WQZ_Camera_Event>();
    EXPECT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 50), -ETIMEDOUT) << "present cameras are no news";
    Plug_In({Usb_Camera(1)});
    pollfd polled{WQZ_Camera_Monitor_Descriptor(monitor), POLLIN, 0};
    EXPECT_EQ(poll(&polled, 1, 3000), 1);
    ASSERT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 0), 0);
    EXPECT_EQ(event.kind, static_cast<uint32_t>(WQZ_CAMERA_EVENT_PLUGGED));
    EXPECT_STREQ(event.info.node, "/dev/video2");
    Unplug("/dev/video0");
    ASSERT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 3000), 0);
    EXPECT_EQ(event.kind, static_cast<uint32_t>(WQZ_CAMERA_EVENT_UNPLUGGED));
    EXPECT_STREQ(event.info.identity, "1d6b:0102:AAA");
    EXPECT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 0), -ETIMEDOUT);
    EXPECT_EQ(WQZ_Camera_Monitor_Close(monitor), 0);
}

TEST_F(Cameras, AMonitorReportsAReplugThatFellBetweenTwoLooks)
{
    Camera_Description usb = At(0, "/dev/video0", "AAA");
    Plug_In({usb, Platform_Camera("/dev/video10")});
    WQZ_Camera_Monitor* monitor = nullptr;
    ASSERT_EQ(WQZ_Camera_Monitor_Open(&monitor), 0) << Explanation(nullptr);
    Unplug("/dev/video0");
    usb.usb->device += 1;
    Plug_In({usb});
    Unplug("/dev/video10");
    Plug_In({Platform_Camera("/dev/video10")});
    std::string seen;
    auto event = Sized<WQZ_Camera_Event>();
    while (WQZ_Camera_Monitor_Read(monitor, &event, 1500) == 0) {
        seen += event.kind == WQZ_CAMERA_EVENT_PLUGGED ? "+" : "-";
        seen += std::string(event.info.node) + " ";
    }
    EXPECT_EQ(seen, "-/dev/video0 -/dev/video10 +/dev/video0 +/dev/video10 ");
    EXPECT_EQ(WQZ_Camera_Monitor_Close(monitor), 0);
}

// Containers often have no udev service, whose word on plug events a monitor would wait for.
TEST_F(Cameras, AMonitorComparesByItselfWhereNoUdevServiceRuns)
{
    Plug_In({At(0, "/dev/video0", "AAA")});
    Fail("/dev/video0", Call_Open, {ENOENT});
    WQZ_Camera_Monitor* monitor = nullptr;
    ASSERT_EQ(WQZ_Camera_Monitor_Open(&monitor), 0) << Explanation(nullptr);
    auto event = Sized<WQZ_Camera_Event>();
    const bool service_runs = access("/run/udev/control", F_OK) == 0;
    EXPECT_EQ(WQZ_Camera_Monitor_Read(monitor, &event, 1500), service_runs ? -ETIMEDOUT : 0);
    EXPECT_EQ(WQZ_Camera_Monitor_Close(monitor), 0);
}

// Descriptors that a program started from here would get too.
std::set<int> Inherited_Descriptors()
{
    std::set<int> inherited;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int descriptor = std::stoi(entry.path().filename());
        if (fcntl(descriptor, F_GETFD) == 0) {
            inherited.insert(descriptor);
        }
    }
    return inherited;
}

TEST_F(Cameras, AStartedProgramInheritsNoDescriptor)
{
    Plug_In({At(0, "/dev/video0", "AAA")});
    const std::set<int> before = Inherited_Descriptors();
    WQZ_Camera* camera = nullptr;
    WQZ_Camera_Monitor* monitor = nullptr;
    ASSERT_EQ(WQZ_Camera_Open(&camera, "AAA"), 0) << Explanation(nullptr);
    ASSERT_EQ(WQZ_Camera_Monitor_Open(&monitor), 0) << Explanation(nullptr);
    EXPECT_EQ(Inherited_Descriptors(), before) << "which would keep the camera busy after it is closed here";
    EXPECT_EQ(WQZ_Camera_Monitor_Close(monitor), 0);
    EXPECT_EQ(WQZ_Camera_Close(camera), 0);
}

// Any file that another process has open stands for a busy camera's node.
class Holders : public testing::Test {
protected:
    Holders() : file(mkstemp(path)) { EXPECT_GE(file, 0); }
    ~Holders() override
    {
        for (const pid_t child : children) {
            (void)kill(child, SIGKILL);
            (void)waitpid(child, nullptr, 0);
        }
        (void)close(file);
        (void)unlink(path);
    }

    // A process that has the file open; returns its name in a sentence.
    std::string Fork_Holder()
    {
        const pid_t child = fork();
        if (child == 0) {
            (void)pause();
            _exit(0);
        }
        children.push_back(child);
        return "(process " + std::to_string(child) + ")";
    }

    std::string Sentence() const { return wqz_camera::Open_Failure(path, EBUSY).what(); }

    char path[32] = "/tmp/wqz-holder-XXXXXX";
    int file;
    std::vector<pid_t> children;
};

TEST_F(Holders, AreNamedByTheSentenceForABusyCamera)
{
    EXPECT_TRUE(wqz_camera::Holders_Of(path).empty()) << "the one descriptor that asks does not count";
    EXPECT_NE(Sentence().find("fuser"), std::string::npos) << Sentence();
    const std::string first = Fork_Holder();
    EXPECT_NE(Sentence().find(first + " has it open"), std::string::npos) << Sentence();
    const std::string second = Fork_Holder();
    EXPECT_NE(Sentence().find(first), std::string::npos) << Sentence();
    EXPECT_NE(Sentence().find(second), std::string::npos) << Sentence();
    EXPECT_NE(Sentence().find(" have it open"), std::string::npos) << Sentence();
}

TEST_F(Holders, ThisProcessCountsWhenItHasTheNodeOpenTwice)
{
    const int again = open(path, O_RDONLY | O_CLOEXEC);
    EXPECT_NE(Sentence().find("(process " + std::to_string(getpid()) + ") has it open"), std::string::npos);
    (void)close(again);
}

}  // namespace

// The leak checker finds its way through libudev only by the slow unwinder.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}
