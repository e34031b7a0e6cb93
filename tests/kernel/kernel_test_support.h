// Support for tests on the kernel's own drivers: commands, cameras, captured frames, expected pictures.
#ifndef WQZ_TESTS_KERNEL_KERNEL_TEST_SUPPORT_H
#define WQZ_TESTS_KERNEL_KERNEL_TEST_SUPPORT_H

#include <chrono>
#include <cstdint>
#include <future>
#include <string>
#include <vector>

#include "support/record_tally.h"
#include "USBCam_API/USBCam_API.h"

// Where the camera program takes its commands, and where files for the host go.
constexpr char Camera_Fifo[] = "/tmp/usb_camera.fifo";
constexpr char Results_Directory[] = "/results";

struct Command_Result {
    int status;
    std::string output;  // standard output and standard error
};

/// Runs a command by the shell.
Command_Result Run_Command(const std::string& command);

/// Tells the camera program to do something: "pause SECONDS", "unplug".
void Tell_Usb_Camera(const std::string& what);

/// Plugs the USB camera in, when it is not, and waits until its nodes are there.
void Plug_In_Usb_Camera();

/// One discovered camera; owns the discovery array that it lies in. Its Device_Path is set, also off USB.
class Discovered_Camera {
public:
    /// Finds the camera of a driver ("uvcvideo", "vivid"); throws when there is none.
    explicit Discovered_Camera(const std::string& driver);
    ~Discovered_Camera() { WQZ_USBCam_DEVICE_FREE(pArray, Count); }
    Discovered_Camera(const Discovered_Camera&) = delete;
    Discovered_Camera& operator=(const Discovered_Camera&) = delete;

    v4l2_dev_sys_data_t S_Record{};
    std::string Node() const { return S_Record.device; }

private:
    v4l2_dev_sys_data_t* pArray = nullptr;
    int32_t Count = 0;
};

/// A frame as an application keeps it: copied out of the session's record.
struct Delivered_Frame {
    uint32_t index, sequence;
    Pix_Format format;
    std::vector<uint8_t> bytes;
};

/// One session through the flat functions, torn down in the documented order: the loop returned, buffers cleared,
/// closed, deleted. All frames of its capture must be accounted for.
class Capture_Session {
public:
    explicit Capture_Session(const Discovered_Camera& camera);
    ~Capture_Session();
    Capture_Session(const Capture_Session&) = delete;
    Capture_Session& operator=(const Capture_Session&) = delete;

    void* Handle() const { return pHandle; }

    /// Runs the capture loop on a thread of its own.
    void Start(const Pix_Format& mode);

    /// @return the next `count` frames; fewer when `patience` passes without one
    std::vector<Delivered_Frame> Take(size_t count, std::chrono::seconds patience = std::chrono::seconds(10));

    /// Ends the loop, and prints what became of the camera's frames. @return the loop's result
    int32_t Stop();

    const Record_Tally& Tally() const { return C_Tally; }

private:
    void* pHandle;
    std::future<int32_t> Loop;
    Record_Tally C_Tally;
};

/// A request as WQZ_USBCam_Video_DEAL_WITH takes it.
constexpr Pix_Format Motion_Jpeg(uint32_t width, uint32_t height, uint32_t fps)
{
    return {0, width, height, fps};
}

constexpr Pix_Format Yuyv(uint32_t width, uint32_t height, uint32_t fps)
{
    return {1, width, height, fps};
}

/// The bitmap that a YUYV frame must have become, by the formulas of the conversion.
std::vector<uint8_t> Expected_Bitmap(const std::vector<uint8_t>& yuyv, uint32_t width, uint32_t height);

/// @return the counter in the comment of a whole Motion-JPEG frame of the USB camera, -1 for any other bytes
int64_t Motion_Jpeg_Counter(const std::vector<uint8_t>& frame);

/// Sets vivid up for pictures that can be told from each other: colour bars that move to the right by Vivid_Step pixels
/// from picture to picture, from the same place at each start, without text.
void Make_Vivid_Repeatable();
constexpr uint32_t Vivid_Step = 4;

/// The pictures of such a capture, by number.
class Vivid_Pictures {
public:
    /// Takes picture 0 with v4l2-ctl.
    Vivid_Pictures(const std::string& node, const std::string& fourcc, uint32_t width, uint32_t height);

    /// @return the bytes of picture `number`, as the driver delivers them
    std::vector<uint8_t> Bytes(uint32_t number) const;

private:
    std::vector<uint8_t> cFirst;
    size_t Row_Bytes, Step_Bytes;
};

#endif  // WQZ_TESTS_KERNEL_KERNEL_TEST_SUPPORT_H
