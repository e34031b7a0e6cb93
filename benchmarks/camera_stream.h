// A capture through the library's camera interface.
#ifndef WQZ_BENCHMARKS_CAMERA_STREAM_H
#define WQZ_BENCHMARKS_CAMERA_STREAM_H

#include <cerrno>
#include <stdexcept>
#include <string>

#include "Camera/wqz_camera.h"

/// Captures with four buffers, like Mapped_Stream, and checks every result.
class Camera_Stream {
public:
    Camera_Stream(const std::string& node, uint32_t fourcc, uint32_t width, uint32_t height)
    {
        if (WQZ_Camera_Open(&camera, node.c_str()) != 0) {
            Fail();
        }
        WQZ_Camera_Request request{};
        request.size = sizeof request;
        request.fourcc = fourcc;
        request.width = width;
        request.height = height;
        WQZ_Camera_Mode mode{};
        mode.size = sizeof mode;
        if (WQZ_Camera_Start(camera, &request, &mode) != 0) {
            Fail();
        }
        if (mode.fourcc != fourcc || mode.width != width) {
            WQZ_Camera_Close(camera);
            throw std::runtime_error("mode refused");
        }
    }
    ~Camera_Stream() { WQZ_Camera_Close(camera); }
    Camera_Stream(const Camera_Stream&) = delete;
    Camera_Stream& operator=(const Camera_Stream&) = delete;

    int Descriptor() const { return WQZ_Camera_Descriptor(camera); }

    /// Takes a frame, hands it to `use` and releases it.
    /// @param patience_ms  how long to wait for the frame
    /// @return whether there was one
    template <typename Use>
    bool Take_Frame(Use use, int patience_ms = 1000)
    {
        WQZ_Camera_Frame frame{};
        frame.size = sizeof frame;
        const int result = WQZ_Camera_Read(camera, &frame, patience_ms, 0);
        if (result == -ETIMEDOUT) {
            return false;
        }
        if (result != 0) {
            throw std::runtime_error("no frame");
        }
        use(frame);
        if (WQZ_Camera_Release(&frame) != 0) {
            throw std::runtime_error("release refused");
        }
        return true;
    }

private:
    [[noreturn]] void Fail()
    {
        char reason[512] = "";
        WQZ_Camera_Explain(camera, reason, sizeof reason);
        WQZ_Camera_Close(camera);  // refuses the null of a failed open
        throw std::runtime_error(reason);
    }

    WQZ_Camera* camera = nullptr;
};

#endif  // WQZ_BENCHMARKS_CAMERA_STREAM_H
