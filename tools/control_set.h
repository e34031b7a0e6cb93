// Controls of a camera by the names and values that people type.
#ifndef WQZ_TOOL_CONTROL_SET_H
#define WQZ_TOOL_CONTROL_SET_H

#include <cstdint>
#include <string>
#include <vector>

#include "Camera/wqz_camera.hpp"

/// A control with the items that a menu has.
struct Control {
    WQZ_Camera_Control about;
    std::vector<WQZ_Camera_Menu_Item> items;

    bool Has(uint32_t flag) const { return (about.flags & flag) != 0; }
    bool Is_String() const { return about.type == WQZ_CAMERA_CONTROL_STRING; }
    bool Is_Readable() const
    {
        return about.type != WQZ_CAMERA_CONTROL_BUTTON && !Has(WQZ_CAMERA_CONTROL_FLAG_WRITE_ONLY);
    }
};

/// @return the controls that have one value each and are not disabled
std::vector<Control> Read_Controls(const wqz::Camera& camera);

/// @throws Tool_Error  when there is none; the message has the nearest name
const Control& Control_Named(const std::vector<Control>& controls, const std::string& name);

/// @return what the control takes: "0..255; default 128"
std::string Range_Text(const Control& control);

/// @return a number for people: "50 Hz", "on", "140"
std::string Number_Text(const Control& control, int64_t number);

/// @param text  a number, the name of a menu item, on or off, "default", or the text of a string control
/// @throws Tool_Error  for a value that the control does not take
wqz::Setting Parse_Setting(const Control& control, const std::string& text);

/// Sets all controls to their defaults.
/// @return what the camera refused, with the reasons; controls that another one overrides do not count
std::vector<std::string> Reset_Controls(wqz::Camera& camera);

#endif  // WQZ_TOOL_CONTROL_SET_H
