// The camera interface: which modes are offered, matched, refused and confirmed.
#include <gtest/gtest.h>

#include "support/open_camera.h"

namespace {

using namespace virtual_camera;

constexpr WQZ_Camera_Fraction Thirty{1, 30};

class Modes : public Open_Camera {};

TEST_F(Modes, BandwidthThatIsMissingIsExplainedByModesThatNeedLess)
{
    Fail(Node, VIDIOC_STREAMON, {ENOSPC});
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 640, 480, Thirty)), -ENOSPC);
    const std::string text = Explanation(camera);
    EXPECT_NE(text.find("18.4 MB a second"), std::string::npos) << text;
    EXPECT_NE(text.find("MJPG 640x480 at 30"), std::string::npos) << text;
    EXPECT_EQ(text.find("1280x720"), std::string::npos) << text;
}

TEST_F(Modes, WithoutExactTheAcceptedModeIsReported)
{
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 650, 470, {1, 1000})), 0);
    EXPECT_EQ(mode.width, 640U);
    EXPECT_EQ(mode.height, 480U);
    EXPECT_EQ(mode.interval.denominator, 30U);
    WQZ_Camera_Frame frame = Next_Frame();
    EXPECT_EQ(frame.width, 640U);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
}

TEST_F(Modes, ExactRefusesWhatIsNotOfferedAndNamesAFewModes)
{
    for (const WQZ_Camera_Request& request :
         {Request_For(V4L2_PIX_FMT_YUYV, 641, 480, {0, 0}, WQZ_CAMERA_START_EXACT),
          Request_For(V4L2_PIX_FMT_YUYV, 640, 480, {1, 29}, WQZ_CAMERA_START_EXACT),
          Request_For(V4L2_PIX_FMT_NV12, 640, 480, {0, 0}, WQZ_CAMERA_START_EXACT)}) {
        Clear_Log();
        EXPECT_EQ(Start(request), -ENOTSUP);
        EXPECT_EQ(Requests(VIDIOC_S_FMT), 0);
        const std::string text = Explanation(camera);
        EXPECT_NE(text.find("640x480 at 30 frames per second"), std::string::npos) << text;
        const std::string nearest = text.substr(text.find("nearest modes"));
        EXPECT_EQ(std::count(nearest.begin(), nearest.end(), ','), 3) << text;
    }
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 640, 480, {1001, 30030}, WQZ_CAMERA_START_EXACT)), 0)
        << "the same fraction in other numbers";
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 640, 480, {10000, 300100}, WQZ_CAMERA_START_EXACT)), 0)
        << "0.03 percent";
    EXPECT_EQ(mode.interval.numerator, 1U) << "the offered fraction is set";
}

TEST_F(Modes, ARefusedModeIsNeverItsOwnRemedy)
{
    Fail(Node, VIDIOC_S_FMT, {EINVAL, -1, 2});
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty)), -EINVAL);
    std::string text = Explanation(camera);
    const std::string asked = "YUYV 320x240 at 30 frames";
    EXPECT_EQ(text.find(asked, text.find(asked) + 1), std::string::npos) << text;
    EXPECT_NE(text.find("choose another mode"), std::string::npos) << text;
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 321, 240, Thirty)), -EINVAL);
    text = Explanation(camera);
    EXPECT_NE(text.find("does not offer YUYV 321x240"), std::string::npos) << text;
    EXPECT_NE(text.find("nearest modes are YUYV 320x240 at 30"), std::string::npos) << text;
}

TEST_F(Modes, ExactFailsWhenTheDriverSetsSomethingElse)
{
    Alter(Node, VIDIOC_S_FMT, [](void* argument) { static_cast<v4l2_format*>(argument)->fmt.pix.width = 160; });
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, {0, 0}, WQZ_CAMERA_START_EXACT)), -ENOTSUP);
    EXPECT_NE(Explanation(camera).find("driver set YUYV 160x240"), std::string::npos) << Explanation(camera);
    Alter(Node, VIDIOC_S_PARM, [](void* argument) {
        static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe = {1, 15};
    });
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty, WQZ_CAMERA_START_EXACT)), -ENOTSUP);
}

TEST_F(Modes, ARateThatTheDriverDoesNotConfirmIsUnknown)
{
    Alter(
        Node, VIDIOC_S_PARM,
        [](void* argument) { static_cast<v4l2_streamparm*>(argument)->parm.capture.capability = 0; }, Always);
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty)), 0);
    EXPECT_EQ(mode.interval.denominator, 0U);
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty, WQZ_CAMERA_START_EXACT)), -ENOTSUP);
    Fail(Node, VIDIOC_S_PARM, {ENOTTY});
    Fail(Node, VIDIOC_G_PARM, {ENOTTY});
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty)), 0) << "some drivers have no rates at all";
    EXPECT_EQ(mode.interval.numerator, 0U);
    Fail(Node, VIDIOC_S_PARM, {ENOTTY});
    ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty)), 0) << "others only tell theirs";
    EXPECT_EQ(mode.interval.denominator, 30U);
}

TEST_F(Modes, AnIntervalWithAZeroIsUnknown)
{
    for (const v4l2_fract& told : {v4l2_fract{0, 30}, v4l2_fract{1, 0}}) {
        Alter(Node, VIDIOC_S_PARM,
              [=](void* argument) { static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe = told; });
        ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty)), 0);
        EXPECT_EQ(mode.interval.numerator, 0U);
        EXPECT_EQ(mode.interval.denominator, 0U);
    }
}

TEST_F(Modes, AFailedEnumerationIsAnErrorAndNotTheEndOfAList)
{
    for (const auto code : {VIDIOC_ENUM_FMT, VIDIOC_ENUM_FRAMESIZES, VIDIOC_ENUM_FRAMEINTERVALS}) {
        const auto request = static_cast<uint32_t>(code);
        for (const int skip : {0, 1}) {
            Fail(Node, request, {EPROTO, -1, 1, skip});
            EXPECT_EQ(WQZ_Camera_Modes(camera, nullptr, 0), -EPROTO);
        }
        Fail(Node, request, {EINTR, -1, 100});
        EXPECT_EQ(WQZ_Camera_Modes(camera, nullptr, 0), -EIO) << "interrupted without end";
    }
}

// Drivers of television cards and some sensors do not list their sizes or rates.
TEST_F(Modes, WhatADriverDoesNotListIsTakenFromItsPresentMode)
{
    std::vector<WQZ_Camera_Offer> offers(64, Sized<WQZ_Camera_Offer>());
    const auto list = [&] { return WQZ_Camera_Modes(camera, offers.data(), 64); };
    Start_Yuyv();
    Fail(Node, VIDIOC_ENUM_FRAMESIZES, {ENOTTY, -1, Always});
    int32_t count = list();
    ASSERT_GT(count, 0) << Explanation(camera);
    for (int32_t i = 0; i < count; ++i) {
        const WQZ_Camera_Offer& offer = offers[static_cast<size_t>(i)];
        EXPECT_EQ(offer.width_min, 320U) << offer.format;
        EXPECT_EQ(offer.height_max, 240U) << offer.format;
        EXPECT_NE(offer.interval_min.denominator, 0U) << offer.format;
    }
    Fail(Node, VIDIOC_ENUM_FRAMEINTERVALS, {ENOTTY, -1, Always});
    count = list();
    ASSERT_GT(count, 1) << "one for each format";
    EXPECT_STRNE(offers[0].format, offers[1].format);
    EXPECT_EQ(offers[0].interval_min.denominator, 0U);
    EXPECT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240, Thirty, WQZ_CAMERA_START_EXACT)), 0)
        << "any rate may be right: " << Explanation(camera);
    Fail(Node, VIDIOC_G_FMT, {EIO, -1, Always});
    EXPECT_EQ(list(), 0);
}

TEST_F(Modes, TheModesAreListedOnePerInterval)
{
    const int32_t count = WQZ_Camera_Modes(camera, nullptr, 0);
    ASSERT_GT(count, 4);
    std::vector<WQZ_Camera_Offer> offers(static_cast<size_t>(count), Sized<WQZ_Camera_Offer>());
    EXPECT_EQ(WQZ_Camera_Modes(camera, offers.data(), 3), count);
    EXPECT_STREQ(offers[2].format, "MJPG");
    EXPECT_STREQ(offers[3].format, "") << "not written beyond the capacity";
    EXPECT_EQ(WQZ_Camera_Modes(camera, offers.data(), static_cast<uint32_t>(count)), count);
    EXPECT_EQ(offers[0].flags, static_cast<uint32_t>(WQZ_CAMERA_OFFER_COMPRESSED));
    EXPECT_EQ(offers[0].width_min, offers[0].width_max);
    EXPECT_EQ(offers[0].interval_min.numerator, 1U);
    EXPECT_EQ(std::string(offers.back().format), "GREY");
}

// A camera with other formats than the usual ones.
class Offers : public testing::Test {
protected:
    Offers() { Reset(); }
    ~Offers() override
    {
        EXPECT_EQ(WQZ_Camera_Close(camera), 0);
        Reset();
    }

    void Open(const std::vector<Pixel_Format>& formats)
    {
        Camera_Description description = Usb_Camera();
        description.formats = formats;
        Add_Camera(description);
        ASSERT_EQ(WQZ_Camera_Open(&camera, "/dev/video0"), 0) << Explanation(nullptr);
    }

    int32_t Start_Exactly(uint32_t fourcc, uint32_t width, WQZ_Camera_Fraction interval)
    {
        const auto request = Request_For(fourcc, width, 240, interval, WQZ_CAMERA_START_EXACT);
        return WQZ_Camera_Start(camera, &request, &mode);
    }

    WQZ_Camera* camera = nullptr;
    WQZ_Camera_Mode mode = Sized<WQZ_Camera_Mode>();
};

TEST_F(Offers, RangesOfSizesAndIntervalsAreMatched)
{
    Open({{V4L2_PIX_FMT_YUYV, {{64, 48, 640, 480, 16, 8, {{1, 60}, {1, 5}, {1, 60}}, true}}}});
    auto offer = Sized<WQZ_Camera_Offer>();
    ASSERT_EQ(WQZ_Camera_Modes(camera, &offer, 1), 1);
    EXPECT_EQ(offer.width_min, 64U);
    EXPECT_EQ(offer.width_max, 640U);
    EXPECT_EQ(offer.width_step, 16U);
    EXPECT_EQ(offer.height_step, 8U);
    EXPECT_EQ(offer.interval_min.denominator, 60U);
    EXPECT_EQ(offer.interval_max.denominator, 5U);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 30}), 0) << Explanation(camera);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 64, {1, 30}), 0) << Explanation(camera);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 640, {1, 30}), 0) << Explanation(camera);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 656, {1, 30}), -ENOTSUP);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 48, {1, 30}), -ENOTSUP);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 321, {1, 30}), -ENOTSUP);
    EXPECT_NE(Explanation(camera).find("YUYV 320x240 at 30"), std::string::npos) << Explanation(camera);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 45}), -ENOTSUP) << "between two steps";
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 61}), -ENOTSUP);
    EXPECT_NE(Explanation(camera).find("modes are YUYV 320x240 at 60"), std::string::npos) << Explanation(camera);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 4}), -ENOTSUP);
    EXPECT_NE(Explanation(camera).find("modes are YUYV 320x240 at 5"), std::string::npos) << Explanation(camera);
}

TEST_F(Offers, ContinuousRangesHaveNoSteps)
{
    Open({{V4L2_PIX_FMT_YUYV, {{64, 48, 640, 480, 16, 8, {{1, 50}, {1, 5}, {1, 1000}}, true}}}});
    Alter(
        "/dev/video0", VIDIOC_ENUM_FRAMESIZES,
        [](void* argument) { static_cast<v4l2_frmsizeenum*>(argument)->type = V4L2_FRMSIZE_TYPE_CONTINUOUS; }, Always);
    Alter(
        "/dev/video0", VIDIOC_ENUM_FRAMEINTERVALS,
        [](void* argument) { static_cast<v4l2_frmivalenum*>(argument)->type = V4L2_FRMIVAL_TYPE_CONTINUOUS; }, Always);
    auto offer = Sized<WQZ_Camera_Offer>();
    ASSERT_EQ(WQZ_Camera_Modes(camera, &offer, 1), 1);
    EXPECT_EQ(offer.width_step, 1U);
    EXPECT_EQ(offer.height_step, 1U);
    EXPECT_EQ(offer.interval_step.numerator, 0U);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 20}), 0) << Explanation(camera);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 50}), 0) << Explanation(camera);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 4}), -ENOTSUP);
}

TEST_F(Offers, TheNearestIntervalOfARangeIsOnItsGrid)
{
    Open({{V4L2_PIX_FMT_YUYV, {{320, 240, 320, 240, 0, 0, {{1, 60}, {1, 5}, {1, 1000}}, true}}}});
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 20}), -ENOTSUP);
    EXPECT_NE(Explanation(camera).find("modes are YUYV 320x240 at 20.13 frames"), std::string::npos)
        << Explanation(camera);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 2}), -ENOTSUP);
    EXPECT_NE(Explanation(camera).find("modes are YUYV 320x240 at 5.008 frames"), std::string::npos)
        << "the last step before the bound: " << Explanation(camera);
}

TEST_F(Offers, ARateMatchesWithinAThousandth)
{
    const auto one_rate = [](uint32_t width, std::vector<v4l2_fract> intervals) {
        return Discrete_Size(width, 240, std::move(intervals));
    };
    Open({{V4L2_PIX_FMT_YUYV,
           {one_rate(320, {{1001, 30000}}), one_rate(640, {{1, 30}}), one_rate(800, {{1001, 30000}, {1, 30}})}}});
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {1, 30}), 0) << Explanation(camera);
    EXPECT_EQ(mode.interval.numerator, 1001U);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 320, {100, 2997}), 0);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 640, {1001, 30000}), 0) << Explanation(camera);
    EXPECT_EQ(mode.interval.numerator, 1U);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 640, {100, 2996}), -ENOTSUP);
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 800, {1, 30}), 0);
    EXPECT_EQ(mode.interval.numerator, 1U) << "the nearest of two that match";
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_YUYV, 800, {1001, 30000}), 0);
    EXPECT_EQ(mode.interval.numerator, 1001U);
}

TEST_F(Offers, BigEndianFormatsHaveNamesOfTheirOwn)
{
    Open({{V4L2_PIX_FMT_Y16, {Discrete_Size(320, 240, {{1, 30}})}},
          {V4L2_PIX_FMT_Y16_BE, {Discrete_Size(320, 240, {{1, 30}})}}});
    std::vector<WQZ_Camera_Offer> offers(2, Sized<WQZ_Camera_Offer>());
    ASSERT_EQ(WQZ_Camera_Modes(camera, offers.data(), 2), 2);
    EXPECT_STREQ(offers[0].format, "Y16");
    EXPECT_STREQ(offers[1].format, "Y16-BE");
    EXPECT_EQ(Start_Exactly(V4L2_PIX_FMT_Y16_BE, 320, {0, 0}), 0) << Explanation(camera);
    EXPECT_STREQ(mode.format, "Y16-BE");
    EXPECT_EQ(Start_Exactly(v4l2_fourcc('A', 0xC4, 1, 'B'), 320, {0, 0}), -ENOTSUP);
    EXPECT_NE(Explanation(camera).find("A??B"), std::string::npos) << Explanation(camera);
}

}  // namespace
