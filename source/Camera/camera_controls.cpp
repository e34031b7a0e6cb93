// Reading and setting controls through the extended requests.
#include "Camera/camera_controls.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "Camera/camera_explain.h"
#include "Camera/control_value.h"
#include "Camera/records.h"

namespace wqz_camera {

namespace {

constexpr uint32_t Most_Controls = 4096;    // a driver whose list does not end must not hang the caller
constexpr uint32_t Most_Menu_Items = 4096;  // a driver's wrong maximum must not hang the caller

WQZ_Camera_Control Describe(const v4l2_query_ext_ctrl& query)
{
    WQZ_Camera_Control control{};
    control.id = query.id;
    control.type = query.type;
    control.flags = query.flags;
    const std::string name(query.name, strnlen(query.name, sizeof query.name));
    Store_Text(control.name, name);
    Store_Text(control.key, Control_Key(name));
    control.minimum = query.minimum;
    control.maximum = query.maximum;
    control.step = query.step;
    control.default_value = query.default_value;
    return control;
}

bool Is_Menu(const WQZ_Camera_Control& control)
{
    return control.type == WQZ_CAMERA_CONTROL_MENU || control.type == WQZ_CAMERA_CONTROL_INTEGER_MENU;
}

// Arrays of numbers have the type of their elements, and a flag.
bool Has_Single_Value(const WQZ_Camera_Control& control)
{
    const bool is_array = control.type != V4L2_CTRL_TYPE_STRING && (control.flags & V4L2_CTRL_FLAG_HAS_PAYLOAD) != 0;
    return control.type >= V4L2_CTRL_TYPE_INTEGER && control.type <= V4L2_CTRL_TYPE_INTEGER_MENU &&
           control.type != V4L2_CTRL_TYPE_CTRL_CLASS && !is_array;
}

WQZ_Camera_Control Find_Control(const Device_File& device, const WQZ_Camera_Setting& setting)
{
    if (setting.id == 0 && setting.name == nullptr) {
        throw Failure(EINVAL, "The setting names no control: fill `id` or `name`.");
    }
    const std::string key = setting.id == 0 ? Control_Key(setting.name) : "";
    const std::vector<WQZ_Camera_Control> controls = List_Controls(device);
    const auto found = std::find_if(controls.begin(), controls.end(), [&](const WQZ_Camera_Control& control) {
        return setting.id == 0 ? key == control.key : setting.id == control.id;
    });
    if (found == controls.end()) {
        char id[16];
        (void)snprintf(id, sizeof id, "0x%08x", setting.id);
        throw Failure(EINVAL,
                      "The camera has no control \"" + std::string(setting.id == 0 ? setting.name : id) + "\".");
    }
    if (!Has_Single_Value(*found)) {
        throw Failure(ENOTSUP, std::string(found->key) + " is a compound control, which can only be listed.");
    }
    return *found;
}

Failure Refusal(const std::string& key, const char* verb, int error)
{
    const std::string start = key + " cannot be " + verb + ": ";
    switch (error) {
        case EACCES:
            return {error, start + "it is " +
                               (std::string(verb) == "read" ? "write-only"
                                                            : "read-only, or inactive until "
                                                              "another control, such as an automatic, "
                                                              "is changed") +
                               "."};
        case EBUSY:
            return {error, start + "it is fixed while the camera captures."};
        case ERANGE:
        case EINVAL:
            return {error, start + "the camera does not take this value."};
        case ENODEV:
            return {error, start + "the camera was unplugged. Plug it in again."};
        default:
            return {error, start + strerror(error) + "."};
    }
}

/// One value in the form of the extended requests.
struct Exchange {
    explicit Exchange(const WQZ_Camera_Control& control)
    {
        entry.id = control.id;
        if (control.type == WQZ_CAMERA_CONTROL_STRING) {
            text.resize(static_cast<size_t>(std::max<int64_t>(control.maximum, 0)) + 1);
            entry.size = static_cast<uint32_t>(text.size());
            entry.string = text.data();
        }
        list.count = 1;
        list.controls = &entry;
    }
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    v4l2_ext_control entry{};
    v4l2_ext_controls list{};
    std::vector<char> text;
};

void Put_Text(const WQZ_Camera_Control& control, const std::string& text, Exchange& exchange)
{
    if (text.size() >= exchange.text.size()) {
        throw Failure(ERANGE, std::string(control.key) + " takes texts of at most " +
                                  std::to_string(exchange.text.size() - 1) + " bytes; this one has " +
                                  std::to_string(text.size()) + ".");
    }
    std::copy_n(text.c_str(), text.size() + 1, exchange.text.begin());
}

// Drivers pass the 32 bits of a bitmask in a field that is signed.
void Put_Number(const WQZ_Camera_Control& control, int64_t number, v4l2_ext_control& entry)
{
    if (control.type == WQZ_CAMERA_CONTROL_INTEGER64) {
        entry.value64 = number;
        return;
    }
    const bool is_mask = control.type == WQZ_CAMERA_CONTROL_BITMASK;
    const int64_t least = is_mask ? 0 : std::numeric_limits<int32_t>::min();
    const int64_t greatest =
        is_mask ? int64_t{std::numeric_limits<uint32_t>::max()} : std::numeric_limits<int32_t>::max();
    if (control.type == WQZ_CAMERA_CONTROL_INTEGER) {
        number = std::clamp(number, least, greatest);  // the driver takes the nearest value of its range
    }
    if (number < least || number > greatest) {
        throw Refusal(control.key, "set", ERANGE);
    }
    entry.value = static_cast<int32_t>(number);
}

int64_t Number_In(const WQZ_Camera_Control& control, const v4l2_ext_control& entry)
{
    switch (control.type) {
        case WQZ_CAMERA_CONTROL_INTEGER64:
            return entry.value64;
        case WQZ_CAMERA_CONTROL_BITMASK:
            return static_cast<uint32_t>(entry.value);
        default:
            return entry.value;
    }
}

void Write_Value(const Device_File& device, const WQZ_Camera_Control& control, Set_Value& value)
{
    Exchange exchange(control);
    if (control.type == WQZ_CAMERA_CONTROL_STRING) {
        Put_Text(control, value.text, exchange);
    } else {
        Put_Number(control, value.value, exchange.entry);
    }
    const int result = device.Request(VIDIOC_S_EXT_CTRLS, &exchange.list);
    if (result != 0) {
        throw Refusal(control.key, "set", -result);
    }
    if (control.type != WQZ_CAMERA_CONTROL_STRING) {
        value.value = Number_In(control, exchange.entry);
    }
}

void Read_Value(const Device_File& device, const WQZ_Camera_Control& control, uint32_t which, Set_Value& value)
{
    Exchange exchange(control);
    exchange.list.which = which;
    const int result = device.Request(VIDIOC_G_EXT_CTRLS, &exchange.list);
    if (result != 0) {
        throw Refusal(control.key, "read", -result);
    }
    if (control.type == WQZ_CAMERA_CONTROL_STRING) {
        value.text.assign(exchange.text.data(), strnlen(exchange.text.data(), exchange.text.size()));
    } else {
        value.value = Number_In(control, exchange.entry);
    }
}

std::vector<WQZ_Camera_Menu_Item> Items_Of(const Device_File& device, const WQZ_Camera_Control& control)
{
    std::vector<WQZ_Camera_Menu_Item> items;
    const int64_t first = std::max<int64_t>(control.minimum, 0);
    const int64_t last = std::min<int64_t>(control.maximum, Most_Menu_Items);
    for (int64_t index = first; Is_Menu(control) && index <= last; ++index) {
        v4l2_querymenu query{};
        query.id = control.id;
        query.index = static_cast<uint32_t>(index);
        const int result = device.Request(VIDIOC_QUERYMENU, &query);
        if (result == -EINVAL) {
            continue;  // a gap in the menu
        }
        if (result != 0) {
            throw Step_Failure(device.Node(), "list the items of a menu", -result);
        }
        WQZ_Camera_Menu_Item item{};
        item.index = query.index;
        if (control.type == WQZ_CAMERA_CONTROL_INTEGER_MENU) {
            item.value = query.value;
            Store_Text(item.name, std::to_string(query.value));
        } else {
            Store_Text(item.name, Field_Text(query.name));
        }
        items.push_back(item);
    }
    return items;
}

// Chooses what to set: the default, the text, or the number.
Set_Value Wanted_Value(const Device_File& device, const WQZ_Camera_Control& control, const WQZ_Camera_Setting& setting)
{
    Set_Value wanted{control.id, control.type, setting.value, ""};
    const bool to_default = (setting.flags & WQZ_CAMERA_SETTING_DEFAULT) != 0;
    if (control.type == WQZ_CAMERA_CONTROL_STRING) {
        if (to_default) {
            Read_Value(device, control, V4L2_CTRL_WHICH_DEF_VAL, wanted);
        } else if (setting.text == nullptr) {
            throw Failure(EINVAL, std::string(control.key) + " is a string control: fill `text`.");
        } else {
            wanted.text = setting.text;
        }
    } else if (to_default) {
        wanted.value = control.default_value;
    } else if (setting.text != nullptr) {
        wanted.value = Parse_Value(setting.text, control, Items_Of(device, control));
    }
    return wanted;
}

void Copy_Text(const std::string& text, char* buffer, uint32_t size)
{
    if (buffer != nullptr && size > 0) {
        const size_t length = std::min<size_t>(text.size(), size - 1);
        std::copy_n(text.data(), length, buffer);
        buffer[length] = '\0';
    }
}

}  // namespace

std::vector<WQZ_Camera_Control> List_Controls(const Device_File& device)
{
    constexpr uint32_t Next = V4L2_CTRL_FLAG_NEXT_CTRL | V4L2_CTRL_FLAG_NEXT_COMPOUND;
    std::vector<WQZ_Camera_Control> controls;
    v4l2_query_ext_ctrl query{};
    query.id = Next;
    int result = 0;
    uint32_t previous = 0;
    for (uint32_t asked = 0; asked < Most_Controls; ++asked) {
        result = device.Request(VIDIOC_QUERY_EXT_CTRL, &query);
        if (result != 0 || query.id <= previous) {
            break;  // the end, or a driver that begins again
        }
        previous = query.id;
        if (query.type != V4L2_CTRL_TYPE_CTRL_CLASS) {
            controls.push_back(Describe(query));
        }
        query = v4l2_query_ext_ctrl{};
        query.id = previous | Next;
    }
    if (result != 0 && result != -EINVAL && result != -ENOTTY) {
        throw Step_Failure(device.Node(), "list its controls", -result);
    }
    return controls;
}

std::vector<WQZ_Camera_Menu_Item> List_Menu(const Device_File& device, uint32_t id)
{
    WQZ_Camera_Setting setting{};
    setting.id = id;
    const WQZ_Camera_Control control = id == 0 ? WQZ_Camera_Control{} : Find_Control(device, setting);
    if (!Is_Menu(control)) {
        throw Failure(EINVAL, "The control is not a menu.");
    }
    return Items_Of(device, control);
}

void Get_Control(const Device_File& device, WQZ_Camera_Setting& setting)
{
    const WQZ_Camera_Control control = Find_Control(device, setting);
    Set_Value value{control.id, control.type, 0, ""};
    Read_Value(device, control, V4L2_CTRL_WHICH_CUR_VAL, value);
    setting.id = control.id;
    setting.value = value.value;
    if (setting.buffer != nullptr) {
        const bool is_string = control.type == WQZ_CAMERA_CONTROL_STRING;
        Copy_Text(is_string ? value.text : Value_Text(value.value, Items_Of(device, control)), setting.buffer,
                  setting.buffer_size);
    }
}

Set_Value Set_Control(const Device_File& device, WQZ_Camera_Setting& setting)
{
    const WQZ_Camera_Control control = Find_Control(device, setting);
    Set_Value value = Wanted_Value(device, control, setting);
    Write_Value(device, control, value);
    setting.id = control.id;
    setting.value = value.value;
    return value;
}

void Restore_Control(const Device_File& device, const Set_Value& value)
{
    if (value.type == V4L2_CTRL_TYPE_BUTTON) {
        return;  // an action, not a state
    }
    WQZ_Camera_Setting setting{};
    setting.id = value.id;
    const WQZ_Camera_Control control = Find_Control(device, setting);
    Set_Value again = value;
    try {
        Write_Value(device, control, again);
    } catch (const Failure& failure) {
        if (failure.error != EACCES) {
            throw;
        }
    }
}

}  // namespace wqz_camera
