// One kernel buffer on a streaming virtual camera whose answers are altered: mapping, reading, queueing, unmapping.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "Device/capture_buffer.h"
#include "support/allocation_watch.h"
#include "support/camera_fixture.h"
#include "Video/Video_Device.h"

namespace {

using namespace virtual_camera;

constexpr uint32_t Payload = 320 * 240 * 2;

class Reading : public Camera_Fixture {
protected:
    Reading() : record(Camera_Record()), device(&record)
    {
        device.Video_Open();
        device.Video_Stream_Set_Format(V4L2_PIX_FMT_YUYV, 320, 240);
        device.Video_Stream_Set_Frame_Buff(4);
        Hold_Frames(Node);
        device.Video_Stream_Start_Stream();
        Clear_Log();
    }
    ~Reading() override
    {
        delete[] static_cast<uint8_t*>(frame.pMem);
        device.Video_Exe_End();
    }

    // Makes one frame due and reads it; without a due frame the read would block.
    int32_t Read()
    {
        Deliver_Frames(Node, 1);
        return Frame_Buffer::read_buff(static_cast<uint32_t>(device.Video_Device_FD), device.LC_Buffer_List, &frame);
    }

    void Alter_Dequeued(void (*change)(v4l2_buffer&))
    {
        Alter(Node, VIDIOC_DQBUF, [change](void* argument) { change(*static_cast<v4l2_buffer*>(argument)); });
    }

    bool Marked_Damaged() const { return (frame.buffer.flags & V4L2_BUF_FLAG_ERROR) != 0; }

    const uint8_t* Bytes() const { return static_cast<const uint8_t*>(frame.pMem); }

    // The bytes of the mapped buffer with that index.
    const uint8_t* Mapped(uint32_t position)
    {
        return static_cast<const uint8_t*>(std::next(device.LC_Buffer_List.begin(), position)->sBuf.pMem);
    }

    v4l2_dev_sys_data_t record;
    Video_Device device;
    Frame_Buffer_Data frame{};
};

TEST_F(Reading, CopiesTheFrameAndGivesTheBufferBack)
{
    frame.buff_Offset = 9;
    frame.index = 77;
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(Log_Names(), "VIDIOC_DQBUF VIDIOC_QBUF");
    EXPECT_EQ(frame.buffer.bytesused, Payload);
    EXPECT_FALSE(Marked_Damaged());
    EXPECT_EQ(frame.buff_Length, Payload + 256);
    EXPECT_EQ(frame.buff_Offset, 0U);
    EXPECT_EQ(frame.index, 77U) << "the reader does not set it";
    EXPECT_EQ(Log().back().As<v4l2_buffer>().index, frame.buffer.index);
    const std::vector<uint8_t> sent = Frame_Bytes(Node, frame.buffer.sequence);
    EXPECT_TRUE(std::equal(sent.begin(), sent.end(), Bytes()));
}

TEST_F(Reading, MemoryIsReusedOnlyWhenItsRecordedLengthExceedsTheRequest)
{
    constexpr uint32_t asked = 1000 + 256;
    for (const uint32_t recorded : {asked - 1, asked, asked + 1}) {
        delete[] static_cast<uint8_t*>(frame.pMem);
        frame.pMem = new uint8_t[5000];  // its size tells it from a new block
        frame.buff_Length = recorded;
        Push_Frame(Node, std::vector<uint8_t>(1000, 3));
        ASSERT_EQ(Read(), 0);
        EXPECT_EQ(malloc_usable_size(frame.pMem) >= 5000, recorded > asked) << recorded;
        EXPECT_EQ(frame.buff_Length, asked) << "the last size requested, not the size of the block";
        EXPECT_EQ(Bytes()[999], 3);
    }
}

TEST_F(Reading, AnIndexBeyondTheBuffersReadsTheFirst)
{
    Captured_Stderr printed;
    for (int i = 0; i < 3; ++i) {
        Read();
    }
    Alter_Dequeued([](v4l2_buffer& buffer) { buffer.index = 6; });
    Read();
    EXPECT_EQ(frame.buffer.index, 6U);
    EXPECT_EQ(std::memcmp(Bytes(), Mapped(0), Payload), 0);
}

TEST_F(Reading, AFrameLongerThanItsMappingIsAFailedRead)
{
    const uint32_t mapped = device.LC_Buffer_List.front().sBuf.buff_Length;
    Alter(Node, VIDIOC_DQBUF, [=](void* buffer) { static_cast<v4l2_buffer*>(buffer)->bytesused = mapped + 5000; });
    EXPECT_EQ(Read(), -1);
    EXPECT_TRUE(Marked_Damaged());
    EXPECT_EQ(frame.buff_Length, mapped + 5256);
    EXPECT_EQ(std::memcmp(Bytes(), Mapped(frame.buffer.index), mapped), 0);
    EXPECT_TRUE(std::all_of(Bytes() + mapped, Bytes() + mapped + 5000, [](uint8_t byte) { return byte == 0; }));

    // A recorded length of 0 is unknown, so the driver's count holds.
    for (Frame_Buffer& buffer : device.LC_Buffer_List) {
        buffer.sBuf.buff_Length = 0;
    }
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(std::memcmp(Bytes(), Mapped(frame.buffer.index), Payload), 0);
    for (Frame_Buffer& buffer : device.LC_Buffer_List) {
        buffer.sBuf.buff_Length = mapped;
    }
}

TEST_F(Reading, ALengthThatOverflowsIsRefusedAfterTheRequeue)
{
    for (uint32_t over : {0xFFFFFF00U, 0xFFFFFFFFU}) {
        Clear_Log();
        Alter(Node, VIDIOC_DQBUF, [=](void* buffer) { static_cast<v4l2_buffer*>(buffer)->bytesused = over; });
        EXPECT_EQ(Read(), -1);
        EXPECT_EQ(Log_Names(), "VIDIOC_DQBUF VIDIOC_QBUF");
        EXPECT_EQ(frame.pMem, nullptr);
        EXPECT_TRUE(Marked_Damaged());
        EXPECT_EQ(frame.buffer.bytesused, 0U) << "a reader of the record would run past the block";
    }
}

TEST_F(Reading, AnUnmappedBufferIsAFailedReadOfZeros)
{
    for (void* no_mapping : {static_cast<void*>(nullptr), MAP_FAILED}) {
        Clear_Log();
        Frame_Buffer& next = *std::next(device.LC_Buffer_List.begin(), no_mapping == nullptr ? 0 : 1);
        std::swap(next.sBuf.pMem, no_mapping);
        EXPECT_EQ(Read(), -1);
        std::swap(next.sBuf.pMem, no_mapping);
        EXPECT_TRUE(Marked_Damaged());
        EXPECT_EQ(frame.buffer.bytesused, Payload);
        EXPECT_EQ(frame.buff_Length, Payload + 256);
        EXPECT_TRUE(std::all_of(Bytes(), Bytes() + Payload, [](uint8_t byte) { return byte == 0; }));
        EXPECT_EQ(Requests(VIDIOC_QBUF), 1);
    }
}

TEST_F(Reading, ARefusedDequeueStillCopiesAndRequeues)
{
    Fail_With(VIDIOC_DQBUF, {EIO});
    Fail_With(VIDIOC_QBUF, {EINVAL});
    EXPECT_EQ(Read(), -1);
    EXPECT_EQ(Log_Names(), "VIDIOC_DQBUF VIDIOC_QBUF");
    EXPECT_EQ(frame.buffer.bytesused, 0U);
    EXPECT_EQ(frame.buff_Length, 256U);
    EXPECT_NE(frame.pMem, nullptr);
}

TEST_F(Reading, ADequeueResultBelowMinusOneLeavesTheRecordAlone)
{
    Fail(Node, VIDIOC_DQBUF, {EIO, -2});
    Captured_Stderr printed;
    EXPECT_EQ(Read(), -1);
    EXPECT_EQ(printed.Text(), "NULL \n");
    EXPECT_EQ(Log_Names(), "VIDIOC_DQBUF");
    EXPECT_EQ(frame.pMem, nullptr);
}

TEST_F(Reading, AFailedRequeueMakesTheResultMinusOne)
{
    Fail_With(VIDIOC_QBUF, {EINVAL});
    EXPECT_EQ(Read(), -1);
    EXPECT_EQ(frame.buffer.bytesused, Payload);
}

TEST_F(Reading, WithoutBuffersNoRequestIsIssued)
{
    std::list<Frame_Buffer> none;
    EXPECT_EQ(Frame_Buffer::read_buff(static_cast<uint32_t>(device.Video_Device_FD), none, &frame), -1);
    EXPECT_EQ(Log_Names(), "");
}

TEST_F(Reading, ReadingWithoutADestinationPrintsANameAndRequeues)
{
    Captured_Stderr printed;
    Deliver_Frames(Node, 1);
    EXPECT_EQ(Frame_Buffer::read_buff(static_cast<uint32_t>(device.Video_Device_FD), device.LC_Buffer_List), 0);
    EXPECT_EQ(Log_Names(), "VIDIOC_DQBUF VIDIOC_QBUF");
    long seconds = 0;
    long microseconds = 0;
    int end = 0;
    const std::string text = printed.Text();
    EXPECT_EQ(std::sscanf(text.c_str(), "/mnt/hgfs/Work_Linux_SDK/DEBUG_SAVE/%ld_%ld.jpg \n%n", &seconds, &microseconds,
                          &end),
              2);
    EXPECT_EQ(text.size(), static_cast<std::size_t>(end));
    EXPECT_LE(std::abs(seconds - time(nullptr)), 5);
}

TEST_F(Reading, UnmapFailsWithoutAMappingAndLeavesTheAddress)
{
    Frame_Buffer never_mapped;
    EXPECT_EQ(never_mapped.unmap_buff(), -1);
    Frame_Buffer& first = device.LC_Buffer_List.front();
    const void* where = first.sBuf.pMem;
    EXPECT_EQ(first.unmap_buff(), 0);
    EXPECT_EQ(first.sBuf.pMem, where);
    device.LC_Buffer_List.pop_front();
}

TEST_F(Reading, AFailedQueryMapsNothing)
{
    Frame_Buffer buffer;
    buffer.sBuf.index = 9;
    EXPECT_EQ(buffer.query_buff(static_cast<uint32_t>(device.Video_Device_FD)), -1);
    EXPECT_EQ(buffer.sBuf.pMem, nullptr);
    EXPECT_EQ(buffer.queue_buff(static_cast<uint32_t>(device.Video_Device_FD)), -1);
    EXPECT_EQ(Log_Names(), "VIDIOC_QUERYBUF VIDIOC_QBUF");
}

TEST_F(Reading, EachStepOfABufferSaysWhetherItWorked)
{
    const auto fd = static_cast<uint32_t>(device.Video_Device_FD);
    Frame_Buffer& first = device.LC_Buffer_List.front();
    ASSERT_EQ(first.unmap_buff(), 0);
    EXPECT_EQ(first.query_buff(fd), 0);
    Frame_Buffer again = first;
    EXPECT_EQ(again.map_buff(fd), 0);
    EXPECT_NE(again.sBuf.pMem, MAP_FAILED);
    EXPECT_EQ(again.unmap_buff(), 0);
    EXPECT_EQ(again.map_buff(static_cast<uint32_t>(-1)), -1);

    ASSERT_EQ(Read(), 0);
    Deliver_Frames(Node, 1);
    v4l2_buffer taken = Capture_Buffer(0);
    ASSERT_EQ(ioctl(device.Video_Device_FD, VIDIOC_DQBUF, &taken), 0);
    Frame_Buffer returned;
    returned.sBuf.index = taken.index;
    EXPECT_EQ(returned.queue_buff(fd), 0);
    EXPECT_EQ(returned.queue_buff(fd), -1) << "the driver has it already";
}

TEST_F(Reading, MapsOffsetsBeyondTwoGigabytes)
{
    constexpr off_t offset = 0x90000000;
    constexpr uint32_t length = 4096;
    const int file = memfd_create("sparse", 0);
    ASSERT_EQ(ftruncate(file, offset + length), 0);
    ASSERT_EQ(pwrite(file, "here", 4, offset), 4);
    Frame_Buffer buffer;
    buffer.sBuf.buff_Length = length;
    buffer.sBuf.buff_Offset = offset;
    ASSERT_EQ(buffer.map_buff(static_cast<uint32_t>(file)), 0);
    EXPECT_EQ(std::memcmp(buffer.sBuf.pMem, "here", 4), 0);
    EXPECT_EQ(buffer.unmap_buff(), 0);
    close(file);
}

TEST_F(Reading, AFailedMappingMakesTheQueryFail)
{
    Frame_Buffer buffer;
    Fail(Node, Call_Mmap, {ENOMEM});
    EXPECT_EQ(buffer.query_buff(static_cast<uint32_t>(device.Video_Device_FD)), -1);
    EXPECT_EQ(buffer.sBuf.pMem, MAP_FAILED);
    EXPECT_NE(buffer.sBuf.buff_Length, 0U);
}

TEST_F(Reading, AnAllocationFailureStillRequeuesTheBuffer)
{
    ASSERT_EQ(Read(), 0);
    Clear_Log();
    Alter_Dequeued([](v4l2_buffer& buffer) { buffer.bytesused = 2 * Payload; });
    allocation_watch::Refuse_Arrays_From(2 * Payload);
    EXPECT_THROW(Read(), std::bad_alloc);
    allocation_watch::Refuse_Arrays_From(SIZE_MAX);
    EXPECT_EQ(frame.pMem, nullptr) << "the old block is freed";
    EXPECT_EQ(Log_Names(), "VIDIOC_DQBUF VIDIOC_QBUF");
}

}  // namespace
