// The session's reader on the virtual camera.
#include <gtest/gtest.h>

#include <chrono>

#include "support/session_fixture.h"

namespace {

using namespace virtual_camera;
using Clock = std::chrono::steady_clock;

class Reader : public Session_Fixture {
protected:
    Reader()
    {
        session.Video_Stream_Set_Format(V4L2_PIX_FMT_YUYV, 320, 240);
        session.Video_Stream_Set_Frame_Buff(4);
        session.Video_Stream_Start_Stream();
        Deliver_Frames(Node, 100);
        Clear_Log();
    }
    ~Reader() override { delete[] static_cast<uint8_t*>(frame.pMem); }

    Frame_Buffer_Data frame{};
};

TEST_F(Reader, ARefusedRequestIsRepeatedSilentlyEveryElevenMilliseconds)
{
    Fail_With(VIDIOC_DQBUF, {EIO, EINVAL, ENODEV});
    Fail_With(VIDIOC_QBUF, {EIO});
    Captured_Stderr printed;
    const auto start = Clock::now();
    EXPECT_EQ(session.Read_Frame_BUFF(&frame), 0);
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(4 * 11 + 2));
    EXPECT_EQ(Requests(VIDIOC_DQBUF), 4);
    EXPECT_EQ(Requests(VIDIOC_QBUF), 2);
    EXPECT_EQ(printed.Text(), "");
}

TEST_F(Reader, ResultsOtherThanMinusOneAreRetriedOnlyOnTransientErrors)
{
    Fail(Node, VIDIOC_DQBUF, {EAGAIN, 1, 2, 0, true});
    EXPECT_EQ(session.Read_Frame_BUFF(&frame), 0);
    EXPECT_EQ(Requests(VIDIOC_DQBUF), 3);

    Clear_Log();
    Fail(Node, VIDIOC_DQBUF, {EIO, 5, 1, 0, true});
    EXPECT_EQ(session.Read_Frame_BUFF(&frame), 5) << "a positive result is delivered";
    EXPECT_EQ(Log_Names(), "VIDIOC_DQBUF VIDIOC_QBUF");

    Fail(Node, VIDIOC_DQBUF, {EIO, -2});
    Captured_Stderr printed;
    EXPECT_EQ(session.Read_Frame_BUFF(&frame), -1);
    EXPECT_EQ(printed.Text(), "NULL \n");
}

TEST_F(Reader, WithoutBuffersNoRequestIsIssued)
{
    std::list<Frame_Buffer> aside;
    aside.swap(session.LC_Buffer_List);
    EXPECT_EQ(session.Read_Frame_BUFF(&frame), -1);
    EXPECT_EQ(Log_Names(), "");
    aside.swap(session.LC_Buffer_List);
}

}  // namespace
