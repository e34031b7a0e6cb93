// Control values and the rules of setting them.
#include "driver/control_set.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace virtual_camera {
namespace {

constexpr uint32_t Class_Mask = 0x0fff0000;

uint32_t Class_Id(uint32_t id)
{
    return (id & Class_Mask) | 1;
}

constexpr size_t Name_Size = sizeof(v4l2_queryctrl::name);
static_assert(Name_Size == sizeof(v4l2_querymenu::name) && Name_Size == sizeof(v4l2_query_ext_ctrl::name));

void Copy_Text(unsigned char* target, const std::string& text)
{
    std::snprintf(reinterpret_cast<char*>(target), Name_Size, "%s", text.c_str());
}

void Fill_Class(v4l2_queryctrl& query, uint32_t id)
{
    query.id = id;
    query.type = V4L2_CTRL_TYPE_CTRL_CLASS;
    query.flags = V4L2_CTRL_FLAG_READ_ONLY | V4L2_CTRL_FLAG_WRITE_ONLY;
    Copy_Text(query.name, id == V4L2_CID_CAMERA_CLASS ? "Camera Controls" : "User Controls");
}

}  // namespace

Control_Set::Control_Set(std::vector<Control> described) : controls(std::move(described))
{
    std::sort(controls.begin(), controls.end(), [](const Control& a, const Control& b) { return a.id < b.id; });
    for (const Control& control : controls) {
        values[control.id] = control.default_value;
    }
}

const Control* Control_Set::Find(uint32_t id) const
{
    const auto found = std::find_if(controls.begin(), controls.end(), [id](const Control& c) { return c.id == id; });
    return found == controls.end() ? nullptr : &*found;
}

bool Control_Set::Is_Class(uint32_t id) const
{
    return std::any_of(controls.begin(), controls.end(), [id](const Control& c) { return Class_Id(c.id) == id; });
}

// A list of several controls counts as done as a whole: the master's last value in it decides.
bool Control_Set::Is_Automatic(const Control& control, const v4l2_ext_controls* list) const
{
    if (control.master == 0 || values.count(control.master) == 0) {
        return false;
    }
    for (uint32_t i = list ? list->count : 0; i > 0; i--) {
        if (list->controls[i - 1].id == control.master) {
            return list->controls[i - 1].value != control.master_manual;
        }
    }
    return values.at(control.master) != control.master_manual;
}

uint32_t Control_Set::Next_Id(uint32_t id) const
{
    uint32_t next = 0;
    for (const Control& control : controls) {
        for (uint32_t candidate : {Class_Id(control.id), control.id}) {
            next = candidate > id && (next == 0 || candidate < next) ? candidate : next;
        }
    }
    return next;
}

int Control_Set::Query(v4l2_queryctrl& query) const
{
    uint32_t id = query.id & V4L2_CTRL_ID_MASK;
    if (query.id & V4L2_CTRL_FLAG_NEXT_CTRL) {
        id = Next_Id(id);
    }
    const Control* control = Find(id);
    if (!control && !Is_Class(id)) {
        return -EINVAL;
    }
    query = v4l2_queryctrl{};
    if (!control) {
        Fill_Class(query, id);
        return 0;
    }
    query.id = id;
    query.type = control->type;
    Copy_Text(query.name, control->name);
    query.minimum = control->minimum;
    query.maximum = control->maximum;
    query.step = control->step;
    query.default_value = control->default_value;
    query.flags = Is_Automatic(*control, nullptr) ? V4L2_CTRL_FLAG_INACTIVE : 0;
    return 0;
}

int Control_Set::Query_Extended(v4l2_query_ext_ctrl& extended) const
{
    v4l2_queryctrl query{};
    query.id = extended.id;
    if (const int error = Query(query)) {
        return error;
    }
    extended = v4l2_query_ext_ctrl{};
    extended.id = query.id;
    extended.type = query.type;
    std::memcpy(extended.name, query.name, sizeof extended.name);
    extended.minimum = query.minimum;
    extended.maximum = query.maximum;
    extended.step = query.type == V4L2_CTRL_TYPE_CTRL_CLASS ? 0 : static_cast<uint64_t>(query.step);
    extended.default_value = query.default_value;
    extended.flags = query.flags;
    extended.elem_size = 4;
    extended.elems = 1;
    return 0;
}

int Control_Set::Query_Menu(v4l2_querymenu& query) const
{
    const Control* control = Find(query.id);
    if (!control || query.index >= control->menu.size() || control->menu[query.index].empty()) {
        return -EINVAL;
    }
    const uint32_t id = query.id, index = query.index;
    query = v4l2_querymenu{};
    query.id = id;
    query.index = index;
    Copy_Text(query.name, control->menu[index]);
    return 0;
}

// Integers are rounded to the step and clamped, as unsigned numbers where the control is unsigned.
int Control_Set::Check_Value(const Control& control, int32_t& value) const
{
    if (control.type == V4L2_CTRL_TYPE_MENU) {
        if (value < control.minimum || value > control.maximum) {
            return -ERANGE;
        }
        const bool exists =
            static_cast<size_t>(value) < control.menu.size() && !control.menu[static_cast<size_t>(value)].empty();
        return exists ? 0 : -EINVAL;
    }
    if (control.type == V4L2_CTRL_TYPE_INTEGER) {
        const uint32_t step = static_cast<uint32_t>(std::max(control.step, 1)),
                       above = static_cast<uint32_t>(value) - static_cast<uint32_t>(control.minimum);
        const uint32_t steps = above / step + (above % step >= (step + 1) / 2 && step > 1 ? 1 : 0);
        value = static_cast<int32_t>(static_cast<uint32_t>(control.minimum) + steps * step);
        if (!control.is_signed && control.minimum >= 0) {
            value =
                static_cast<int32_t>(std::clamp(static_cast<uint32_t>(value), static_cast<uint32_t>(control.minimum),
                                                static_cast<uint32_t>(control.maximum)));
            return 0;
        }
    }
    value = std::clamp(value, control.minimum, control.maximum);
    return 0;
}

int Control_Set::Check_Access(uint32_t request, const v4l2_ext_controls& list, const v4l2_ext_control& entry) const
{
    const Control* control = Find(entry.id);
    if (!control) {
        return Is_Class(entry.id) ? -EACCES : -EINVAL;
    }
    return request == VIDIOC_S_EXT_CTRLS && Is_Automatic(*control, &list) ? -EACCES : 0;
}

int Control_Set::Extended(uint32_t request, v4l2_ext_controls& list)
{
    if (list.which == V4L2_CTRL_WHICH_REQUEST_VAL ||
        (list.which == V4L2_CTRL_WHICH_DEF_VAL && request != VIDIOC_G_EXT_CTRLS)) {
        return -EINVAL;
    }
    // A list that cannot be carried out at all is marked by an index behind its end.
    list.error_idx = list.count;
    for (uint32_t i = 0; i < list.count; i++) {
        if (const int error = Check_Access(request, list, list.controls[i])) {
            list.error_idx = request == VIDIOC_TRY_EXT_CTRLS ? i : list.count;
            return error;
        }
    }
    for (uint32_t i = 0; i < list.count; i++) {
        v4l2_ext_control& entry = list.controls[i];
        const Control& control = *Find(entry.id);
        if (request == VIDIOC_G_EXT_CTRLS) {
            entry.value = list.which == V4L2_CTRL_WHICH_DEF_VAL ? control.default_value : values.at(entry.id);
            continue;
        }
        int32_t value = entry.value;
        if (const int error = Check_Value(control, value)) {
            list.error_idx = request == VIDIOC_S_EXT_CTRLS ? list.count : i;
            return error;
        }
        entry.value = value;
        if (request == VIDIOC_S_EXT_CTRLS) {
            values[entry.id] = value;
        }
    }
    return 0;
}

int Control_Set::Get(v4l2_control& control) const
{
    const auto found = values.find(control.id);
    if (found == values.end()) {
        return Is_Class(control.id) ? -EACCES : -EINVAL;
    }
    control.value = found->second;
    return 0;
}

std::optional<v4l2_event> Control_Set::Event(uint32_t id, uint32_t changes) const
{
    v4l2_queryctrl query{};
    query.id = id;
    if (!Find(id) || Query(query) != 0) {
        return std::nullopt;
    }
    v4l2_event event{};
    event.type = V4L2_EVENT_CTRL;
    event.id = id;
    event.u.ctrl.changes = changes;
    event.u.ctrl.type = query.type;
    event.u.ctrl.value = values.at(id);
    event.u.ctrl.flags = query.flags;
    event.u.ctrl.minimum = query.minimum;
    event.u.ctrl.maximum = query.maximum;
    event.u.ctrl.step = query.step;
    event.u.ctrl.default_value = query.default_value;
    return event;
}

std::vector<uint32_t> Control_Set::Ruled_By(uint32_t master) const
{
    std::vector<uint32_t> ids;
    for (const Control& control : controls) {
        if (control.master == master) {
            ids.push_back(control.id);
        }
    }
    return ids;
}

int Control_Set::Set(v4l2_control& control)
{
    v4l2_ext_control entry{};
    entry.id = control.id;
    entry.value = control.value;
    v4l2_ext_controls list{};
    list.count = 1;
    list.controls = &entry;
    const int error = Extended(VIDIOC_S_EXT_CTRLS, list);
    if (!error) {
        control.value = entry.value;
    }
    return error;
}

}  // namespace virtual_camera
