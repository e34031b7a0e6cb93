// The camera interface's C++ header, as a C++17 program sees it.
#include <gtest/gtest.h>
#include <virtual_camera/virtual_camera.h>

#include <thread>

#include "Camera/wqz_camera.hpp"

namespace {

using namespace std::chrono_literals;
using namespace virtual_camera;

constexpr char Node[] = "/dev/video0";

class Cpp : public testing::Test {
protected:
    Cpp()
    {
        Reset();
        Add_Camera(Usb_Camera());
    }
    ~Cpp() override { Reset(); }

    static int Code_Of(const std::function<void()>& call)
    {
        try {
            call();
        } catch (const wqz::Camera_Error& error) {
            EXPECT_STRNE(error.what(), "");
            return error.Code();
        }
        return 0;
    }
};

TEST_F(Cpp, AProgramReadsAsTheHeaderShows)
{
    wqz::Camera camera(Node);
    const wqz::Mode mode = camera.Start({"MJPG", 640, 480, 30});
    EXPECT_EQ(mode.Format(), "MJPG");
    EXPECT_DOUBLE_EQ(mode.Rate(), 30);
    uint32_t taken = 0;
    while (auto frame = camera.Read(2s)) {
        EXPECT_EQ(frame.Sequence(), taken);
        const std::vector<uint8_t> copy = frame.Copy();
        EXPECT_TRUE(std::equal(copy.begin(), copy.end(), frame.Bytes().begin(), frame.Bytes().end()));
        EXPECT_EQ(copy, Frame_Bytes(Node, frame.Sequence()));
        EXPECT_EQ(frame.Lost_Before(), 0U);
        EXPECT_FALSE(frame.Damaged());
        EXPECT_LT(std::chrono::abs(std::chrono::steady_clock::now().time_since_epoch() - frame.Time()), 10s);
        if (++taken == 8) {  // more than there are buffers: each went back at the end of its scope
            camera.Cancel();
        }
    }
    EXPECT_EQ(taken, 8U);
    EXPECT_EQ(camera.Counters().delivered, 8U);
    EXPECT_TRUE(camera.Stop());
    EXPECT_TRUE(camera.Close());
}

TEST_F(Cpp, AFrameMayBeKeptMovedAndOutliveItsCamera)
{
    wqz::Frame kept;
    EXPECT_FALSE(kept);
    std::vector<uint8_t> bytes;
    {
        wqz::Camera first(Node);
        wqz::Camera camera = std::move(first);
        camera.Start({"YUYV", 320, 240});
        kept = camera.Read(2s);
        bytes = kept.Copy();
        kept = camera.Read(2s);
        bytes = kept.Copy();
        EXPECT_EQ(kept.To_Bgr().size(), 320U * 240 * 3);
    }
    wqz::Frame moved = std::move(kept);
    ASSERT_TRUE(moved);
    EXPECT_EQ(moved.Copy(), bytes);
    std::vector<uint8_t> rgb(320 * 240 * 3);
    moved.To_Rgb(rgb.data(), rgb.size());
    EXPECT_EQ(rgb, moved.To_Rgb());
    moved.Release();
    EXPECT_FALSE(moved);
}

TEST_F(Cpp, FailuresAreThrownWithErrnoAndSentence)
{
    EXPECT_EQ(Code_Of([] { wqz::Camera("/dev/video9"); }), ENOENT);
    wqz::Camera camera(Node);
    EXPECT_EQ(Code_Of([&] { (void)camera.Read(0ms); }), EINVAL);
    EXPECT_EQ(Code_Of([&] { camera.Start({"YUYV", 640, 480, 29.9, true}); }), ENOTSUP);
    EXPECT_EQ(Code_Of([&] { camera.Start({"YUYV", 640, 480, 29.99, true}); }), 0) << "within 0.1 percent";
    Hold_Frames(Node);
    camera.Start({"YUYV", 640, 480});
    EXPECT_FALSE(camera.Read(10ms)) << "empty on time-out";
    Unplug(Node);
    EXPECT_EQ(Code_Of([&] { (void)camera.Read(1s); }), ENODEV);
    EXPECT_FALSE(camera.Recover(50ms));
}

TEST_F(Cpp, ControlsTakeNumbersWordsAndDefaults)
{
    wqz::Camera camera(Node);
    camera.Set_Controls({{"auto_exposure", "Manual Mode"}, {"exposure_time_absolute", 77}});
    EXPECT_EQ(camera.Get("auto_exposure").text, "Manual Mode");
    EXPECT_EQ(camera.Get("exposure_time_absolute").number, 77);
    camera.Set(wqz::Setting::Default("exposure_time_absolute"));
    EXPECT_NE(camera.Get("exposure_time_absolute").number, 77);
    EXPECT_EQ(camera.Menu(camera.Get("auto_exposure").id).size(), 2U);
    EXPECT_EQ(camera.Controls().size(), Default_Controls().size());
    EXPECT_GT(camera.Modes().size(), 4U);
    EXPECT_EQ(Code_Of([&] { camera.Set({"nothing", 1}); }), EINVAL);
}

TEST(Rates, AnyNumberBecomesAnExactFraction)
{
    const auto seconds = [](wqz::Rate rate) {
        return static_cast<double>(rate.Interval().numerator) / rate.Interval().denominator;
    };
    EXPECT_DOUBLE_EQ(seconds(30), 1.0 / 30);
    EXPECT_DOUBLE_EQ(seconds(30U), 1.0 / 30);
    EXPECT_NEAR(seconds(29.97), 1 / 29.97, 1e-6);
    EXPECT_DOUBLE_EQ(seconds(7.5), 2.0 / 15);
    EXPECT_DOUBLE_EQ(seconds(0.1), 10);
    EXPECT_DOUBLE_EQ(seconds(WQZ_Camera_Fraction{1001, 30000}), 1001.0 / 30000);
    EXPECT_EQ(wqz::Rate(0).Interval().denominator, 0U);
}

TEST(Formats, AreNamedAsModesNameThem)
{
    EXPECT_EQ(wqz::Fourcc("MJPG").Code(), WQZ_CAMERA_FOURCC('M', 'J', 'P', 'G'));
    EXPECT_EQ(wqz::Fourcc("Y16").Code(), WQZ_CAMERA_FOURCC('Y', '1', '6', ' '));
    EXPECT_EQ(wqz::Fourcc("Y16-BE").Code(), WQZ_CAMERA_FOURCC('Y', '1', '6', ' ') | 1U << 31);
}

TEST_F(Cpp, WaitsTakeAnyUnitOfTime)
{
    wqz::Camera camera(Node);
    Hold_Frames(Node);
    camera.Start({"YUYV", 320, 240});
    EXPECT_FALSE(camera.Read(-1'000'000ns)) << "over already, and not without limit";
    std::thread cancel([&] {
        std::this_thread::sleep_for(50ms);
        camera.Cancel();
    });
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_FALSE(camera.Read(wqz::Forever));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
    cancel.join();
    camera.Cancel();
    EXPECT_FALSE(camera.Read(std::chrono::hours::max()));
}

}  // namespace
