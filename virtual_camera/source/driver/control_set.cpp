// Control values, the rules of setting them, and the queueing of events.
#include "driver/control_set.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "driver/format_negotiation.h"

namespace virtual_camera {
namespace {

uint32_t Class_Id(uint32_t id)
{
    constexpr uint32_t Class_Mask = 0x0fff0000;
    return (id & Class_Mask) | 1;
}

/// Copies what the records that describe a control have in common.
template <typename Record>
void Copy_Range(const v4l2_queryctrl& query, Record& record)
{
    record.type = query.type;
    record.minimum = query.minimum;
    record.maximum = query.maximum;
    record.step = static_cast<decltype(record.step)>(query.step);
    record.default_value = query.default_value;
    record.flags = query.flags;
}

Control Class_Of(uint32_t id)
{
    Control control;
    control.id = Class_Id(id);
    control.name = control.id == V4L2_CID_CAMERA_CLASS ? "Camera Controls" : "User Controls";
    control.type = V4L2_CTRL_TYPE_CTRL_CLASS;
    control.step = 0;
    return control;
}

// Integers are rounded to the step and clamped, as unsigned numbers where the control is unsigned.
int Check_Value(const Control& control, int32_t& value)
{
    if (control.type == V4L2_CTRL_TYPE_MENU) {
        if (value < control.minimum || value > control.maximum) {
            return -ERANGE;
        }
        const auto entry = static_cast<size_t>(value);
        return entry < control.menu.size() && !control.menu[entry].empty() ? 0 : -EINVAL;
    }
    const bool is_unsigned = control.type == V4L2_CTRL_TYPE_INTEGER && !control.is_signed && control.minimum >= 0;
    const int64_t wanted = is_unsigned ? int64_t{static_cast<uint32_t>(value)} : int64_t{value};
    const int64_t step = std::max(control.step, 1), steps = (wanted - control.minimum + step / 2) / step;
    const int64_t rounded = std::clamp<int64_t>(control.minimum + steps * step, control.minimum, control.maximum);
    value = static_cast<int32_t>(rounded);
    return 0;
}

}  // namespace

Control_Set::Control_Set(const std::vector<Control>& described)
{
    for (const Control& control : described) {
        controls[control.id] = {control, control.default_value};
        controls[Class_Id(control.id)] = {Class_Of(control.id), 0};
    }
}

const Control* Control_Set::Find(uint32_t id) const
{
    const auto found = controls.find(id);
    return found == controls.end() ? nullptr : &found->second.control;
}

// A list of several controls counts as done as a whole: the master's last value in it decides.
bool Control_Set::Is_Automatic(const Control& control, const v4l2_ext_controls* list) const
{
    if (!Has(control.master)) {
        return false;
    }
    int32_t value = controls.at(control.master).value;
    for (uint32_t i = 0; list && i < list->count; i++) {
        value = list->controls[i].id == control.master ? list->controls[i].value : value;
    }
    return value != control.master_manual;
}

int Control_Set::Query(v4l2_queryctrl& query) const
{
    const uint32_t id = query.id & V4L2_CTRL_ID_MASK;
    const auto found = (query.id & V4L2_CTRL_FLAG_NEXT_CTRL) != 0 ? controls.upper_bound(id) : controls.find(id);
    if (found == controls.end()) {
        return -EINVAL;
    }
    const Control& control = found->second.control;
    query = v4l2_queryctrl{};
    query.id = control.id;
    query.type = control.type;
    Copy_Text(query.name, control.name);
    query.minimum = control.minimum;
    query.maximum = control.maximum;
    query.step = control.step;
    query.default_value = control.default_value;
    query.flags = Is_Automatic(control, nullptr) ? V4L2_CTRL_FLAG_INACTIVE : 0;
    if (control.type == V4L2_CTRL_TYPE_CTRL_CLASS) {
        query.flags = V4L2_CTRL_FLAG_READ_ONLY | V4L2_CTRL_FLAG_WRITE_ONLY;
    }
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
    std::memcpy(extended.name, query.name, sizeof extended.name);
    Copy_Range(query, extended);
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
    uint8_t name[sizeof query.name];  // the record is packed, so its field cannot be referred to
    Copy_Text(name, control->menu[query.index]);
    std::memcpy(query.name, name, sizeof name);
    query.reserved = 0;
    return 0;
}

int Control_Set::Check_Access(uint32_t request, const v4l2_ext_controls& list, uint32_t id) const
{
    const Control* control = Find(id);
    if (!control) {
        return -EINVAL;
    }
    const bool refused = request == VIDIOC_S_EXT_CTRLS && Is_Automatic(*control, &list);
    return refused || control->type == V4L2_CTRL_TYPE_CTRL_CLASS ? -EACCES : 0;
}

int Control_Set::Extended(uint32_t request, v4l2_ext_controls& list)
{
    const bool defaults = list.which == V4L2_CTRL_WHICH_DEF_VAL;
    if (list.which == V4L2_CTRL_WHICH_REQUEST_VAL || (defaults && request != VIDIOC_G_EXT_CTRLS)) {
        return -EINVAL;
    }
    // A list that cannot be carried out at all is marked by an index behind its end.
    list.error_idx = list.count;
    for (uint32_t i = 0; i < list.count; i++) {
        if (const int error = Check_Access(request, list, list.controls[i].id)) {
            list.error_idx = request == VIDIOC_TRY_EXT_CTRLS ? i : list.count;
            return error;
        }
    }
    for (uint32_t i = 0; i < list.count; i++) {
        State& state = controls[list.controls[i].id];
        if (request == VIDIOC_G_EXT_CTRLS) {
            list.controls[i].value = defaults ? state.control.default_value : state.value;
            continue;
        }
        int32_t value = list.controls[i].value;
        if (const int error = Check_Value(state.control, value)) {
            list.error_idx = request == VIDIOC_S_EXT_CTRLS ? list.count : i;
            return error;
        }
        list.controls[i].value = value;
        state.value = request == VIDIOC_S_EXT_CTRLS ? value : state.value;
    }
    return 0;
}

int Control_Set::Get(v4l2_control& control) const
{
    const Control* found = Find(control.id);
    if (!found || found->type == V4L2_CTRL_TYPE_CTRL_CLASS) {
        return found ? -EACCES : -EINVAL;
    }
    control.value = controls.at(control.id).value;
    return 0;
}

std::optional<v4l2_event> Control_Set::Event(uint32_t id, uint32_t changes) const
{
    v4l2_queryctrl query{};
    query.id = id;
    if (Query(query) != 0 || query.type == V4L2_CTRL_TYPE_CTRL_CLASS) {
        return std::nullopt;
    }
    v4l2_event event{};
    event.type = V4L2_EVENT_CTRL;
    event.id = id;
    event.u.ctrl.changes = changes;
    event.u.ctrl.value = controls.at(id).value;
    Copy_Range(query, event.u.ctrl);
    return event;
}

std::vector<uint32_t> Control_Set::Ruled_By(uint32_t master) const
{
    std::vector<uint32_t> ids;
    for (const auto& [id, state] : controls) {
        if (state.control.master == master) {
            ids.push_back(id);
        }
    }
    return ids;
}

void Event_Queue::Unsubscribe(uint32_t id)
{
    subscriptions.erase(id);
    std::erase_if(pending, [id](const v4l2_event& event) { return event.id == id; });
}

void Event_Queue::Unsubscribe_All()
{
    subscriptions.clear();
    pending.clear();
}

bool Event_Queue::Wants(uint32_t id, bool own) const
{
    const auto found = subscriptions.find(id);
    return found != subscriptions.end() && (!own || (found->second & V4L2_EVENT_SUB_FL_ALLOW_FEEDBACK) != 0);
}

void Event_Queue::Push(v4l2_event event)
{
    const auto older =
        std::find_if(pending.begin(), pending.end(), [&event](const v4l2_event& e) { return e.id == event.id; });
    if (older != pending.end()) {
        event.u.ctrl.changes |= older->u.ctrl.changes;
        pending.erase(older);
    }
    clock_gettime(CLOCK_MONOTONIC, &event.timestamp);
    event.sequence = sequence++;
    pending.push_back(event);
}

v4l2_event Event_Queue::Pop()
{
    v4l2_event event = pending.front();
    pending.pop_front();
    event.pending = static_cast<uint32_t>(pending.size());
    return event;
}

}  // namespace virtual_camera
