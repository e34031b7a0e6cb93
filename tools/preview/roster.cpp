// Keeps the list of cameras up to date.
#include "roster.h"

#include <algorithm>
#include <optional>

namespace {

using namespace std::chrono_literals;

constexpr auto Watch_Slice = 250ms;    // how soon the end is noticed
constexpr auto Refresh_Interval = 2s;  // also without an event: containers often get none

}  // namespace

Roster::Roster(const std::string& camera_name)
{
    if (!camera_name.empty()) {
        only = wqz::Camera(camera_name).Info().identity;
    }
    Refresh();
    thread = std::thread(&Roster::Watch, this);
}

Roster::~Roster()
{
    ended = true;
    thread.join();
}

std::vector<Known_Camera> Roster::Cameras() const
{
    const std::lock_guard lock(mutex);
    return cameras;
}

std::shared_ptr<Feed> Roster::Find(const std::string& identity) const
{
    const std::lock_guard lock(mutex);
    const auto found = std::ranges::find_if(
        cameras, [&](const Known_Camera& camera) { return identity.empty() || identity == camera.info.identity; });
    return found == cameras.end() ? nullptr : found->feed;
}

void Roster::Watch()
{
    std::optional<wqz::Monitor> monitor;
    try {
        monitor.emplace();
    } catch (const wqz::Camera_Error&) {
        monitor.reset();  // no udev here; the list is read again and again all the same
    }
    auto next = std::chrono::steady_clock::now() + Refresh_Interval;
    while (!ended) {
        bool has_event = false;
        if (monitor) {
            has_event = monitor->Read(Watch_Slice).has_value();
        } else {
            std::this_thread::sleep_for(Watch_Slice);
        }
        if (has_event || std::chrono::steady_clock::now() >= next) {
            Refresh();
            next = std::chrono::steady_clock::now() + Refresh_Interval;
        }
    }
}

void Roster::Refresh()
{
    std::vector<WQZ_Camera_Info> present;
    try {
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
