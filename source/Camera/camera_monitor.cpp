// Watching cameras come and go: compares lists when udev or a timer says so.
#include "Camera/camera_monitor.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <limits>

#include "Camera/failure.h"

using namespace wqz_camera;

namespace {

constexpr long Compare_Ms = 500;  // where the system does not report plug events

bool Udev_Service_Runs()
{
    return access("/run/udev/control", F_OK) == 0;
}

// @throws Failure  for the result of a call that opened no descriptor
int Opened(int descriptor)
{
    if (descriptor < 0) {
        const int error = errno;
        throw Failure(error, "The process has no descriptor left for a monitor: close files, or raise ulimit -n.");
    }
    return descriptor;
}

int Make_Timer()
{
    const int timer = Opened(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    itimerspec setting{};
    setting.it_interval.tv_nsec = Compare_Ms * 1'000'000;
    setting.it_value = setting.it_interval;
    (void)timerfd_settime(timer, 0, &setting, nullptr);
    return timer;
}

void Add(int poll_descriptor, int descriptor)
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    (void)Opened(epoll_ctl(poll_descriptor, EPOLL_CTL_ADD, descriptor, &event));
}

bool Holds(const std::vector<Camera_Record>& list, const Camera_Record& wanted)
{
    return std::any_of(list.begin(), list.end(), [&](const Camera_Record& record) {
        return record.device == wanted.device && std::string(record.info.node) == wanted.info.node &&
               std::string(record.info.serial) == wanted.info.serial && record.arrival == wanted.arrival;
    });
}

}  // namespace

WQZ_Camera_Monitor::WQZ_Camera_Monitor()
    : poll_descriptor(Opened(epoll_create1(EPOLL_CLOEXEC))),
      context(udev_new()),
      plugs(Watch_Video_Nodes(context.get(), "udev")),
      timer(plugs && Udev_Service_Runs() ? -1 : Make_Timer())
{
    if (plugs) {
        Add(poll_descriptor, udev_monitor_get_fd(plugs.get()));
    }
    if (timer >= 0) {
        Add(poll_descriptor, timer);
    }
    known = List_Cameras();
}

bool WQZ_Camera_Monitor::Read(WQZ_Camera_Event& event, int32_t timeout_ms)
{
    const Deadline deadline(timeout_ms);
    while (events.empty()) {
        const bool last = deadline.Has_Passed();
        if (Wait(deadline.Remaining(std::numeric_limits<int>::max()))) {
            Compare();
        } else if (last) {
            return false;
        }
    }
    event = events.front();
    events.pop_front();
    return true;
}

// Returns whether there may be news.
bool WQZ_Camera_Monitor::Wait(int milliseconds)
{
    std::array<epoll_event, 2> ready{};
    if (epoll_wait(poll_descriptor, ready.data(), static_cast<int>(ready.size()), milliseconds) <= 0) {
        return false;
    }
    uint64_t ticks = 0;
    bool news = timer >= 0 && read(timer, &ticks, sizeof ticks) > 0;
    while (const Udev_Owner<udev_device> device{plugs ? udev_monitor_receive_device(plugs.get()) : nullptr}) {
        news = true;
    }
    return news;
}

void WQZ_Camera_Monitor::Compare()
{
    std::vector<Camera_Record> present = List_Cameras();
    const auto report = [this](uint32_t kind, const Camera_Record& record) {
        WQZ_Camera_Event event{};
        event.kind = kind;
        event.info = record.info;
        events.push_back(event);
    };
    for (const Camera_Record& record : known) {
        if (!Holds(present, record)) {
            report(WQZ_CAMERA_EVENT_UNPLUGGED, record);
        }
    }
    for (const Camera_Record& record : present) {
        if (!Holds(known, record)) {
            report(WQZ_CAMERA_EVENT_PLUGGED, record);
        }
    }
    known.swap(present);
}
