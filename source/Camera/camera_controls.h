// Reading and setting the controls of a camera.
#ifndef WQZ_CAMERA_CONTROLS_H
#define WQZ_CAMERA_CONTROLS_H

#include <string>
#include <vector>

#include "Camera/device_file.h"
#include "Camera/wqz_camera.h"

namespace wqz_camera {

/// A control with the value that was set, for setting it again.
struct Set_Value {
    uint32_t id = 0;
    uint32_t type = 0;
    int64_t value = 0;
    std::string text;  ///< of a string control
};

std::vector<WQZ_Camera_Control> List_Controls(const Device_File& device);

/// @throws Failure  when the camera has no such menu
std::vector<WQZ_Camera_Menu_Item> List_Menu(const Device_File& device, uint32_t id);

/// Reads the control that `setting` names, into `setting`.
/// @throws Failure
void Get_Control(const Device_File& device, WQZ_Camera_Setting& setting);

/// Sets the control that `setting` names, and notes in it what was set.
/// @throws Failure
Set_Value Set_Control(const Device_File& device, WQZ_Camera_Setting& setting);

/// Sets a value again. Leaves controls alone that an automatic control rules at present.
/// @throws Failure
void Restore_Control(const Device_File& device, const Set_Value& value);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_CONTROLS_H
