// The command-line tool on the kernel's own drivers.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "kernel_test_support.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr char Usb_Camera_Id[] = "1209:0001";

class Tool : public testing::Test {
protected:
    static void SetUpTestSuite() { Plug_In_Usb_Camera(); }
};

std::vector<uint8_t> Bytes_Of(const fs::path& file)
{
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Checks that every file in a directory is a whole frame of the USB camera or a whole bitmap, in order of the names.
/// @return their number
size_t Whole_Pictures(const fs::path& directory)
{
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(directory)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    int64_t counter = -1;
    for (const fs::path& file : files) {
        const std::vector<uint8_t> bytes = Bytes_Of(file);
        if (file.extension() == ".bmp") {
            EXPECT_GT(bytes.size(), 54U) << file;
            const size_t said =
                bytes.size() < 6 ? 0 : size_t{bytes[2]} | size_t{bytes[3]} << 8 | size_t{bytes[4]} << 16;
            EXPECT_EQ(said, bytes.size()) << file;
        } else {
            const int64_t next = Motion_Jpeg_Counter(bytes);
            EXPECT_GT(next, counter) << file;
            counter = next;
        }
    }
    return files.size();
}

TEST_F(Tool, ListsCamerasModesAndControls)
{
    const Command_Result list = Run_Command("wqz-usbcam list");
    EXPECT_EQ(list.status, 0);
    for (const char* text : {"uvcvideo", "vivid", "Frame Counter Camera", "platform:vivid-000", "KT-0001"}) {
        EXPECT_NE(list.output.find(text), std::string::npos) << text << " is missing in\n" << list.output;
    }
    const Command_Result modes = Run_Command(std::string("wqz-usbcam modes ") + Usb_Camera_Id);
    EXPECT_EQ(modes.status, 0);
    EXPECT_NE(modes.output.find("320x240"), std::string::npos) << modes.output;
    EXPECT_EQ(modes.output.find("**"), std::string::npos) << modes.output;
    EXPECT_EQ(Run_Command(std::string("wqz-usbcam controls ") + Usb_Camera_Id + " brightness=33").status, 0);
    const std::string node = Discovered_Camera("uvcvideo").Node();
    EXPECT_EQ(Run_Command("v4l2-ctl -d " + node + " -C brightness").output, "brightness: 33\n");
    const std::string strings =
        "wqz-usbcam controls " + Discovered_Camera("vivid").Node() + " string=abc string=default";
    EXPECT_EQ(Run_Command(strings).output, "string: \"abc\"\nstring: \"  \"\n");
    const Command_Result reset = Run_Command(std::string("wqz-usbcam controls ") + Usb_Camera_Id + " reset brightness");
    EXPECT_EQ(reset.status, 0) << reset.output;
    EXPECT_EQ(Run_Command("v4l2-ctl -d " + node + " -C brightness").output.find("brightness: 33"), std::string::npos);
}

TEST_F(Tool, CapturesPicturesFromBothCameras)
{
    const struct {
        std::string camera, mode;
    } cases[] = {{Usb_Camera_Id, "--format mjpeg --size 320x240 --fps 15"},
                 {Usb_Camera_Id, "--format yuyv --size 160x120 --fps 30"},
                 {Discovered_Camera("vivid").Node(), "--format yuyv --size 320x180 --fps 25"}};
    int number = 0;
    for (const auto& c : cases) {
        const fs::path directory = fs::path(Results_Directory) / ("tool-capture-" + std::to_string(++number));
        const Command_Result result =
            Run_Command("wqz-usbcam capture " + c.camera + " " + c.mode + " --frames 20 -o " + directory.string());
        EXPECT_EQ(result.status, 0) << result.output;
        ASSERT_TRUE(fs::exists(directory)) << result.output;
        EXPECT_EQ(Whole_Pictures(directory), 20U) << result.output;
    }
}

/// Runs a command while v4l2-ctl captures.
Command_Result Run_Beside_A_Capture(const std::string& node, const std::string& command)
{
    return Run_Command("v4l2-ctl -d " + node +
                       " --stream-mmap --stream-count=1000 >/dev/null 2>&1 & user=$!; sleep 1; " + command +
                       "; status=$?; kill $user; exit $status");
}

Command_Result Capture_Beside_Another(const std::string& node, const std::string& size_and_rate)
{
    return Run_Beside_A_Capture(node, "timeout 30 wqz-usbcam capture " + node +
                                          " --format yuyv --frames 5 -o /tmp/busy --size " + size_and_rate);
}

TEST_F(Tool, ReportsACameraInUse)
{
    for (const auto& result : {Capture_Beside_Another(Discovered_Camera("uvcvideo").Node(), "160x120 --fps 30"),
                               Capture_Beside_Another(Discovered_Camera("vivid").Node(), "320x180 --fps 25")}) {
        EXPECT_EQ(result.status, 1) << result.output;
        EXPECT_NE(result.output.find("is busy: v4l2-ctl"), std::string::npos) << result.output;
    }
}

TEST_F(Tool, ExaminesTheCameraAndWhatKeepsOthersFromIt)
{
    const std::string node = Discovered_Camera("uvcvideo").Node();
    const std::string doctor = "wqz-usbcam doctor --json " + node;
    const std::string as_nobody = "su -s /bin/sh nobody -c '/bin/" + doctor + "'";
    const std::string in_use = doctor + "; chmod 666 " + node + "; " + as_nobody;
    const struct {
        Command_Result result;
        int status;
        std::vector<const char*> texts;
    } cases[] = {
        {Run_Command(doctor), 0, {"uvcvideo is loaded", "\"findings\": []", "It starts, in MJPG"}},
        {Run_Command(doctor + " --capture; true"), 0, {"\"format\": \"MJPG\"", "\"damaged\": 0"}},
        {Run_Command("chmod 600 " + node + "; " + as_nobody), 1, {"no-permission", "belongs to root", "mode is 0600"}},
        {Run_Beside_A_Capture(node, in_use), 1, {"\"held\"", "is busy: v4l2-ctl (process ", "another user's process"}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.result.status, c.status) << c.result.output;
        for (const char* text : c.texts) {
            EXPECT_NE(c.result.output.find(text), std::string::npos) << text << " is missing in\n" << c.result.output;
        }
    }
}

/// Captures 60 frames from the USB camera, which pauses soon after the start.
Command_Result Capture_With_Pause(const std::string& seconds, const fs::path& directory)
{
    return Run_Command("{ while [ ! -e " + directory.string() + "/frame-000010.jpg ]; do sleep 0.1; done; echo pause " +
                       seconds + " >" + Camera_Fifo + "; } & timeout 30 wqz-usbcam capture " + Usb_Camera_Id +
                       " --format mjpeg --size 160x120 --fps 30 --frames 60 -o " + directory.string());
}

TEST_F(Tool, SurvivesAShortPauseAndReportsALongOne)
{
    const fs::path short_pause = fs::path(Results_Directory) / "tool-pause-3";
    const Command_Result survived = Capture_With_Pause("3", short_pause);
    EXPECT_EQ(survived.status, 0) << survived.output;
    EXPECT_EQ(Whole_Pictures(short_pause), 60U);

    const fs::path long_pause = fs::path(Results_Directory) / "tool-pause-60";
    const Command_Result given_up = Capture_With_Pause("60", long_pause);
    EXPECT_EQ(given_up.status, 1) << given_up.output;
    EXPECT_NE(given_up.output.find("stopped sending frames"), std::string::npos) << given_up.output;
    EXPECT_GE(Whole_Pictures(long_pause), 10U);
    EXPECT_LT(Whole_Pictures(long_pause), 60U);
}

/// Captures with the tool, and unplugs the camera a second after the first picture.
std::future<Command_Result> Capture_And_Unplug(const std::string& options, const fs::path& directory)
{
    auto capture = std::async(std::launch::async, [=] {
        return Run_Command(std::string("timeout 45 wqz-usbcam capture ") + Usb_Camera_Id +
                           " --format mjpeg --size 160x120 --fps 30 " + options + " -o " + directory.string());
    });
    for (int i = 0; i < 100 && (!fs::exists(directory) || fs::is_empty(directory)); ++i) {
        std::this_thread::sleep_for(100ms);
    }
    std::this_thread::sleep_for(1s);
    Tell_Usb_Camera("unplug");
    return capture;
}

TEST_F(Tool, GoesOnAfterAReplugAndSaysWhatWasMissed)
{
    const fs::path directory = fs::path(Results_Directory) / "tool-replug";
    auto watch = std::async(std::launch::async, [] { return Run_Command("timeout 15 wqz-usbcam list --watch"); });
    auto capture = Capture_And_Unplug("--reconnect --frames 90", directory);
    std::this_thread::sleep_for(2s);
    Plug_In_Usb_Camera();
    ASSERT_EQ(capture.wait_for(30s), std::future_status::ready) << "the tool hangs";
    const Command_Result result = capture.get();
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_NE(result.output.find("the camera is back; missed "), std::string::npos) << result.output;
    // The counter in the pictures starts again with the camera, so their order is not checked.
    const auto is_whole = [](const auto& entry) { return Motion_Jpeg_Counter(Bytes_Of(entry.path())) >= 0; };
    EXPECT_EQ(std::count_if(fs::directory_iterator(directory), fs::directory_iterator(), is_whole), 90);
    const std::string seen = watch.get().output;
    const size_t unplugged = seen.find("\nunplugged ");
    EXPECT_EQ(seen.find("present "), 0U) << seen;
    ASSERT_NE(unplugged, std::string::npos) << seen;
    EXPECT_NE(seen.find("\nplugged ", unplugged), std::string::npos) << seen;
}

TEST_F(Tool, EndsWithAMessageWhenTheCameraIsUnplugged)
{
    const fs::path directory = fs::path(Results_Directory) / "tool-unplug";
    auto capture = Capture_And_Unplug("--seconds 60", directory);
    ASSERT_EQ(capture.wait_for(20s), std::future_status::ready) << "the tool hangs";
    const Command_Result result = capture.get();
    Plug_In_Usb_Camera();
    EXPECT_NE(result.status, 0);
    EXPECT_LT(result.status, 128) << "ended by a signal";
    EXPECT_NE(result.output.find("unplugged"), std::string::npos) << result.output;
    EXPECT_GT(Whole_Pictures(directory), 10U);
    printf("unplugged: status %d, said:\n%s\n", result.status, result.output.c_str());
}

}  // namespace
