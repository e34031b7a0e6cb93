// Finds the camera that the user names and opens a library session on it.
#ifndef WQZ_TOOL_CAMERA_H
#define WQZ_TOOL_CAMERA_H

#include <span>
#include <string>

#include "USBCam_API/USBCam_API.h"

/// The cameras that discovery found. The user may name a camera by its position in this list.
class Camera_List {
public:
    Camera_List();
    ~Camera_List();
    Camera_List(const Camera_List&) = delete;
    Camera_List& operator=(const Camera_List&) = delete;

    std::span<const v4l2_dev_sys_data_t> Records() const;

private:
    v4l2_dev_sys_data_t* records = nullptr;
    int32_t count;
};

/// Finds the camera that the user means.
/// @param selection  a node path, VID:PID in hexadecimal, an index of the list, or nothing when there is one camera
/// @return the camera's record, with Device_Path always filled in; its strings belong to `cameras`
/// @throws Tool_Error  when no camera or more than one matches
v4l2_dev_sys_data_t Select_Camera(const Camera_List& cameras, const std::string& selection);

/// @return "046d:0825"
std::string Id_Text(const v4l2_dev_sys_data_t& camera);

/// @return the text with control characters replaced by question marks; empty for null
std::string Printable(const char* text);

/// What a session delivers: pictures as the library makes them, or the bytes that the camera sent.
enum class Delivery { Pictures, Unconverted };

/// A library session on one camera, opened and with its list of modes read. No capture runs yet.
class Camera_Session {
public:
    explicit Camera_Session(const v4l2_dev_sys_data_t& camera, Delivery delivery = Delivery::Pictures);
    /// Unmaps the buffers, closes the camera and deletes the session. No capture may be running.
    ~Camera_Session();
    Camera_Session(const Camera_Session&) = delete;
    Camera_Session& operator=(const Camera_Session&) = delete;

    void* Handle() const { return handle; }

private:
    void* handle;
};

#endif  // WQZ_TOOL_CAMERA_H
