// The camera interface on the kernel's own drivers: finding cameras, sharing them with other processes, and frames
// that outlive their capture.

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "camera_support.h"
#include "test_picture.h"

namespace {

constexpr char Usb[] = "1209:0001";
constexpr unsigned Nobody = 65534;

class Camera_Sharing : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        Plug_In_Usb_Camera();
        Make_Vivid_Repeatable();
    }
    const std::string Usb_Node = Discovered_Camera("uvcvideo").Node(), Vivid = Discovered_Camera("vivid").Node();
};

std::vector<WQZ_Camera_Info> List()
{
    std::vector<WQZ_Camera_Info> cameras(8);
    cameras[0].size = sizeof cameras[0];
    const int32_t count = WQZ_Camera_List(cameras.data(), static_cast<uint32_t>(cameras.size()));
    EXPECT_EQ(count, WQZ_Camera_List(nullptr, 0));
    cameras.resize(static_cast<size_t>(std::clamp<int32_t>(count, 0, 8)));
    return cameras;
}

TEST_F(Camera_Sharing, ListsEachCameraOnceAndOpensItByEachOfItsNames)
{
    const auto cameras = List();
    ASSERT_EQ(cameras.size(), 2U) << "a metadata node is no camera";
    const bool usb_first = cameras[0].node == Usb_Node;
    const WQZ_Camera_Info& usb = cameras[usb_first ? 0 : 1];
    const WQZ_Camera_Info& vivid = cameras[usb_first ? 1 : 0];
    EXPECT_EQ(vivid.node, Vivid);
    EXPECT_STREQ(vivid.driver, "vivid");
    EXPECT_STREQ(vivid.location, "platform:vivid-000");
    EXPECT_EQ(vivid.vendor | vivid.product, 0);
    EXPECT_STREQ(usb.driver, "uvcvideo");
    EXPECT_EQ(usb.vendor, Test_Picture::Vendor);
    EXPECT_EQ(usb.product, Test_Picture::Product);
    EXPECT_EQ(usb.release, Test_Picture::Release);
    EXPECT_STREQ(usb.manufacturer, Test_Picture::Texts[0]);
    EXPECT_STREQ(usb.product_name, Test_Picture::Texts[1]);
    EXPECT_STREQ(usb.serial, Test_Picture::Texts[2]);
    EXPECT_STREQ(usb.identity, "1209:0001:KT-0001");

    ASSERT_EQ(symlink(Usb_Node.c_str(), "/tmp/by-id"), 0);
    for (const std::string& name : {std::string(Usb), Usb_Node, std::string("/tmp/by-id"), std::string("KT-0001"),
                                    std::string(usb.identity), std::to_string(usb.index)}) {
        EXPECT_EQ(Camera(name).Node(), Usb_Node) << name;
    }
    (void)unlink("/tmp/by-id");
    EXPECT_EQ(Camera(vivid.identity).Node(), Vivid);

    WQZ_Camera* camera = nullptr;
    EXPECT_EQ(WQZ_Camera_Open(&camera, nullptr), -ENOTUNIQ);
    const std::string said = Explanation();
    EXPECT_NE(said.find(usb.identity), std::string::npos) << said;
    EXPECT_NE(said.find(Vivid), std::string::npos) << said;
    EXPECT_EQ(WQZ_Camera_Open(&camera, "1209:0002"), -ENOENT);
    EXPECT_EQ(WQZ_Camera_Open(&camera, "/dev/video99"), -ENOENT);
    EXPECT_LT(WQZ_Camera_Open(&camera, "/dev/null"), 0);
    EXPECT_EQ(camera, nullptr);
}

// Exit codes of a process that may not open the cameras; 0 when all is as it should be.
int Look_As_Nobody(const std::string& node)
{
    if (setgid(Nobody) != 0 || setuid(Nobody) != 0) {
        return 1;
    }
    const auto cameras = List();
    const auto found =
        std::find_if(cameras.begin(), cameras.end(), [&](const auto& camera) { return node == camera.node; });
    if (found == cameras.end() || found->error != -EACCES) {
        return 2;
    }
    WQZ_Camera* camera = nullptr;
    const bool by_node = WQZ_Camera_Open(&camera, node.c_str()) == -EACCES;
    const std::string said = Explanation();
    puts(said.c_str());
    fflush(stdout);
    if (!by_node || said.find(node) == std::string::npos || said.find("video") == std::string::npos) {
        return 3;
    }
    return WQZ_Camera_Open(&camera, found->identity) == -EACCES ? 0 : 4;
}

TEST_F(Camera_Sharing, ListsCamerasThatTheUserMayNotOpenAndSaysSo)
{
    for (const std::string& node : {Usb_Node, Vivid}) {
        ASSERT_EQ(chmod(node.c_str(), 0600), 0);
        EXPECT_EQ(In_Another_Process(Look_As_Nobody, node), 0) << node;
    }
}

/// A mode of either camera and another one of it.
struct Modes {
    WQZ_Camera_Request held;
    const char* other_format;
    uint32_t other_width, other_height;
};

Modes Modes_Of(bool usb)
{
    if (usb) {
        return {Exactly(V4L2_PIX_FMT_MJPEG, 160, 120, 30), "YUYV", 320, 240};
    }
    return {Exactly(V4L2_PIX_FMT_YUYV, 320, 180, 25), "GREY", 640, 360};
}

uint32_t Code_Of(const char* format)
{
    return WQZ_CAMERA_FOURCC(format[0], format[1], format[2], format[3]);
}

/// Compares held frames with what they were.
class Memory_Of_Frames {
public:
    explicit Memory_Of_Frames(const Loans& held) : cHeld(held)
    {
        for (const auto& loan : held) {
            cBytes.push_back(loan->Bytes());
        }
    }

    void Expect_Unchanged(const std::string& when) const
    {
        for (size_t i = 0; i < cHeld.size(); ++i) {
            EXPECT_FALSE(cBytes[i].empty()) << when;
            EXPECT_TRUE(cHeld[i]->Bytes() == cBytes[i]) << "frame " << i << " changed " << when;
        }
    }

private:
    const Loans& cHeld;
    std::vector<std::vector<uint8_t>> cBytes;
};

TEST_F(Camera_Sharing, HeldFramesNeitherChangeNorKeepTheCameraAfterAStop)
{
    for (const bool usb : {true, false}) {
        const Modes modes = Modes_Of(usb);
        const std::string node = usb ? Usb_Node : Vivid;
        Camera camera(node);
        ASSERT_EQ(camera.Start(modes.held), 0) << Explanation(camera.Handle());
        Loans held = camera.Hold(3);
        ASSERT_EQ(held.size(), 3U);
        const Memory_Of_Frames memory(held);

        EXPECT_EQ(WQZ_Camera_Stop(camera.Handle()), 0) << Explanation(camera.Handle());
        memory.Expect_Unchanged("by the stop");
        Expect_Free_For_Others(node, modes.other_format, modes.other_width, modes.other_height);
        memory.Expect_Unchanged("while another process captured");
        // Another descriptor in this process.
        {
            Camera second(node);
            ASSERT_EQ(second.Start(modes.held), 0) << Explanation(second.Handle());
            EXPECT_EQ(second.Take(3).size(), 3U);
        }
        memory.Expect_Unchanged("while another camera of this process captured");
        ASSERT_EQ(camera.Start(Exactly(Code_Of(modes.other_format), modes.other_width, modes.other_height, 0)), 0)
            << Explanation(camera.Handle());
        const auto taken = camera.Take(5);
        ASSERT_EQ(taken.size(), 5U);
        if (usb) {
            EXPECT_TRUE(taken[4].bytes == Test_Picture::Yuyv_Frame(320, 240, taken[4].sequence));
        }
        memory.Expect_Unchanged("by the next capture");
        for (const auto& loan : held) {
            EXPECT_EQ(loan->Release(), 0) << Explanation();
        }
        EXPECT_EQ(camera.Take(5).size(), 5U);
    }
}

TEST_F(Camera_Sharing, HeldFramesNeitherChangeNorKeepTheCameraAfterAClose)
{
    for (const bool usb : {true, false}) {
        const Modes modes = Modes_Of(usb);
        const std::string node = usb ? Usb_Node : Vivid;
        auto camera = std::make_unique<Camera>(node);
        ASSERT_EQ(camera->Start(modes.held), 0) << Explanation(camera->Handle());
        Loans held = camera->Hold(2);
        ASSERT_EQ(held.size(), 2U);
        const Memory_Of_Frames memory(held);
        EXPECT_EQ(camera->Close(), 0) << Explanation();
        memory.Expect_Unchanged("by the close");
        Expect_Free_For_Others(node, modes.other_format, modes.other_width, modes.other_height);
        memory.Expect_Unchanged("while another process captured");

        std::vector<uint8_t> bgr(size_t{held[0]->frame.width} * held[0]->frame.height * 3);
        const int converted = WQZ_Camera_Convert(&held[0]->frame, WQZ_CAMERA_PIXELS_BGR, bgr.data(), bgr.size(), 0);
        EXPECT_TRUE(converted == 0 || (usb && converted == -ENOTSUP)) << Explanation();
        EXPECT_NE(std::count(bgr.begin(), bgr.end(), 0), static_cast<std::ptrdiff_t>(bgr.size()));
        Loan copy;
        copy.frame = held[0]->frame;
        EXPECT_EQ(held[0]->Release(), 0) << Explanation();
        copy.frame.data = nullptr;  // released with the other
        EXPECT_EQ(held[1]->Release(), 0) << Explanation();
    }
}

// 0 when the camera is reported as busy, with a sentence that names the process that has it.
int Start_While_Busy(const std::string& node)
{
    Camera camera(node);
    const int result = camera.Start(Modes_Of(camera.Node() != Discovered_Camera("vivid").Node()).held);
    const std::string said = Explanation(camera.Handle());
    puts(said.c_str());
    fflush(stdout);
    return result != -EBUSY ? 1 : said.find(std::to_string(getppid())) == std::string::npos ? 2 : 0;
}

int Capture_Some(const std::string& node)
{
    Camera camera(node);
    const int result = camera.Start(Modes_Of(camera.Node() != Discovered_Camera("vivid").Node()).held);
    return result == 0 && camera.Take(5).size() == 5 && camera.Close() == 0 ? 0 : 1;
}

TEST_F(Camera_Sharing, ProcessesTakeACameraInTurnAndAreToldWhoHasIt)
{
    for (const bool usb : {true, false}) {
        const Modes modes = Modes_Of(usb);
        const std::string node = usb ? Usb_Node : Vivid;
        Camera camera(node);
        ASSERT_EQ(camera.Start(modes.held), 0) << Explanation(camera.Handle());
        ASSERT_EQ(camera.Take(2).size(), 2U);
        EXPECT_EQ(In_Another_Process(Start_While_Busy, node), 0) << node;
        EXPECT_EQ(camera.Take(2).size(), 2U) << "the other process disturbed the capture";
        EXPECT_EQ(WQZ_Camera_Stop(camera.Handle()), 0);
        // Open, but not capturing: free for others.
        EXPECT_EQ(In_Another_Process(Capture_Some, node), 0) << node;
        {
            Other_Capture other(node);
            EXPECT_EQ(camera.Start(modes.held), -EBUSY);
            const std::string said = Explanation(camera.Handle());
            EXPECT_NE(said.find("v4l2-ctl"), std::string::npos) << said;
            auto frame = Sized<WQZ_Camera_Frame>();
            EXPECT_EQ(camera.Read(frame, 0), -EINVAL);
        }
        EXPECT_EQ(camera.Start(modes.held), 0) << Explanation(camera.Handle());
        EXPECT_EQ(camera.Take(3).size(), 3U);
    }
}

}  // namespace
