// Support for tests of the camera interface on the kernel's own drivers.
#ifndef WQZ_TESTS_KERNEL_CAMERA_SUPPORT_H
#define WQZ_TESTS_KERNEL_CAMERA_SUPPORT_H

#include <gtest/gtest.h>
#include <linux/videodev2.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "Camera/wqz_camera.h"
#include "kernel_test_support.h"
#include "support/frame_tally.h"

/// @return the library's sentence about the last failure; of this thread without a camera
std::string Explanation(WQZ_Camera* camera = nullptr);

/// @return a record with its size set
template <typename Record>
Record Sized()
{
    Record record{};
    record.size = sizeof record;
    return record;
}

/// An exact request. A rate of 0 leaves it to the camera.
WQZ_Camera_Request Exactly(uint32_t fourcc, uint32_t width, uint32_t height, uint32_t fps);

/// A frame on loan; gives it back at its end.
class Loan {
public:
    Loan() = default;
    ~Loan();
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

    /// @return what WQZ_Camera_Release returns
    int Release();
    std::vector<uint8_t> Bytes() const { return {frame.data, frame.data + frame.length}; }

    WQZ_Camera_Frame frame = Sized<WQZ_Camera_Frame>();
};
using Loans = std::vector<std::unique_ptr<Loan>>;

/// An open camera; closes it at its end. All frames of each capture must be accounted for.
class Camera {
public:
    /// Fails the test when the camera cannot be opened.
    explicit Camera(const std::string& name);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    WQZ_Camera* Handle() const { return pHandle; }
    std::string Node();

    /// @return what WQZ_Camera_Start returns; S_Mode holds the mode
    int Start(const WQZ_Camera_Request& request);

    /// @return what WQZ_Camera_Read returns
    int Read(WQZ_Camera_Frame& frame, int timeout_ms, uint32_t flags = 0);

    /// Reads so many frames and keeps them. Fails the test when one does not come within ten seconds.
    Loans Hold(size_t count);

    /// Reads so many frames, gives each back at once and returns copies. Fails the test as Hold does.
    std::vector<Delivered_Frame> Take(size_t count);

    WQZ_Camera_Counts Counters();

    /// @return what WQZ_Camera_Set_Controls returns for one control, set by text
    int Set(const std::string& name, const std::string& text);

    /// @return what WQZ_Camera_Close returns; the handle is gone
    int Close();

    WQZ_Camera_Mode S_Mode = Sized<WQZ_Camera_Mode>();

private:
    WQZ_Camera* pHandle = nullptr;
    Frame_Tally C_Tally;  // since Start
};

/// v4l2-ctl as another program that captures. It runs until it is ended.
class Other_Capture {
public:
    /// Returns once the first frame has come.
    explicit Other_Capture(const std::string& node);
    ~Other_Capture() { End(); }
    Other_Capture(const Other_Capture&) = delete;
    Other_Capture& operator=(const Other_Capture&) = delete;

    void End();

private:
    pid_t Process = -1;
    int Output = -1;
};

/// Checks that v4l2-ctl gets frames from a camera in this mode, which it only does when nobody else has buffers there.
void Expect_Free_For_Others(const std::string& node, const std::string& fourcc, uint32_t width, uint32_t height);

/// Runs `body` in a forked process. @return its result, from 0 to 255, or -1 when it did not end by itself
int In_Another_Process(int (*body)(const std::string& argument), const std::string& argument);

#endif  // WQZ_TESTS_KERNEL_CAMERA_SUPPORT_H
