// The events of controls that one open file has subscribed to.
#ifndef WQZ_VIRTUAL_CAMERA_EVENT_QUEUE_H
#define WQZ_VIRTUAL_CAMERA_EVENT_QUEUE_H

#include <linux/videodev2.h>
#include <cstdint>
#include <deque>
#include <map>

namespace virtual_camera {

/// As the kernel keeps them: one pending event for each control, the newest; the changes that it stands for add up.
class Event_Queue {
public:
    bool Has_Pending() const { return !pending.empty(); }

    /// @return false when the control was subscribed already
    bool Subscribe(uint32_t id, uint32_t flags) { return subscriptions.emplace(id, flags).second; }
    void Unsubscribe(uint32_t id);
    void Unsubscribe_All();

    /// @return whether an event of that control is wanted; `own`: the file itself has caused it
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

#endif  // WQZ_VIRTUAL_CAMERA_EVENT_QUEUE_H
