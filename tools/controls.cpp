// The verb "controls": prints and sets a camera's controls by name.
#include "controls.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <iomanip>
#include <iostream>
#include <optional>
#include <utility>

#include "camera.h"
#include "camera_node.h"
#include "text.h"
#include "tool_error.h"

namespace {

struct Control {
    v4l2_queryctrl query;
    std::string name;   ///< as the user types it: "white_balance_temperature"
    std::string items;  ///< the choices of a menu: "0 Disabled, 1 50 Hz"
};

struct Setting {
    const Control* control;
    int32_t value;
};

std::string Typed_Name(const std::string& driver_name)
{
    std::string name;
    for (const char c : driver_name) {
        const auto u = static_cast<unsigned char>(c);
        if (std::isalnum(u) != 0) {
            name += static_cast<char>(std::tolower(u));
        } else if (!name.empty() && name.back() != '_') {
            name += '_';
        }
    }
    return name.ends_with('_') ? name.substr(0, name.size() - 1) : name;
}

std::string Menu_Items(const Camera_Node& node, const v4l2_queryctrl& query)
{
    std::string items;
    for (int64_t index = query.minimum; index <= query.maximum; ++index) {
        v4l2_querymenu item{};
        item.id = query.id;
        item.index = static_cast<uint32_t>(index);
        if (!node.Request(VIDIOC_QUERYMENU, &item)) {
            continue;  // menus may have holes
        }
        const std::string text = query.type == V4L2_CTRL_TYPE_MENU ? Field_Text(item.name)
                                                                   : std::to_string(static_cast<int64_t>(item.value));
        Append_Item(items, ", ", std::to_string(index) + " " + Printable(text.c_str()));
    }
    return items;
}

bool Is_Menu(const v4l2_queryctrl& query)
{
    return query.type == V4L2_CTRL_TYPE_MENU || query.type == V4L2_CTRL_TYPE_INTEGER_MENU;
}

/// @return whether the value is one 32-bit number; the library reads and writes no others
bool Is_Plain(const v4l2_queryctrl& query)
{
    return Is_Menu(query) || query.type == V4L2_CTRL_TYPE_INTEGER || query.type == V4L2_CTRL_TYPE_BOOLEAN ||
           query.type == V4L2_CTRL_TYPE_BUTTON || query.type == V4L2_CTRL_TYPE_BITMASK;
}

std::vector<Control> Read_Controls(const Camera_Node& node)
{
    std::vector<Control> controls;
    v4l2_queryctrl query{};
    query.id = V4L2_CTRL_FLAG_NEXT_CTRL;
    while (node.Request(VIDIOC_QUERYCTRL, &query)) {
        if (Is_Plain(query) && (query.flags & V4L2_CTRL_FLAG_DISABLED) == 0) {
            controls.push_back({query, Typed_Name(Field_Text(query.name)), ""});
            if (Is_Menu(query)) {
                controls.back().items = Menu_Items(node, query);
            }
        }
        query.id |= V4L2_CTRL_FLAG_NEXT_CTRL;
    }
    return controls;
}

std::string Range_Text(const Control& control)
{
    const auto& query = control.query;
    if (query.type == V4L2_CTRL_TYPE_BUTTON) {
        return "a button: any value presses it";
    }
    std::string text = std::to_string(query.minimum) + ".." + std::to_string(query.maximum);
    if (query.step > 1) {
        text += " in steps of " + std::to_string(query.step);
    }
    text += ", default " + std::to_string(query.default_value);
    return control.items.empty() ? text : text + " (" + control.items + ")";
}

std::string State_Text(uint32_t flags)
{
    constexpr std::pair<uint32_t, const char*> States[] = {
        {V4L2_CTRL_FLAG_READ_ONLY, ", read-only"},
        {V4L2_CTRL_FLAG_INACTIVE, ", inactive (another control, such as an automatic one, overrides it)"},
        {V4L2_CTRL_FLAG_GRABBED, ", held by another program or by a running capture"}};
    std::string text;
    for (const auto& [flag, state] : States) {
        text += (flags & flag) != 0 ? state : "";
    }
    return text;
}

void Print_Controls(void* handle, const std::vector<Control>& controls)
{
    if (controls.empty()) {
        std::cerr << "the camera has no controls\n";
    }
    for (const Control& control : controls) {
        std::string value = "-";
        if ((control.query.flags & V4L2_CTRL_FLAG_WRITE_ONLY) == 0 && control.query.type != V4L2_CTRL_TYPE_BUTTON) {
            int32_t number = 0;
            (void)WQZ_USBCam_PU_Get(handle, static_cast<int32_t>(control.query.id), &number);
            value = std::to_string(number);
        }
        std::cout << std::left << std::setw(34) << control.name << std::right << std::setw(8) << value << "  "
                  << Range_Text(control) << State_Text(control.query.flags) << '\n';
    }
}

const Control& Control_Named(const std::vector<Control>& controls, const std::string& name)
{
    const auto found = std::ranges::find(controls, name, &Control::name);
    if (found == controls.end()) {
        std::string names;
        for (const Control& control : controls) {
            Append_Item(names, ", ", control.name);
        }
        throw Tool_Error("the camera has no control '" + name + "'; it has: " + (names.empty() ? "none" : names));
    }
    return *found;
}

Setting Parse_Setting(const std::vector<Control>& controls, const std::string& text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        throw Tool_Error("'" + text + "' is not a setting; write name=value");
    }
    const std::string name = text.substr(0, equals);
    const Control& control = Control_Named(controls, name);
    int32_t value = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data() + equals + 1, end, value);
    const bool any_value = control.query.type == V4L2_CTRL_TYPE_BUTTON || control.query.type == V4L2_CTRL_TYPE_BITMASK;
    const bool in_range = any_value || (value >= control.query.minimum && value <= control.query.maximum);
    if (error != std::errc{} || rest != end || !in_range) {
        throw Tool_Error(text + ": not a value that " + control.name + " takes: " + Range_Text(control));
    }
    if ((control.query.flags & V4L2_CTRL_FLAG_READ_ONLY) != 0) {
        throw Tool_Error(text + ": " + control.name + " is read-only");
    }
    return {&control, value};
}

void Apply(void* handle, const Setting& setting)
{
    const auto id = static_cast<int32_t>(setting.control->query.id);
    const std::string& name = setting.control->name;
    if (WQZ_USBCam_PU_Set(handle, id, setting.value) != 0) {
        throw Tool_Error("the camera refuses " + name + "=" + std::to_string(setting.value) + "; it takes " +
                         Range_Text(*setting.control) + State_Text(setting.control->query.flags));
    }
    if ((setting.control->query.flags & V4L2_CTRL_FLAG_WRITE_ONLY) != 0 ||
        setting.control->query.type == V4L2_CTRL_TYPE_BUTTON) {
        std::cout << name << ": done\n";
        return;
    }
    int32_t value = setting.value;
    (void)WQZ_USBCam_PU_Get(handle, id, &value);
    std::cout << name << ": " << value;
    if (value != setting.value) {
        std::cout << " (the camera chose this for " << setting.value << ")";
    }
    std::cout << '\n';
}

}  // namespace

void Run_Controls(const v4l2_dev_sys_data_t& camera, const std::vector<std::string>& settings)
{
    const std::vector<Control> controls = Read_Controls(Camera_Node(camera.Device_Path));
    std::vector<Setting> parsed;
    parsed.reserve(settings.size());
    for (const std::string& text : settings) {
        parsed.push_back(Parse_Setting(controls, text));
    }
    const Camera_Session session(camera);
    if (settings.empty()) {
        Print_Controls(session.Handle(), controls);
    }
    for (const Setting& setting : parsed) {
        Apply(session.Handle(), setting);
    }
}
