// A watch over the plugging of cameras, safe to close while another Python thread waits.
#include "monitor_handle.h"

#include <chrono>

Monitor_Handle::Monitor_Handle()
{
    const Unlocked unlocked;
    monitor = std::make_unique<wqz::Monitor>();
}

// A forked child leaves the monitor to its parent.
Monitor_Handle::~Monitor_Handle()
{
    if (!home.Is_Here()) {
        (void)monitor.release();
    }
}

std::optional<WQZ_Camera_Event> Monitor_Handle::Read(std::optional<double> timeout)
{
    const Time_Limit limit(timeout);
    for (;;) {
        const auto event =
            Call([&](wqz::Monitor& open) { return open.Read(std::chrono::milliseconds(limit.Slice())); });
        if (event || limit.Has_Passed()) {
            return event;
        }
        Handle_Signals();
    }
}

int Monitor_Handle::Descriptor()
{
    return Call([](wqz::Monitor& open) { return open.Descriptor(); });
}

void Monitor_Handle::Close()
{
    home.Check();
    const Unlocked unlocked;
    const std::lock_guard lock(mutex);
    closed = true;
    monitor.reset();
}
