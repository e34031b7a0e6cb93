// Controls and their values as JSON.
#ifndef WQZ_TOOL_CONTROL_JSON_H
#define WQZ_TOOL_CONTROL_JSON_H

#include <array>
#include <nlohmann/json_fwd.hpp>
#include <optional>

#include "control_set.h"

/// A control and what reading it gave.
struct Control_Reading {
    const Control* control;
    std::optional<wqz::Control_Value> value;  ///< nothing when it was refused, and for a control that cannot be read
};

/// What keeps a control from being set.
struct Control_State {
    uint32_t flag;
    const char* name;  ///< in JSON
    const char* text;
};

constexpr std::array<Control_State, 3> Control_States{
    {{WQZ_CAMERA_CONTROL_FLAG_READ_ONLY, "read-only", "read-only"},
     {WQZ_CAMERA_CONTROL_FLAG_INACTIVE, "inactive",
      "inactive (another control, such as an automatic one, overrides it)"},
     {WQZ_CAMERA_CONTROL_FLAG_GRABBED, "grabbed", "held by another program or by a running capture"}}};

nlohmann::ordered_json Control_Json(const Control_Reading& reading);

#endif  // WQZ_TOOL_CONTROL_JSON_H
