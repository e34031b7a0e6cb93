// Controls of a camera by the names and values that people type.
#include "control_set.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "text.h"
#include "tool_error.h"

namespace {

bool Is_Menu(uint32_t type)
{
    return type == WQZ_CAMERA_CONTROL_MENU || type == WQZ_CAMERA_CONTROL_INTEGER_MENU;
}

/// @return whether the control has one value; compound controls and classes have none
bool Has_One_Value(uint32_t type)
{
    return Is_Menu(type) || type == WQZ_CAMERA_CONTROL_INTEGER || type == WQZ_CAMERA_CONTROL_BOOLEAN ||
           type == WQZ_CAMERA_CONTROL_BUTTON || type == WQZ_CAMERA_CONTROL_INTEGER64 ||
           type == WQZ_CAMERA_CONTROL_STRING || type == WQZ_CAMERA_CONTROL_BITMASK;
}

std::optional<int64_t> Item_Named(const Control& control, const std::string& key)
{
    const auto item = std::ranges::find_if(control.items, [&](const auto& each) { return Key(each.name) == key; });
    return item == control.items.end() ? std::nullopt : std::optional<int64_t>(item->index);
}

std::optional<int64_t> Switch_Position(const Control& control, const std::string& key)
{
    const auto is_one_of = [&](std::initializer_list<const char*> words) { return std::ranges::count(words, key) > 0; };
    if (control.about.type == WQZ_CAMERA_CONTROL_BOOLEAN && is_one_of({"on", "true", "yes"})) {
        return 1;
    }
    if (control.about.type == WQZ_CAMERA_CONTROL_BOOLEAN && is_one_of({"off", "false", "no"})) {
        return 0;
    }
    return std::nullopt;
}

bool Takes(const Control& control, int64_t number)
{
    const auto is_item = [&](const auto& item) { return item.index == number; };
    switch (control.about.type) {
        case WQZ_CAMERA_CONTROL_MENU:
        case WQZ_CAMERA_CONTROL_INTEGER_MENU:
            return std::ranges::any_of(control.items, is_item);
        case WQZ_CAMERA_CONTROL_BUTTON:
        case WQZ_CAMERA_CONTROL_BITMASK:
            return true;
        default:
            return number >= control.about.minimum && number <= control.about.maximum;
    }
}

/// @return what the camera refused, with the reason; empty when it is at its default or nothing can be done
std::string Reset_One(wqz::Camera& camera, const Control& control)
{
    const bool is_state = control.Is_Readable() && !control.Is_String();
    if (!is_state || control.Has(WQZ_CAMERA_CONTROL_FLAG_READ_ONLY)) {
        return "";
    }
    try {
        const int64_t wanted = control.about.default_value;
        if (camera.Get(control.about.id).number != wanted) {
            camera.Set({control.about.id, wanted});
        }
        return "";
    } catch (const wqz::Camera_Error& error) {
        return error.what();
    }
}

}  // namespace

std::vector<Control> Read_Controls(const wqz::Camera& camera)
{
    std::vector<Control> controls;
    for (const WQZ_Camera_Control& about : camera.Controls()) {
        if (Has_One_Value(about.type) && (about.flags & WQZ_CAMERA_CONTROL_FLAG_DISABLED) == 0) {
            controls.push_back({about, {}});
            if (Is_Menu(about.type)) {
                controls.back().items = camera.Menu(about.id);
            }
        }
    }
    return controls;
}

const Control& Control_Named(const std::vector<Control>& controls, const std::string& name)
{
    const auto found = std::ranges::find_if(controls, [&](const auto& each) { return each.about.key == Key(name); });
    if (found == controls.end()) {
        std::vector<std::string> names;
        std::string list;
        for (const Control& control : controls) {
            names.emplace_back(control.about.key);
            Append_Item(list, ", ", names.back());
        }
        throw Tool_Error("the camera has no control '" + name + "'" + Suggestion(name, names) +
                         " It has: " + (list.empty() ? "none" : list));
    }
    return *found;
}

std::string Range_Text(const Control& control)
{
    const WQZ_Camera_Control& about = control.about;
    const std::string bounds = std::to_string(about.minimum) + ".." + std::to_string(about.maximum);
    if (about.type == WQZ_CAMERA_CONTROL_BUTTON) {
        return "a button: any value presses it";
    }
    if (control.Is_String()) {
        return "a text of " + bounds + " bytes";
    }
    std::string text;
    for (const auto& item : control.items) {
        Append_Item(text, ", ", std::to_string(item.index) + " " + Printable(item.name));
    }
    if (control.items.empty()) {
        text = about.type == WQZ_CAMERA_CONTROL_BOOLEAN ? "on or off" : bounds;
        text += about.step > 1 ? " in steps of " + std::to_string(about.step) : "";
    }
    return text + "; default " + Number_Text(control, about.default_value);
}

std::string Number_Text(const Control& control, int64_t number)
{
    if (control.about.type == WQZ_CAMERA_CONTROL_BOOLEAN) {
        return number == 0 ? "off" : "on";
    }
    const auto item = std::ranges::find_if(control.items, [&](const auto& each) { return each.index == number; });
    return item == control.items.end() ? std::to_string(number) : Printable(item->name);
}

wqz::Setting Parse_Setting(const Control& control, const std::string& text)
{
    const std::string key = Key(text);
    if (control.Is_String()) {
        wqz::Setting setting(control.about.id, text);
        setting.to_default = key == "default";
        return setting;
    }
    // Items of an integer menu are numbers themselves, so names go before indices.
    auto number = key == "default" ? control.about.default_value : Item_Named(control, key);
    number = number ? number : Switch_Position(control, key);
    number = number ? number : Whole_Number(text);
    if (!number || !Takes(control, *number)) {
        std::vector<std::string> names;
        std::ranges::transform(control.items, std::back_inserter(names), [](const auto& item) { return item.name; });
        throw Tool_Error("'" + text + "' is not a value of " + control.about.key + Suggestion(text, names) +
                         " It takes: " + Range_Text(control));
    }
    return {control.about.id, *number};
}

// Twice, because some controls can be set only when another one, such as an automatic, was reset.
std::vector<std::string> Reset_Controls(wqz::Camera& camera)
{
    std::vector<std::string> refusals;
    for (const bool last : {false, true}) {
        for (const Control& control : Read_Controls(camera)) {
            const std::string refusal = Reset_One(camera, control);
            if (last && !refusal.empty() && !control.Has(WQZ_CAMERA_CONTROL_FLAG_INACTIVE)) {
                refusals.push_back(refusal);
            }
        }
    }
    return refusals;
}
