// Declares the consumer of a running capture.
#ifndef WQZ_TOOL_CONSUMER_H
#define WQZ_TOOL_CONSUMER_H

#include <cstdint>
#include <optional>
#include <string>

#include "capture_thread.h"
#include "picture.h"
#include "statistics.h"
#include "USBCam_API/USBCam_API.h"

/// When a capture is complete. Without a limit it goes on until it is interrupted.
struct Capture_Limits {
    std::optional<uint64_t> files;
    std::optional<double> seconds;  ///< counted from the first frame
};

/// Takes the frames of a running capture and saves them.
class Consumer {
public:
    /// @param node_path  the camera's node, to see whether the camera is still there
    /// @param camera_format  the FourCC of the frames that the camera sends
    Consumer(void* camera_handle, const std::string& node_path, uint32_t camera_format,
             const Capture_Limits& capture_limits);

    /// Saves frames until the capture is complete or `interrupted` returns true.
    /// @throws Tool_Error  when the camera stops delivering or a file cannot be written
    void Run(const Capture_Thread& loop, Picture_Folder& folder, bool (*interrupted)());

    bool Is_Complete() const;
    const Statistics& Counts() const { return statistics; }

private:
    using Clock = Statistics::Clock;

    void Take(const Frame_Buffer_Data& frame, Picture_Folder& folder);
    void Check_Silence(const Capture_Thread& loop);
    void Show_Progress();

    void* handle;
    std::string node;
    uint32_t fourcc;
    Capture_Limits limits;
    Statistics statistics;
    uint64_t saved = 0;
    Clock::time_point next_look;
    Clock::time_point next_progress;
};

#endif  // WQZ_TOOL_CONSUMER_H
