#ifndef WQZ_TOOL_CAMERA_H
#define WQZ_TOOL_CAMERA_H

#include <span>
#include <string>

#include "USBCam_API/USBCam_API.h"

/// The cameras found, in the order whose positions the user may name.
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
/// @return its record with Device_Path filled in any case; the strings it points at belong to `cameras`
/// @throws Tool_Error  when there is no such camera, or more than one
v4l2_dev_sys_data_t Select_Camera(const Camera_List& cameras, const std::string& selection);

/// @return "046d:0825"
std::string Id_Text(const v4l2_dev_sys_data_t& camera);

/// @return the text with anything unprintable replaced; null reads as empty
std::string Printable(const char* text);

/// How frames are wanted: as the library's pictures, or with the bytes that the camera sent.
enum class Delivery { Pictures, Unconverted };

/// A library session on one camera: open, with its catalogue read, and no capture yet.
class Camera_Session {
public:
    explicit Camera_Session(const v4l2_dev_sys_data_t& camera, Delivery delivery = Delivery::Pictures);
    /// Unmaps, closes and deletes. No capture may be running.
    ~Camera_Session();
    Camera_Session(const Camera_Session&) = delete;
    Camera_Session& operator=(const Camera_Session&) = delete;

    void* Handle() const { return handle; }

private:
    void* handle;
};

#endif  // WQZ_TOOL_CAMERA_H
