// Values of controls as users write and read them.
#ifndef WQZ_CAMERA_CONTROL_VALUE_H
#define WQZ_CAMERA_CONTROL_VALUE_H

#include <string>
#include <vector>

#include "Camera/wqz_camera.h"

namespace wqz_camera {

/// @return the name in lower case, with an underscore for each run of other characters than letters and digits
std::string Control_Key(const std::string& name);

/// Reads what a user wrote for a control that is not a string: a number, "default", on or off, the name of an item.
/// @param items  of a menu
/// @throws Failure
int64_t Parse_Value(const std::string& text, const WQZ_Camera_Control& control,
                    const std::vector<WQZ_Camera_Menu_Item>& items);

/// @return the name of the menu item, or the number
std::string Value_Text(int64_t value, const std::vector<WQZ_Camera_Menu_Item>& items);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_CONTROL_VALUE_H
