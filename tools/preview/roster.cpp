// Keeps the list of cameras up to date.
#include "roster.h"

#include <poll.h>

#include <algorithm>
#include <optional>
#include <utility>

#include "../diagnosis.h"
#include "device_walk.h"

namespace {

using namespace std::chrono_literals;

using Clock = std::chrono::steady_clock;

constexpr auto Watch_Slice = 250ms;    // how soon the end is noticed
constexpr auto Attention = 10s;        // after a question; the page asks every second
constexpr auto Refresh_Interval = 2s;  // where cameras cannot be watched

/// @return nothing when the system does not let cameras be watched; the list is read again and again then
std::optional<wqz::Monitor> Begin_To_Watch()
{
    const std::lock_guard walk(Device_Walk);
    try {
        return std::make_optional<wqz::Monitor>();
    } catch (const wqz::Camera_Error&) {
        return std::nullopt;
    }
}

/// Waits a while for cameras that come or go. Polls first, because a read looks at all devices.
bool Has_Event(wqz::Monitor& monitor)
{
    pollfd record{monitor.Descriptor(), POLLIN, 0};
    bool has_event = false;
    if (poll(&record, 1, static_cast<int>(Watch_Slice.count())) > 0) {
        const std::lock_guard walk(Device_Walk);
        while (monitor.Read(0ms)) {
            has_event = true;
        }
    }
    return has_event;
}

}  // namespace

Roster::Roster(const std::string& camera_name)
{
    if (!camera_name.empty()) {
        only = Open_Camera(camera_name).Info().identity;
    }
    Refresh();
    thread = std::thread(&Roster::Run, this);
}

Roster::~Roster()
{
    {
        const std::lock_guard lock(mutex);
        ended = true;
    }
    wake.notify_all();
    thread.join();
}

void Roster::End()
{
    const std::lock_guard lock(mutex);
    for (const Known_Camera& camera : cameras) {
        camera.feed->End();
    }
}

std::vector<Known_Camera> Roster::Cameras()
{
    Note_Question();
    const std::lock_guard lock(mutex);
    return cameras;
}

std::shared_ptr<Feed> Roster::Find(const std::string& identity)
{
    auto feed = Find_Known(identity);
    if (!feed) {
        Note_Question();  // it may have been plugged in since the list was read
        feed = Find_Known(identity);
    }
    return feed;
}

std::shared_ptr<Feed> Roster::Find_Known(const std::string& identity)
{
    const std::lock_guard lock(mutex);
    const auto found = std::ranges::find_if(
        cameras, [&](const Known_Camera& camera) { return identity.empty() || identity == camera.info.identity; });
    return found == cameras.end() ? nullptr : found->feed;
}

void Roster::Note_Question()
{
    bool is_outdated = false;
    {
        const std::lock_guard lock(mutex);
        last_question = Clock::now();
        is_outdated = !std::exchange(watching, true);
    }
    if (is_outdated) {
        wake.notify_all();
        Refresh();
    }
}

void Roster::Run()
{
    for (;;) {
        {
            std::unique_lock lock(mutex);
            wake.wait(lock, [this] { return ended || watching; });
            if (ended) {
                return;
            }
        }
        Watch();
    }
}

void Roster::Watch()
{
    std::optional<wqz::Monitor> monitor = Begin_To_Watch();
    for (auto next = Clock::now(); Is_Asked();) {
        const bool has_event = monitor && Has_Event(*monitor);
        if (!monitor) {
            std::this_thread::sleep_for(Watch_Slice);
        }
        if (has_event || Clock::now() >= next) {
            Refresh();
            next = monitor ? Clock::time_point::max() : Clock::now() + Refresh_Interval;
        }
    }
    const std::lock_guard walk(Device_Walk);
    monitor.reset();
}

bool Roster::Is_Asked()
{
    const std::lock_guard lock(mutex);
    watching = !ended && Clock::now() - last_question < Attention;
    return watching;
}

void Roster::Refresh()
{
    const std::lock_guard refresh(refreshing);
    std::vector<WQZ_Camera_Info> present;
    try {
        const std::lock_guard walk(Device_Walk);
        present = wqz::List_Cameras();
    } catch (const wqz::Camera_Error&) {
        return;  // what is known stays until the list can be read again
    }
    const std::lock_guard lock(mutex);
    for (Known_Camera& known : cameras) {
        known.plugged = false;
    }
    for (const WQZ_Camera_Info& info : present) {
        const std::string identity = info.identity;
        if (!only.empty() && identity != only) {
            continue;
        }
        const auto known =
            std::ranges::find_if(cameras, [&](const auto& each) { return each.info.identity == identity; });
        if (known == cameras.end()) {
            cameras.push_back({info, true, std::make_shared<Feed>(identity)});
        } else {
            known->info = info;
            known->plugged = true;
        }
    }
}
