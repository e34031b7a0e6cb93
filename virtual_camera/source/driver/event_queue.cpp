// Queueing and merging of control events.
#include "driver/event_queue.h"

#include <algorithm>
#include <ctime>

namespace virtual_camera {

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
