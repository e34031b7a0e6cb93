// A test fixture with one virtual USB camera, and a capture of standard error.
#ifndef WQZ_TESTS_SUPPORT_CAMERA_FIXTURE_H
#define WQZ_TESTS_SUPPORT_CAMERA_FIXTURE_H

#include <gtest/gtest.h>
#include <virtual_camera/virtual_camera.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "USBCam_API/USBCam_API.h"

/// One frame size with its discrete intervals.
inline virtual_camera::Frame_Size Discrete_Size(uint32_t width, uint32_t height, std::vector<v4l2_fract> intervals)
{
    return {width, height, width, height, 0, 0, std::move(intervals), false};
}

/// One virtual USB camera at Node, freshly plugged in. The log records its requests.
class Camera_Fixture : public testing::Test {
protected:
    static constexpr const char* Node = "/dev/video0";

    Camera_Fixture();
    ~Camera_Fixture() override;

    /// The record that discovery would make.
    static v4l2_dev_sys_data_t Camera_Record(const std::string& node = Node);

    /// Makes the next calls of a request fail with each of the errors in turn.
    static void Fail_With(uint32_t request, const std::vector<int>& errors);

    /// How often a request was made since the log began.
    static int Requests(uint32_t request);

    /// @return the message of a retrying request that gives up
    static std::string Giving_Up(uint32_t request, int error);
};

/// The numbers of the frames that the driver handed out since the stream was started, in their order, by the log.
std::vector<uint32_t> Numbers_Handed_Out(const std::string& node);

/// Captures standard error while it lives. Only the reports of sanitizers are printed all the same.
class Captured_Stderr {
public:
    Captured_Stderr() { testing::internal::CaptureStderr(); }
    ~Captured_Stderr()
    {
        const std::string text = taken ? "" : testing::internal::GetCapturedStderr();
        if (text.find("Sanitizer") != std::string::npos) {
            std::fputs(text.c_str(), stderr);
        }
    }
    Captured_Stderr(const Captured_Stderr&) = delete;
    Captured_Stderr& operator=(const Captured_Stderr&) = delete;

    /// @return what was printed; call it once
    std::string Text()
    {
        taken = true;
        return testing::internal::GetCapturedStderr();
    }

private:
    bool taken = false;
};

#endif  // WQZ_TESTS_SUPPORT_CAMERA_FIXTURE_H
