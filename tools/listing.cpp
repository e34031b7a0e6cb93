// The verb "list": prints the cameras, and those that come and go, as text or JSON.
#include "listing.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <vector>

#include "Camera/wqz_camera.hpp"
#include "diagnosis.h"
#include "output.h"
#include "text.h"

namespace {

using Json = nlohmann::ordered_json;

/// @return a USB release number, which is binary-coded decimal, as text: "1.10" for 0x0110
std::string Release_Text(uint16_t bcd)
{
    std::array<char, 8> text{};
    (void)std::snprintf(text.data(), text.size(), "%x.%02x", bcd >> 8U, bcd & 0xFFU);
    return text.data();
}

bool Is_On_Usb(const WQZ_Camera_Info& camera)
{
    return camera.vendor != 0 || camera.product != 0;
}

bool Is_Wanted(const WQZ_Camera_Info& camera, const List_Options& options)
{
    return camera.vendor == options.vid.value_or(camera.vendor) &&
           camera.product == options.pid.value_or(camera.product);
}

void Print_Line(const char* label, const std::string& text)
{
    if (!text.empty()) {
        std::cout << "     " << label << Printable(text) << '\n';
    }
}

void Print_Text(const WQZ_Camera_Info& camera)
{
    std::cout << camera.index << ": " << camera.node << "  " << Printable(camera.card) << '\n';
    if (camera.error != 0) {
        Print_Line("", Refusal_Text(camera));
    }
    Print_Line("identity      ", camera.identity);
    Print_Line("driver        ", camera.driver);
    Print_Line("location      ", camera.location);
    if (!Is_On_Usb(camera)) {
        Print_Line("", "not on USB");
        return;
    }
    Print_Line("ids           ", Id_Text(camera.vendor, camera.product) + ", release " + Release_Text(camera.release) +
                                     ", bus " + std::to_string(camera.bus));
    Print_Line("manufacturer  ", camera.manufacturer);
    Print_Line("product       ", camera.product_name);
    Print_Line("serial        ", camera.serial);
}

Json Camera_Json(const WQZ_Camera_Info& camera)
{
    const std::string ids = Id_Text(camera.vendor, camera.product);
    Json json{{"index", camera.index},
              {"node", camera.node},
              {"identity", camera.identity},
              {"card", camera.card},
              {"driver", camera.driver},
              {"location", camera.location},
              {"vid", ids.substr(0, ids.find(':'))},
              {"pid", ids.substr(ids.find(':') + 1)},
              {"release", Release_Text(camera.release)},
              {"bus", camera.bus},
              {"manufacturer", camera.manufacturer},
              {"product", camera.product_name},
              {"serial", camera.serial}};
    json["error"] = camera.error == 0 ? Json(nullptr) : Json(Refusal_Text(camera));
    return json;
}

void Print_List(const std::vector<WQZ_Camera_Info>& cameras, bool json)
{
    if (json) {
        Json list = Json::array();
        std::ranges::transform(cameras, std::back_inserter(list), Camera_Json);
        std::cout << Json_Text(list) << '\n';
    } else {
        std::ranges::for_each(cameras, Print_Text);
    }
}

void Print_Change(const char* word, const WQZ_Camera_Info& camera, bool json)
{
    if (json) {
        std::cout << Json_Text({{"event", word}, {"camera", Camera_Json(camera)}}, -1) << '\n';
    } else {
        std::cout << std::left << std::setw(11) << word << camera.node << "  " << Printable(camera.card) << "  "
                  << Printable(camera.identity) << '\n';
    }
    Flush_Output();
}

/// Reports cameras that come and go. Ctrl-C ends the process, which leaves nothing behind.
[[noreturn]] void Print_Changes(wqz::Monitor& monitor, const List_Options& options)
{
    while (true) {
        const auto event = monitor.Read(wqz::Forever);
        if (event && Is_Wanted(event->info, options)) {
            Print_Change(event->kind == WQZ_CAMERA_EVENT_PLUGGED ? "plugged" : "unplugged", event->info, options.json);
        }
    }
}

}  // namespace

int Run_List(const List_Options& options)
{
    std::optional<wqz::Monitor> monitor;
    if (options.watch) {
        monitor.emplace();  // before the list is read, so that no camera is missed in between
    }
    std::vector<WQZ_Camera_Info> cameras = wqz::List_Cameras();
    const bool none_is_there = cameras.empty();
    std::erase_if(cameras, [&](const auto& camera) { return !Is_Wanted(camera, options); });
    if (monitor) {
        for (const auto& camera : cameras) {
            Print_Change("present", camera, options.json);
        }
        Print_Changes(*monitor, options);
    }
    Print_List(cameras, options.json);
    const bool some_can_be_opened = std::ranges::any_of(cameras, [](const auto& camera) { return camera.error == 0; });
    const bool asked_in_vain = (options.vid || options.pid) && !some_can_be_opened;
    if (none_is_there) {
        Say(Check_Computer(Look_At_System(), {}).front().Text());
    } else if (cameras.empty()) {
        Say("no camera found with these ids");
    } else if (asked_in_vain) {
        Say("no camera with these ids can be opened");
    }
    return asked_in_vain ? EXIT_FAILURE : EXIT_SUCCESS;
}
