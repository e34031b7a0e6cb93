// The trace lines of the capture path: each writer's lines, and where the lines of a whole capture stand among requests
// and messages. The linker's --wrap leads every writer's WQZ_USBCam_Get_Cache here.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "Stream/video_stream.h"
#include "support/camera_fixture.h"
#include "support/waiting.h"
#include "USBCam/USBCam.h"

extern "C" char* __wrap_WQZ_USBCam_Get_Cache(void);

namespace {

using namespace virtual_camera;

// Each thread has a buffer of its own.
thread_local char cache[sizeof GLOG];
thread_local std::string last_line;
thread_local std::string journal;                  // one event a line
thread_local std::function<std::string()> events;  // what happened beside the trace since the last call

// "652 EVENT_LoopMode !" for a line of the session, whose numbers are part of the interface; "map_buff START!" for
// others.
std::string Short_Form(const std::string& line)
{
    char file[64], function[64], position[8];
    int number = 0;
    if (sscanf(line.c_str(), "\t File:[%63[^]]] line:[%d] Fun:[%63[^]]] %7[^\r]", file, &number, function, position) !=
        4) {
        return "not a trace line: " + line;
    }
    const std::string module = file;
    const std::string rest = std::string(function) + " " + position;
    EXPECT_EQ(line, "\t File:[" + module + "] line:[" + std::to_string(number) + "] Fun:[" + function + "] " +
                        position + "\r\n");
    if (module == "source//USBCam/USBCam") {
        return std::to_string(number) + " " + rest;
    }
    EXPECT_TRUE(module == "source//Stream/frame_buffer" || module == "source//Stream/video_stream") << module;
    return rest;
}

// Writes down the line that the last caller wrote, then what happened until now.
void Take_Line()
{
    if (cache[0] != '\0') {
        last_line = cache;
        journal += Short_Form(last_line) + "\n";
        cache[0] = '\0';
    }
    if (events) {
        journal += events();
    }
}

// What the operation writes on this thread.
std::string Traced(const std::function<void()>& operation)
{
    cache[0] = '\0';
    journal.clear();
    operation();
    Take_Line();
    return journal;
}

// The lines of a function of the session that enters and returns.
std::string Lines(int start, int end, const std::string& function)
{
    return std::to_string(start) + " " + function + " START!\n" + std::to_string(end) + " " + function + " END!\n";
}

std::string Repeated(int times, const std::string& text)
{
    return times == 0 ? "" : text + Repeated(times - 1, text);
}

class Tracing : public Camera_Fixture {
protected:
    Tracing() : record(Camera_Record()), session(&record) {}
    ~Tracing() override
    {
        events = nullptr;
        session.CLEAR_FRAME_BUFF();
        session.Video_Exe_End();
    }

    void Queue_Record() { session.SAVE_FRAME_BUFF(new Frame_Buffer_Data()); }

    // Runs a waiting call and wakes it.
    std::string Traced_Wait(const std::function<void()>& wait, const std::function<void()>& wake)
    {
        return Wait_And_Wake([&] { return Traced(wait); }, wake);
    }

    // Of one wait that times out and one frame.
    std::string Traced_Capture(Pix_Format mode)
    {
        Hold_Frames(Node);
        session.EVENT_LoopMode(2);
        Script_Select(Node, 0);
        Deliver_Frames(Node, 1);
        Clear_Log();
        testing::internal::CaptureStderr();
        events = [logged = std::size_t{0}]() mutable {
            std::string text;
            for (const std::vector<Log_Entry> log = Log(); logged < log.size(); ++logged) {
                text += log[logged].name + "\n";
            }
            text += testing::internal::GetCapturedStderr();
            testing::internal::CaptureStderr();
            return text;
        };
        const std::string traced = Traced([&] { session.Video_DEAL_WITH(&mode); });
        events = nullptr;
        (void)testing::internal::GetCapturedStderr();
        return traced;
    }

    v4l2_dev_sys_data_t record;
    USBCam session;
};

std::string Expected_Capture(const std::string& format_line)
{
    return R"(664 Video_DEAL_WITH START!
99 INIT_FRAME_RES START!
116 INIT_FRAME_RES END!
698 Video_DEAL_WITH !
VIDIOC_S_FMT
VIDIOC_G_PARM
VIDIOC_S_PARM
VIDIOC_REQBUFS
)" + Repeated(4, R"(query_buff START!
VIDIOC_QUERYBUF
map_buff START!
mmap
map_buff END!
query_buff END!
)") + Repeated(4, R"(queue_buff START!
VIDIOC_QBUF
queue_buff END!
)") + R"(VIDIOC_STREAMON
722 Video_DEAL_WITH !
731 Video_DEAL_WITH !
124 GET_FRAME_RES START!
149 GET_FRAME_RES END!
select
779 Video_DEAL_WITH !
select Timeout
731 Video_DEAL_WITH !
select
779 Video_DEAL_WITH !
805 Video_DEAL_WITH !
558 Read_Frame_BUFF START!
VIDIOC_DQBUF
VIDIOC_QBUF
639 Read_Frame_BUFF END!
809 Video_DEAL_WITH !
)" + format_line +
           R"(361 SAVE_FRAME_BUFF START!
369 SAVE_FRAME_BUFF END!
731 Video_DEAL_WITH !
124 GET_FRAME_RES START!
149 GET_FRAME_RES END!
QUIT SELECT EVENT!
894 Video_DEAL_WITH !
VIDIOC_STREAMOFF
904 Video_DEAL_WITH !
QUIT SELECT EVENT! Video_Stream_Stop_Stream
430 CLEAR_FRAME_BUFF START!
468 CLEAR_FRAME_BUFF END!
QUIT SELECT EVENT! CLEAR_FRAME_BUFF
922 Video_DEAL_WITH END!
)";
}

TEST_F(Tracing, ACaptureWritesTheseLinesBetweenItsRequestsAndMessages)
{
    EXPECT_EQ(Traced([&] { session.Video_DEAL_WITH_INIT(0); }), "487 Video_DEAL_WITH_INIT START!\n");
    for (const bool yuyv : {false, true}) {
        std::string traced = Traced_Capture({yuyv ? 1U : 0U, 320, 240, 30});
        std::erase(traced, '\r');
        EXPECT_EQ(traced, Expected_Capture(yuyv ? "819 Video_DEAL_WITH !\n" : "852 Video_DEAL_WITH !\n"));
        session.Video_Stream_Clear_Frame_Buff();
    }
    EXPECT_EQ(Traced([&] { session.Video_DEAL_WITH_UNINIT(); }), Lines(538, 544, "Video_DEAL_WITH_UNINIT"));
    Pix_Format mode{};
    EXPECT_EQ(
        Traced([&] { session.Video_DEAL_WITH(&mode); }),
        "664 Video_DEAL_WITH START!\n99 INIT_FRAME_RES START!\n116 INIT_FRAME_RES END!\n691 Video_DEAL_WITH END!\n");
}

TEST_F(Tracing, SessionOperationsWriteTheseLines)
{
    EXPECT_EQ(Traced([&] { USBCam other(&record); }), Lines(82, 90, "USBCam"));
    EXPECT_EQ(Traced([&] { session.EVENT_LoopMode(1); }), "652 EVENT_LoopMode !\n");
    EXPECT_EQ(Traced([&] { session.Read_Frame_BUFF(nullptr); }), Lines(558, 580, "Read_Frame_BUFF"));
    EXPECT_EQ(Traced([&] { session.SAVE_FRAME_RES(nullptr); }), Lines(348, 354, "SAVE_FRAME_RES"));

    EXPECT_EQ(Traced([&] { session.GET_FRAME_BUFF(false); }), Lines(204, 245, "GET_FRAME_BUFF"));
    EXPECT_EQ(Traced([&] { session.GET_FRAME_BUFF_NEWEST(false); }), Lines(262, 330, "GET_FRAME_BUFF_NEWEST"));
    EXPECT_EQ(Traced([&] { session.Video_STREAM_STATUS(false); }), Lines(162, 192, "Video_STREAM_STATUS"));

    Queue_Record();
    EXPECT_EQ(Traced([&] { session.Video_STREAM_STATUS(true); }), Lines(162, 168, "Video_STREAM_STATUS"));
    EXPECT_EQ(Traced([&] { session.SAVE_FRAME_RES(session.GET_FRAME_BUFF(true)); }),
              Lines(204, 251, "GET_FRAME_BUFF") + Lines(348, 354, "SAVE_FRAME_RES"));
    Queue_Record();
    EXPECT_EQ(Traced([&] { session.cFrame_RES.push_back(session.GET_FRAME_BUFF_NEWEST(true)); }),
              "262 GET_FRAME_BUFF_NEWEST START!\n")
        << "success writes no END line";
}

TEST_F(Tracing, WaitsWriteALineForEachOutcome)
{
    const auto wake = [&] { Mutex_Lock_Class(session.cMutex).Send_Cond(); };
    EXPECT_EQ(Traced_Wait([&] { session.GET_FRAME_BUFF(true); }, wake), Lines(204, 237, "GET_FRAME_BUFF"));
    EXPECT_EQ(Traced_Wait([&] { session.GET_FRAME_BUFF_NEWEST(true); }, wake),
              Lines(262, 322, "GET_FRAME_BUFF_NEWEST"));
    EXPECT_EQ(Traced_Wait([&] { session.Video_STREAM_STATUS(true); }, wake), Lines(162, 185, "Video_STREAM_STATUS"));
    const auto queue = [&] { Queue_Record(); };
    EXPECT_EQ(Traced_Wait([&] { session.Video_STREAM_STATUS(true); }, queue), Lines(162, 180, "Video_STREAM_STATUS"));
    session.CLEAR_FRAME_BUFF();
    EXPECT_EQ(Traced_Wait([&] { session.SAVE_FRAME_RES(session.GET_FRAME_BUFF(true)); }, queue),
              Lines(204, 251, "GET_FRAME_BUFF") + Lines(348, 354, "SAVE_FRAME_RES"));
}

TEST_F(Tracing, BufferAndDumpFunctionsWriteTheseLines)
{
    Frame_Buffer buffer;
    EXPECT_EQ(Traced([&] { buffer.unmap_buff(); }), "unmap_buff START!\n") << "a failure writes no END line";
    session.Video_Open();
    session.Video_Stream_Set_Frame_Buff(1);
    EXPECT_EQ(Traced([&] { session.Video_Stream_Clear_Frame_Buff(); }), "unmap_buff START!\nunmap_buff END!\n");

    std::vector<uint8_t> image(300, 1);
    image[0] = 0xFF;
    image[1] = 0xD8;
    testing::internal::CaptureStderr();
    EXPECT_EQ(Traced([&] { Frame_Buffer::MJPEG_Length(image.data(), 300U); }),
              "MJPEG_Length START!\nData_Vail_End START!\ndata_Vail START!\ndata_Vail END!\nData_Vail_End END!\n"
              "MJPEG_Length END!\n");
    EXPECT_EQ(Traced([&] { Video_Stream::Frame_buffer_Deal_With(nullptr, &buffer); }),
              "Frame_buffer_Deal_With !\nSave_Frame_buffer START!\nSave_Frame_buffer END!\n");
    const auto fd = static_cast<uint32_t>(session.Video_Device_FD);
    Fail(Node, VIDIOC_DQBUF, {EIO, -2, 1});
    EXPECT_EQ(Traced([&] { Frame_Buffer::read_buff(fd, session.LC_Buffer_List); }),
              "read_buff START!\nread_buff END!\n");
    EXPECT_EQ(Traced([&] { Frame_Buffer::read_buff(fd, session.LC_Buffer_List, nullptr); }),
              "read_buff START!\nread_buff END!\n");
    (void)testing::internal::GetCapturedStderr();
}

TEST_F(Tracing, EachReturnOfABufferFunctionHasItsOwnNumber)
{
    session.Video_Open();
    session.Video_Stream_Set_Frame_Buff(2);
    session.Video_Stream_Start_Stream();
    const auto fd = static_cast<uint32_t>(session.Video_Device_FD);
    std::set<std::string> last_lines;
    const auto expect_new_last_line = [&](const std::function<void()>& operation) {
        Traced(operation);
        EXPECT_TRUE(last_lines.insert(last_line).second) << last_line;
    };
    testing::internal::CaptureStderr();

    Frame_Buffer beyond;
    beyond.sBuf.index = 9;
    Frame_Buffer copy = session.LC_Buffer_List.front();
    expect_new_last_line([&] { beyond.query_buff(fd); });
    expect_new_last_line([&] { copy.query_buff(fd); });
    expect_new_last_line([&] { beyond.queue_buff(fd); });
    Fail(Node, VIDIOC_QBUF, {0, 0});  // the buffer is queued already, so the request must not reach the driver
    expect_new_last_line([&] { copy.queue_buff(fd); });
    copy.unmap_buff();

    Frame_Buffer_Data frame{};
    const auto read = [&] { Frame_Buffer::read_buff(fd, session.LC_Buffer_List, &frame); };
    const auto read_away = [&] { Frame_Buffer::read_buff(fd, session.LC_Buffer_List); };
    expect_new_last_line(read);
    expect_new_last_line(read_away);
    Fail(Node, VIDIOC_DQBUF, {EIO, -2, 2});
    expect_new_last_line(read);
    expect_new_last_line(read_away);
    delete[] static_cast<uint8_t*>(frame.pMem);

    uint8_t images[3][6] = {{1, 2}, {0xFF, 0xD8, 1, 2, 3, 4}, {0xFF, 0xD8, 1, 2, 0xFF, 0xD9}};
    v4l2_buffer length{};
    length.bytesused = 6;
    for (uint8_t* image : images) {
        expect_new_last_line([&] { Frame_Buffer::MJPEG_Length(image, &length); });
        expect_new_last_line([&] { Frame_Buffer::MJPEG_Length(image, 6U); });
    }
    (void)testing::internal::GetCapturedStderr();
}

TEST_F(Tracing, ALineAndItsTerminatorReplaceTheStartOfTheBuffer)
{
    std::memset(cache, 'x', sizeof cache);
    cache[0] = '\0';
    session.EVENT_LoopMode(1);
    const char line[] = "\t File:[source//USBCam/USBCam] line:[652] Fun:[EVENT_LoopMode] !\r\n";
    EXPECT_STREQ(cache, line);
    EXPECT_EQ(cache[sizeof line], 'x');
}

}  // namespace

extern "C" char* __wrap_WQZ_USBCam_Get_Cache(void)
{
    Take_Line();
    return cache;
}
