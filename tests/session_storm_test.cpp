// The session on many threads: four consumers, questions, and storms of budgets, ended at random moments.
#include <gtest/gtest.h>

#include <map>
#include <mutex>

#include "support/open_camera.h"
#include "support/session_fixture.h"
#include "support/storm.h"
#include "support/waiting.h"
#include "USBCam_API/USBCam_API.h"

namespace {

using namespace virtual_camera;
using namespace std::chrono_literals;

constexpr size_t Consumers = 4;
constexpr auto Frame_Wait = 1002ms;  // of the capture loop, for a frame that does not come

class Session_Storm : public Session_Fixture {
protected:
    ~Session_Storm() override
    {
        Stop();
        consuming = false;
        Await_Consumers();
        crew.Join();
    }

    /// Takes frames while a capture runs, holds up to three or all it gets, and gives them back in another order.
    void Consume(size_t consumer, Random& random)
    {
        std::vector<Frame_Buffer_Data*> held;
        int64_t last = -1;
        at_rest[consumer] = false;  // before the look at what Await_Consumers relies on
        while (consuming) {
            Frame_Buffer_Data* frame = Take_In_Some_Way(random);
            if (frame != nullptr) {
                EXPECT_GT(frame->index, last);
                last = frame->index;
                Note(*frame);
                held.push_back(frame);
            }
            while (!hoarding && held.size() > random.Below(4)) {
                Give_Back(held, random);
            }
            random.Sleep_Up_To(1ms);
        }
        while (!held.empty()) {
            Give_Back(held, random);
        }
        at_rest[consumer] = true;
        random.Sleep_Up_To(300us);
    }

    Frame_Buffer_Data* Take_In_Some_Way(Random& random)
    {
        switch (random.Below(4)) {
            case 0:
                return session.GET_FRAME_BUFF(true);
            case 1:
                return session.GET_FRAME_BUFF_NEWEST(false);
            case 2:
                (void)session.Video_STREAM_STATUS(true);
                [[fallthrough]];
            default:
                return session.GET_FRAME_BUFF(false);
        }
    }

    /// Expects that the frame is finished and that no other consumer got it.
    void Note(const Frame_Buffer_Data& frame)
    {
        EXPECT_EQ(frame.PixFormat.u_PixFormat, Mjpeg.u_PixFormat);
        EXPECT_GE(frame.Frame_Time.tv_sec, begin);
        const std::lock_guard lock(mutex);
        EXPECT_TRUE(received.emplace(frame.index, frame).second) << frame.index << " was taken twice";
        ++taken;
    }

    /// Expects that each record has the frame that the driver handed out for it. Begins with the next capture.
    void Expect_Frames_Of_The_Driver()
    {
        Record_Tally all;
        for (const auto& [number, frame] : received) {
            all.Add(frame);
        }
        all.Expect_Handed_Out(Numbers_Handed_Out(Node));
        received.clear();
    }

    /// Expects that nobody has written into the frame while it was held.
    void Give_Back(std::vector<Frame_Buffer_Data*>& held, Random& random)
    {
        std::swap(held[random.Below(static_cast<uint32_t>(held.size()))], held.back());
        Frame_Buffer_Data* frame = held.back();
        held.pop_back();
        const std::vector<uint8_t> sent = Frame_Bytes(Node, frame->buffer.sequence);
        EXPECT_EQ(frame->buffer.bytesused, sent.size());
        EXPECT_TRUE(std::equal(sent.begin(), sent.end(), static_cast<const uint8_t*>(frame->pMem)));
        session.SAVE_FRAME_RES(frame);
    }

    /// The end of a capture wakes nobody, so this does it.
    void Await_Consumers()
    {
        EXPECT_TRUE(Eventually([&] {
            (void)Mutex_Lock_Class(session.cMutex).Send_Cond();
            return std::all_of(std::begin(at_rest), std::end(at_rest), [](const auto& rests) { return rests.load(); });
        }));
    }

    void Ask(Random& random)
    {
        int32_t value = 0;
        EXPECT_EQ(WQZ_USBCam_PU_Set(&session, V4L2_CID_BRIGHTNESS, static_cast<int32_t>(random.Below(200))), 0);
        EXPECT_EQ(WQZ_USBCam_PU_Get(&session, V4L2_CID_BRIGHTNESS, &value), 0);
        EXPECT_LT(value, 200);
        EXPECT_EQ(WQZ_USBCam_Get_Format_List_Size(&session), modes);
        EXPECT_GE(WQZ_USBCam_Video_STREAM_STATUS(&session, false), 0);
        EXPECT_NE(WQZ_USBCam_Log(), nullptr);
        random.Sleep_Up_To(1ms);
    }

    /// Sets budgets until the end has come. The last one is a stop, so that the stop of no other thread is undone.
    void Storm(Random& random)
    {
        constexpr int32_t Budgets[] = {-1, 1'000, 1'000'000, INT32_MAX};
        while (!ending) {
            WQZ_USBCam_EVENT_LoopMode(&session, Budgets[random.Below(4)]);
            random.Sleep_Up_To(50us);
        }
        WQZ_USBCam_EVENT_LoopMode(&session, 0);
    }

    std::atomic<bool> consuming{false};
    std::atomic<bool> at_rest[Consumers] = {};
    std::atomic<bool> hoarding{false};
    std::atomic<bool> ending{false};
    std::atomic<uint32_t> taken{0};
    int32_t modes = 0;
    const time_t begin = time(nullptr);
    Crew crew;

    std::mutex mutex;
    std::map<uint32_t, Frame_Buffer_Data> received;  // the records of this capture by number; guarded by mutex
};

TEST_F(Session_Storm, AStopAtAnyMomentEndsTheCapture)
{
    Rounds rounds(40);
    Captured_Stderr printed;
    Random random = rounds.New_Random();
    for (size_t i = 0; i < Consumers; ++i) {
        crew.Repeat([this, i, draws = rounds.New_Random()]() mutable { Consume(i, draws); });
    }
    crew.Repeat([this, draws = rounds.New_Random()]() mutable { Ask(draws); });
    crew.Repeat([draws = rounds.New_Random()]() mutable {
        draws.Sleep_Up_To(3ms);
        Deliver_Frames(Node, 1);
    });
    while (rounds.Next() && !HasFailure()) {
        Clear_Log();  // which would grow in a long run
        ending = false;
        hoarding = rounds.Begun() % 4 == 0;  // until no record is left to the loop
        consuming = true;
        Crew storm;
        for (int i = 0; i < 2; ++i) {
            storm.Once([this, draws = rounds.New_Random()]() mutable { Storm(draws); });
        }
        Capture(Mjpeg);
        random.Sleep_Up_To(random.Below(8) == 0 ? 1ms : 60ms);
        const Stopwatch watch;
        ending = true;
        Stop();
        EXPECT_LT(watch.Elapsed(), Frame_Wait + Slack);
        rounds.Ended_In(watch.Elapsed());
        storm.Join();
        EXPECT_EQ(result, 0);
        EXPECT_EQ(session.iLoopMode, 0);
        consuming = false;
        Await_Consumers();
        Expect_Frames_Of_The_Driver();
        session.CLEAR_FRAME_BUFF();
        session.Video_Stream_Clear_Frame_Buff();
    }
    EXPECT_GT(taken, rounds.Begun());
}

}  // namespace
