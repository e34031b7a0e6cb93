// The controls of a camera: ranges, values, the rules of setting them, and the events that tell of changes.
#ifndef WQZ_VIRTUAL_CAMERA_CONTROL_SET_H
#define WQZ_VIRTUAL_CAMERA_CONTROL_SET_H

#include <virtual_camera/description.h>
#include <deque>
#include <map>

namespace virtual_camera {

/// Functions for requests return 0 or a negative errno, and change their argument only on success.
class Control_Set {
public:
    explicit Control_Set(const std::vector<Control>& described);

    int Query(v4l2_queryctrl& query) const;
    int Query_Extended(v4l2_query_ext_ctrl& extended) const;
    int Query_Menu(v4l2_querymenu& query) const;
    int Get(v4l2_control& control) const;

    /// VIDIOC_G_EXT_CTRLS, VIDIOC_S_EXT_CTRLS or VIDIOC_TRY_EXT_CTRLS; sets error_idx on failure.
    int Extended(uint32_t request, v4l2_ext_controls& list);

    bool Has(uint32_t id) const { return controls.count(id) > 0; }

    /// The event that tells of `changes` in a control; nothing for a class or an unknown control.
    std::optional<v4l2_event> Event(uint32_t id, uint32_t changes) const;

    /// The controls that become active or inactive with a control.
    std::vector<uint32_t> Ruled_By(uint32_t master) const;

private:
    struct State {
        Control control;  // or a class of controls, which is listed before them
        int32_t value = 0;
    };

    const Control* Find(uint32_t id) const;
    bool Is_Automatic(const Control& control, const v4l2_ext_controls* list) const;
    int Check_Access(uint32_t request, const v4l2_ext_controls& list, uint32_t id) const;

    std::map<uint32_t, State> controls;  // by id, which is the order of enumeration
};

/// The events that one open file has subscribed to. As in the kernel, at most one event of each control is pending: a
/// newer one replaces it and adds its changes.
class Event_Queue {
public:
    bool Has_Pending() const { return !pending.empty(); }

    /// @return false when the control was subscribed already
    bool Subscribe(uint32_t id, uint32_t flags) { return subscriptions.emplace(id, flags).second; }
    void Unsubscribe(uint32_t id);
    void Unsubscribe_All();

    /// @param own  the file itself changed the control: then it wants the event only with feedback
    bool Wants(uint32_t id, bool own) const;
    void Push(v4l2_event event);

    /// Takes the oldest event; there must be one.
    v4l2_event Pop();

private:
    std::map<uint32_t, uint32_t> subscriptions;  // flags by control
    std::deque<v4l2_event> pending;
    uint32_t sequence = 0;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_CONTROL_SET_H
