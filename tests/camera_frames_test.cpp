// The camera interface: what is true of the frames that a running capture hands out.
#include <gtest/gtest.h>
#include <time.h>

#include <limits>

#include "support/allocation_watch.h"
#include "support/open_camera.h"

namespace {

using namespace virtual_camera;

class Frames : public Open_Camera {};

TEST_F(Frames, TheLastBufferStaysWithTheDriver)
{
    Start_Yuyv();
    Deliver_Frames(Node, 10);
    std::vector<WQZ_Camera_Frame> held(3);
    for (WQZ_Camera_Frame& frame : held) {
        ASSERT_EQ(Read(frame), 0);
    }
    WQZ_Camera_Frame frame{};
    EXPECT_EQ(Read(frame), -ENOBUFS);
    EXPECT_NE(Explanation(camera).find("release"), std::string::npos);
    EXPECT_EQ(WQZ_Camera_Release(&held[1]), 0);
    EXPECT_EQ(Read(frame), 0);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(WQZ_Camera_Release(&held[0]), 0);
    EXPECT_EQ(WQZ_Camera_Release(&held[2]), 0);
}

TEST_F(Frames, TheNewestFrameIsTakenAndTheOthersCountAsSkipped)
{
    accounts_for_frames = false;  // the numbers are invented
    Start_Yuyv();
    Deliver_Frames(Node, 3);
    WQZ_Camera_Frame frame{};
    ASSERT_EQ(Read(frame, 1000, WQZ_CAMERA_READ_NEWEST), 0);
    EXPECT_EQ(frame.sequence, 2U);
    EXPECT_EQ(frame.lost_before, 0U);
    EXPECT_EQ(Bytes(frame), Frame_Bytes(Node, 2));
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(Counts().skipped, 2U);
    EXPECT_EQ(Counts().delivered, 1U);
    for (const uint32_t number : {5U, 6U, 9U}) {
        Alter(Node, VIDIOC_DQBUF, [=](void* argument) { static_cast<v4l2_buffer*>(argument)->sequence = number; });
    }
    Deliver_Frames(Node, 3);
    ASSERT_EQ(Read(frame, 1000, WQZ_CAMERA_READ_NEWEST), 0);
    EXPECT_EQ(frame.lost_before, 4U) << "also those before frames that were skipped";
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    Deliver_Frames(Node, 1000);
    ASSERT_EQ(Read(frame, 1000, WQZ_CAMERA_READ_NEWEST), 0) << "a camera that is always faster does not hold Read up";
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
}

TEST_F(Frames, TheFirstFramesCanBeSkipped)
{
    auto request = Request_For(V4L2_PIX_FMT_YUYV, 320, 240);
    request.skip = 6;
    ASSERT_EQ(Start(request), 0);
    Deliver_Frames(Node, 5);
    WQZ_Camera_Frame frame{};
    EXPECT_EQ(Read(frame, 50), -ETIMEDOUT);
    Deliver_Frames(Node, 2);
    ASSERT_EQ(Read(frame), 0);
    EXPECT_EQ(frame.sequence, 6U);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(Counts().skipped, 6U);
    EXPECT_EQ(Counts().delivered, 1U);
}

TEST_F(Frames, LostFramesShowInTheNumberingAlsoWhereItWraps)
{
    accounts_for_frames = false;  // the numbers are invented
    Start_Yuyv();
    std::vector<uint32_t> numbers{0xFFFFFFFDU, 0xFFFFFFFFU, 0, 4, 3};
    const std::vector<uint32_t> lost{0, 1, 0, 3, 0};
    for (size_t i = 0; i < numbers.size(); ++i) {
        Alter(Node, VIDIOC_DQBUF, [&, i](void* a) { static_cast<v4l2_buffer*>(a)->sequence = numbers[i]; });
        WQZ_Camera_Frame frame = Next_Frame();
        EXPECT_EQ(frame.sequence, numbers[i]);
        EXPECT_EQ(frame.lost_before, lost[i]) << numbers[i];
        EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    }
    EXPECT_EQ(Counts().lost, 4U);
}

TEST_F(Frames, DamagedFramesAreFlaggedAndImpossibleLengthsAreCut)
{
    Start_Yuyv();
    Alter(Node, VIDIOC_DQBUF, [](void* argument) {
        static_cast<v4l2_buffer*>(argument)->flags |= V4L2_BUF_FLAG_ERROR;
        static_cast<v4l2_buffer*>(argument)->bytesused = 0xFFFFFFFFU;
    });
    WQZ_Camera_Frame frame = Next_Frame();
    EXPECT_EQ(frame.flags, static_cast<uint32_t>(WQZ_CAMERA_FRAME_DAMAGED));
    EXPECT_EQ(frame.length, mode.image_size);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    frame = Next_Frame();
    EXPECT_EQ(frame.flags, 0U);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(Counts().damaged, 1U);
    EXPECT_EQ(Counts().delivered, 2U);
}

TEST_F(Frames, ADriverThatFailsOrLiesIsAnError)
{
    Start_Yuyv();
    WQZ_Camera_Frame frame{};
    for (const int error : {EIO, EINVAL, EPIPE}) {
        Fail(Node, VIDIOC_DQBUF, {error});
        EXPECT_EQ(Read(frame), -EIO);
    }
    Alter(Node, VIDIOC_DQBUF, [](void* argument) { static_cast<v4l2_buffer*>(argument)->index = 9; });
    Deliver_Frames(Node, 1);
    EXPECT_EQ(Read(frame), -EIO);
    EXPECT_EQ(frame.data, nullptr);
    Start_Yuyv();
    WQZ_Camera_Frame held = Next_Frame();
    Alter(Node, VIDIOC_DQBUF, [](void* argument) { static_cast<v4l2_buffer*>(argument)->index = 0; });
    Deliver_Frames(Node, 1);
    EXPECT_EQ(Read(frame), -EIO) << "a buffer whose frame is still held";
    EXPECT_EQ(Bytes(held), Frame_Bytes(Node, held.sequence));
    EXPECT_EQ(WQZ_Camera_Release(&held), 0);
    Start_Yuyv();
    frame = Next_Frame();
    Fail(Node, VIDIOC_QBUF, {EIO});
    EXPECT_EQ(WQZ_Camera_Release(&frame), -EIO);
    EXPECT_EQ(frame.data, nullptr) << "released all the same";
    for (int left = 3; left > 0; --left) {
        frame = Next_Frame();
        Fail(Node, VIDIOC_QBUF, {EIO});
        EXPECT_EQ(WQZ_Camera_Release(&frame), -EIO);
    }
    EXPECT_EQ(Read(frame), -EIO) << "no buffer is left: no frame can come";
}

TEST_F(Frames, TimeIsMonotonicWhateverTheDriverStamps)
{
    const auto now = [] {
        timespec time{};
        (void)clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
    };
    Start_Yuyv();
    int64_t before = now();
    WQZ_Camera_Frame frame = Next_Frame();
    EXPECT_GE(frame.time_ns, before - 1000) << "microseconds are all that the driver gives";
    EXPECT_LE(frame.time_ns, now());
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    // With 32 bits, the largest time_t is 68 years, which a clock may show.
    constexpr time_t Too_Late = sizeof(time_t) > 4 ? std::numeric_limits<time_t>::max() : -2;
    const struct {
        uint32_t kind;
        time_t seconds;
        suseconds_t microseconds;
    } stamps[] = {{V4L2_BUF_FLAG_TIMESTAMP_UNKNOWN, 1'700'000'000, 5},
                  {V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC, std::numeric_limits<time_t>::min(), 5},
                  {V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC, -1, 5},
                  {V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC, Too_Late, 5},
                  {V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC, 1, -1},
                  {V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC, 1, 1'000'000}};
    for (const auto& stamp : stamps) {
        Alter(Node, VIDIOC_DQBUF, [stamp](void* argument) {
            auto& buffer = *static_cast<v4l2_buffer*>(argument);
            buffer.flags = (buffer.flags & ~uint32_t{V4L2_BUF_FLAG_TIMESTAMP_MASK}) | stamp.kind;
            buffer.timestamp = {stamp.seconds, stamp.microseconds};
        });
        before = now();
        frame = Next_Frame();
        EXPECT_GE(frame.time_ns, before) << stamp.seconds << " s, " << stamp.microseconds << " us";
        EXPECT_LE(frame.time_ns, now()) << stamp.seconds << " s, " << stamp.microseconds << " us";
        EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    }
}

TEST_F(Frames, TheLengthOfAMotionJpegIsThatOfItsImage)
{
    Start_Mjpeg();
    const auto length_of = [&](std::vector<uint8_t> image, size_t zeros) {
        image.resize(image.size() + zeros);
        Push_Frame(Node, image);
        WQZ_Camera_Frame frame = Next_Frame();
        const uint64_t length = frame.length;
        EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
        return length;
    };
    std::vector<uint8_t> image = Frame_Bytes(Node, 0);
    EXPECT_EQ(length_of(image, 0), image.size());
    EXPECT_EQ(length_of(image, 5000), image.size());
    std::vector<uint8_t> with_hole = image;
    for (size_t i = image.size() / 2 - 150; i < image.size() / 2 + 150; ++i) {
        with_hole[i] = 0;
    }
    EXPECT_EQ(length_of(with_hole, 77), image.size()) << "zeros inside do not mislead";
    image.resize(image.size() / 2);
    image.push_back(0xAA);
    EXPECT_EQ(length_of(image, 10), image.size() + 10) << "a picture without its end keeps the driver's length";
}

TEST_F(Frames, ReadAndReleaseDoNotAllocate)
{
    Start_Mjpeg();
    Deliver_Frames(Node, 20);
    WQZ_Camera_Frame frame{};
    ASSERT_EQ(Read(frame), 0);
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    const int before = allocation_watch::Allocations();
    ASSERT_EQ(Read(frame), 0);
    const int read = allocation_watch::Allocations();
    EXPECT_EQ(WQZ_Camera_Release(&frame), 0);
    EXPECT_EQ(read - before, 0);
}

}  // namespace
