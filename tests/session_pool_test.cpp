// The session's pools of frame records: order, waiting, what is freed.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "support/waiting.h"
#include "USBCam/USBCam.h"

namespace {

class Pools : public testing::Test {
protected:
    Pools() : session(&record) {}
    ~Pools() override { session.CLEAR_FRAME_BUFF(); }

    // Queues records 0, 1, ... by their index.
    void Queue(uint32_t count)
    {
        for (uint32_t i = 0; i < count; ++i) {
            auto* frame = new Frame_Buffer_Data();
            frame->index = i;
            frame->pMem = new uint8_t[16];
            session.SAVE_FRAME_BUFF(frame);
        }
    }

    static std::vector<uint32_t> Indexes(const std::list<Frame_Buffer_Data*>& list)
    {
        std::vector<uint32_t> indexes;
        for (const Frame_Buffer_Data* frame : list) {
            indexes.push_back(frame->index);
        }
        return indexes;
    }

    v4l2_dev_sys_data_t record{};
    USBCam session;
};

TEST_F(Pools, InitAddsZeroedRecordsAtTheFront)
{
    session.INIT_FRAME_RES(0);
    EXPECT_TRUE(session.cFrame_RES.empty());
    session.INIT_FRAME_RES(8);
    session.INIT_FRAME_RES(8);
    EXPECT_EQ(session.cFrame_RES.size(), 16U);
    session.cFrame_RES.front()->index = 7;
    session.INIT_FRAME_RES(1);
    const Frame_Buffer_Data* frame = session.cFrame_RES.front();
    EXPECT_EQ(frame->index, 0U) << "new records go to the front";
    EXPECT_EQ(frame->pMem, nullptr);
    EXPECT_EQ(frame->buff_Length, 0U);
    EXPECT_EQ(frame->device_path[255], 0);
}

TEST_F(Pools, EveryCallWaitsForTheLock)
{
    Queue(2);
    session.INIT_FRAME_RES(2);
    const std::function<void()> calls[] = {
        [&] { session.INIT_FRAME_RES(1); },
        [&] { session.SAVE_FRAME_RES(session.GET_FRAME_RES()); },
        [&] { session.SAVE_FRAME_RES(session.GET_FRAME_BUFF(false)); },
        [&] { session.SAVE_FRAME_RES(session.GET_FRAME_BUFF_NEWEST(false)); },
        [&] { session.SAVE_FRAME_RES(nullptr); },
        [&] { (void)session.Video_STREAM_STATUS(false); },
        [&] { session.CLEAR_FRAME_BUFF(); },
    };
    for (const std::function<void()>& call : calls) {
        std::atomic<bool> begun{false};
        std::atomic<bool> ended{false};
        Mutex_Lock_Class lock(session.cMutex);
        std::thread caller([&] {
            begun = true;
            call();
            ended = true;
        });
        EXPECT_TRUE(Eventually([&] { return begun.load(); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_FALSE(ended) << "call " << &call - calls;
        lock.unlock();
        caller.join();
    }
}

TEST_F(Pools, FramesComeOutInTheOrderTheyWentIn)
{
    Queue(3);
    EXPECT_EQ(session.Video_STREAM_STATUS(true), 3);
    for (uint32_t i = 0; i < 3; ++i) {
        Frame_Buffer_Data* frame = session.GET_FRAME_BUFF(true);
        EXPECT_EQ(frame->index, i);
        session.SAVE_FRAME_RES(frame);
    }
    EXPECT_EQ(Indexes(session.cFrame_RES), (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(session.GET_FRAME_BUFF(false), nullptr);
    EXPECT_EQ(session.GET_FRAME_BUFF_NEWEST(false), nullptr);
    EXPECT_EQ(session.Video_STREAM_STATUS(false), 0);
}

TEST_F(Pools, TheNewestFrameFreesTheOlderOnes)
{
    session.INIT_FRAME_RES(1);
    session.cFrame_RES.front()->index = 9;
    Queue(3);
    Frame_Buffer_Data* newest = session.GET_FRAME_BUFF_NEWEST(false);
    EXPECT_EQ(newest->index, 2U);
    EXPECT_EQ(Indexes(session.cFrame_RES), (std::vector<uint32_t>{9, 0, 1}));
    session.SAVE_FRAME_RES(newest);
}

TEST_F(Pools, ALateApplicationLosesItsOldestFrame)
{
    session.INIT_FRAME_RES(1);
    Queue(2);
    Frame_Buffer_Data* free_one = session.GET_FRAME_RES();
    EXPECT_EQ(session.cFrame_Buffer.size(), 2U);
    Frame_Buffer_Data* oldest = session.GET_FRAME_RES();
    EXPECT_EQ(oldest->index, 0U);
    EXPECT_NE(oldest->pMem, nullptr);
    EXPECT_EQ(Indexes(session.cFrame_Buffer), (std::vector<uint32_t>{1}));
    session.SAVE_FRAME_RES(free_one);
    session.SAVE_FRAME_RES(oldest);
    session.CLEAR_FRAME_BUFF();
    EXPECT_EQ(session.GET_FRAME_RES(), nullptr);
    session.SAVE_FRAME_RES(nullptr);
    EXPECT_TRUE(session.cFrame_RES.empty());
}

TEST_F(Pools, ClearingLeavesTheApplicationsRecordAlone)
{
    Queue(2);
    session.INIT_FRAME_RES(2);
    Frame_Buffer_Data* held = session.GET_FRAME_BUFF(false);
    session.CLEAR_FRAME_BUFF();
    EXPECT_TRUE(session.cFrame_Buffer.empty() && session.cFrame_RES.empty());
    static_cast<uint8_t*>(held->pMem)[15] = 1;
    session.SAVE_FRAME_RES(held);
    EXPECT_EQ(session.cFrame_RES.size(), 1U);
}

TEST_F(Pools, AWaitEndsWithTheNextFrame)
{
    bool queued = false;
    const auto queue_once = [&] {
        if (!queued) {
            Queue(1);
            queued = true;
        }
    };
    Frame_Buffer_Data* frame = Wait_And_Wake([&] { return session.GET_FRAME_BUFF(true); }, queue_once);
    ASSERT_NE(frame, nullptr);
    session.SAVE_FRAME_RES(frame);
    queued = false;
    frame = Wait_And_Wake([&] { return session.GET_FRAME_BUFF_NEWEST(true); }, queue_once);
    ASSERT_NE(frame, nullptr);
    session.SAVE_FRAME_RES(frame);
    queued = false;
    EXPECT_EQ(Wait_And_Wake([&] { return session.Video_STREAM_STATUS(true); }, queue_once), 1);
}

TEST_F(Pools, AWakeUpWithoutAFrameEndsTheWaitWithNothing)
{
    const auto wake = [&] { Mutex_Lock_Class(session.cMutex).Send_Cond(); };
    EXPECT_EQ(Wait_And_Wake([&] { return session.GET_FRAME_BUFF(true); }, wake), nullptr);
    EXPECT_EQ(Wait_And_Wake([&] { return session.GET_FRAME_BUFF_NEWEST(true); }, wake), nullptr);
    EXPECT_EQ(Wait_And_Wake([&] { return session.Video_STREAM_STATUS(true); }, wake), 0);
}

TEST_F(Pools, ProducerAndConsumersPassEveryRecordOnce)
{
    constexpr uint32_t frames = 20000;
    session.INIT_FRAME_RES(8);
    std::atomic<bool> done{false};
    std::atomic<uint32_t> taken{0};
    std::atomic<bool> ascending{true};
    const auto consume = [&](bool newest) {
        uint32_t next = 0;
        while (!done || session.Video_STREAM_STATUS(false) > 0) {
            if (Frame_Buffer_Data* frame =
                    newest ? session.GET_FRAME_BUFF_NEWEST(false) : session.GET_FRAME_BUFF(false)) {
                ascending = ascending && frame->index >= next;
                next = frame->index + 1;
                frame->index = 0;
                ++taken;
                session.SAVE_FRAME_RES(frame);
            }
        }
    };
    std::thread first(consume, false);
    std::thread second(consume, true);
    // Consumers clear the index. A record that still has one was overtaken by a newer one: its frame is lost.
    uint32_t lost = 0;
    for (uint32_t i = 1; i <= frames; ++i) {
        Frame_Buffer_Data* frame = session.GET_FRAME_RES();
        lost += frame->index != 0 ? 1 : 0;
        frame->index = i;
        session.SAVE_FRAME_BUFF(frame);
    }
    done = true;
    first.join();
    second.join();
    for (const Frame_Buffer_Data* frame : session.cFrame_RES) {
        lost += frame->index != 0 ? 1 : 0;
    }
    EXPECT_TRUE(ascending);
    EXPECT_EQ(taken + lost, frames);
    EXPECT_EQ(session.cFrame_RES.size(), 8U);
}

}  // namespace
