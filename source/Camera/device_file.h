// An open device node.
#ifndef WQZ_CAMERA_DEVICE_FILE_H
#define WQZ_CAMERA_DEVICE_FILE_H

#include <linux/videodev2.h>

#include <cstdint>
#include <string>

namespace wqz_camera {

/// Owns the descriptor of a video node, opened without waiting. Requests may be made on any thread.
class Device_File {
public:
    /// Opens the node. A failure shows in Error().
    explicit Device_File(const std::string& path);
    ~Device_File();
    Device_File(const Device_File&) = delete;
    Device_File& operator=(const Device_File&) = delete;

    /// @return 0, or the errno value of the failed open
    int Error() const { return error; }
    int Descriptor() const { return descriptor; }
    const std::string& Node() const { return node; }

    /// One request, repeated when a signal interrupts it.
    /// @return 0, or a negative errno value
    int Request(unsigned long code, void* argument) const;

    /// Asks the driver, since some drivers wake nobody when their camera is unplugged.
    bool Is_Gone() const;

private:
    std::string node;
    int descriptor;
    int error;
};

/// @return what the node itself can do, which in older drivers only `capabilities` tells
uint32_t Node_Capabilities(const v4l2_capability& capability);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_DEVICE_FILE_H
