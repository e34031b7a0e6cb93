// A test fixture with an open handle of the camera interface on one virtual camera.
#ifndef WQZ_TESTS_SUPPORT_OPEN_CAMERA_H
#define WQZ_TESTS_SUPPORT_OPEN_CAMERA_H

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <string>
#include <vector>

#include "Camera/wqz_camera.h"
#include "support/camera_fixture.h"
#include "support/frame_tally.h"

/// @return a record with its size set and all else 0
template <typename Record>
Record Sized()
{
    Record record{};
    record.size = sizeof record;
    return record;
}

inline std::string Explanation(WQZ_Camera* camera)
{
    char text[2048] = "";
    EXPECT_GE(WQZ_Camera_Explain(camera, text, sizeof text), 0);
    return text;
}

inline WQZ_Camera_Request Request_For(uint32_t fourcc, uint32_t width, uint32_t height,
                                      WQZ_Camera_Fraction interval = {0, 0}, uint32_t flags = 0)
{
    auto request = Sized<WQZ_Camera_Request>();
    request.fourcc = fourcc;
    request.width = width;
    request.height = height;
    request.interval = interval;
    request.flags = flags;
    return request;
}

inline bool Is_Among(int32_t result, std::initializer_list<int32_t> allowed)
{
    return std::find(allowed.begin(), allowed.end(), result) != allowed.end();
}

/// Whether the memory still holds what the camera sent under this number.
inline bool Holds_Its_Bytes(const WQZ_Camera_Frame& frame)
{
    const std::vector<uint8_t> bytes = virtual_camera::Frame_Bytes("/dev/video0", frame.sequence);
    return std::equal(bytes.begin(), bytes.end(), frame.data, frame.data + frame.length);
}

/// Measures how long a call takes.
class Stopwatch {
public:
    std::chrono::milliseconds Elapsed() const
    {
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    }

private:
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

/// The virtual camera at Node, opened, its frames held back; the log begins after the open.
class Open_Camera : public Camera_Fixture {
protected:
    Open_Camera()
    {
        EXPECT_EQ(WQZ_Camera_Open(&camera, Node), 0) << Explanation(nullptr);
        virtual_camera::Hold_Frames(Node);
        virtual_camera::Clear_Log();
    }
    ~Open_Camera() override
    {
        if (camera != nullptr) {
            EXPECT_EQ(Close(), 0) << Explanation(nullptr);
        }
    }

    int32_t Close()
    {
        if (accounts_for_frames) {
            tally.Expect_Balance(Counts());
        }
        tally.Clear();
        return WQZ_Camera_Close(std::exchange(camera, nullptr));
    }

    int32_t Start(const WQZ_Camera_Request& request)
    {
        if (accounts_for_frames) {
            tally.Expect_Balance(Counts());
        }
        const int32_t result = WQZ_Camera_Start(camera, &request, &mode);
        tally.Clear();
        return result;
    }
    void Start_Yuyv() { ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_YUYV, 320, 240)), 0) << Explanation(camera); }
    void Start_Mjpeg() { ASSERT_EQ(Start(Request_For(V4L2_PIX_FMT_MJPEG, 320, 240)), 0) << Explanation(camera); }

    int32_t Read(WQZ_Camera_Frame& frame, int32_t timeout_ms = 2000, uint32_t flags = 0)
    {
        frame = Sized<WQZ_Camera_Frame>();
        const int32_t result = WQZ_Camera_Read(camera, &frame, timeout_ms, flags);
        if (result == 0) {
            tally.Add(frame);
        }
        return result;
    }

    /// Lets the camera deliver one frame and takes it.
    WQZ_Camera_Frame Next_Frame()
    {
        virtual_camera::Deliver_Frames(Node, 1);
        WQZ_Camera_Frame frame{};
        EXPECT_EQ(Read(frame), 0) << Explanation(camera);
        return frame;
    }

    static std::vector<uint8_t> Bytes(const WQZ_Camera_Frame& frame) { return {frame.data, frame.data + frame.length}; }

    WQZ_Camera_Counts Counts()
    {
        auto counts = Sized<WQZ_Camera_Counts>();
        EXPECT_EQ(WQZ_Camera_Counters(camera, &counts), 0);
        return counts;
    }

    WQZ_Camera* camera = nullptr;
    Frame_Tally tally;                ///< of the frames that Read has delivered since Start
    bool accounts_for_frames = true;  ///< false where a test invents numbers or reads without Read
    WQZ_Camera_Mode mode = Sized<WQZ_Camera_Mode>();
};

#endif  // WQZ_TESTS_SUPPORT_OPEN_CAMERA_H
