// Values of controls from and to text.
#include "Camera/control_value.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <optional>

#include "Camera/failure.h"

namespace wqz_camera {

namespace {

std::optional<int64_t> Number(const std::string& text)
{
    char* end = nullptr;
    errno = 0;
    const bool hexadecimal = text.find("0x") != std::string::npos || text.find("0X") != std::string::npos;
    const long long number = std::strtoll(text.c_str(), &end, hexadecimal ? 16 : 10);
    const bool whole = !text.empty() && *end == '\0' && errno == 0;
    return whole ? std::optional<int64_t>(number) : std::nullopt;
}

std::optional<int64_t> Switch_Position(const std::string& key)
{
    if (key == "on" || key == "true" || key == "yes") {
        return 1;
    }
    if (key == "off" || key == "false" || key == "no") {
        return 0;
    }
    return std::nullopt;
}

std::optional<int64_t> Item_Index(const std::string& text, const std::vector<WQZ_Camera_Menu_Item>& items)
{
    const auto found = std::find_if(items.begin(), items.end(), [&](const WQZ_Camera_Menu_Item& item) {
        return Control_Key(item.name) == Control_Key(text);
    });
    return found == items.end() ? std::nullopt : std::optional<int64_t>(found->index);
}

std::string Expected(const WQZ_Camera_Control& control, const std::vector<WQZ_Camera_Menu_Item>& items)
{
    if (control.type == WQZ_CAMERA_CONTROL_BOOLEAN) {
        return "on or off";
    }
    if (items.empty()) {
        return "a number from " + std::to_string(control.minimum) + " to " + std::to_string(control.maximum);
    }
    std::string names;
    for (const WQZ_Camera_Menu_Item& item : items) {
        names += (names.empty() ? "" : ", ") + std::string(item.name);
    }
    return "one of " + names;
}

}  // namespace

std::string Control_Key(const std::string& name)
{
    std::string key;
    for (const char letter : name) {
        const auto code = static_cast<unsigned char>(letter);
        if (std::isalnum(code) != 0) {
            key += static_cast<char>(std::tolower(code));
        } else if (!key.empty() && key.back() != '_') {
            key += '_';
        }
    }
    if (!key.empty() && key.back() == '_') {
        key.pop_back();
    }
    return key;
}

// Tries the names of items before indices, because the names in an integer menu are numbers too.
int64_t Parse_Value(const std::string& text, const WQZ_Camera_Control& control,
                    const std::vector<WQZ_Camera_Menu_Item>& items)
{
    const std::string key = Control_Key(text);
    if (key == "default") {
        return control.default_value;
    }
    std::optional<int64_t> value = Item_Index(text, items);
    if (!value && control.type == WQZ_CAMERA_CONTROL_BOOLEAN) {
        value = Switch_Position(key);
    }
    if (!value) {
        value = Number(text);
    }
    if (!value) {
        throw Failure(EINVAL, std::string(control.key) + " takes " + Expected(control, items) + ", or default; not \"" +
                                  text + "\".");
    }
    return *value;
}

std::string Value_Text(int64_t value, const std::vector<WQZ_Camera_Menu_Item>& items)
{
    const auto found =
        std::find_if(items.begin(), items.end(), [&](const WQZ_Camera_Menu_Item& item) { return item.index == value; });
    return found == items.end() ? std::to_string(value) : found->name;
}

}  // namespace wqz_camera
