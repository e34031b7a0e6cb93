// The verb "list": prints the cameras as text or JSON.
#include "listing.h"

#include <array>
#include <cstdio>
#include <iostream>
#include <nlohmann/json.hpp>

#include "camera_node.h"

namespace {

/// @return a USB release number, which is binary-coded decimal, as text: "1.10" for 0x0110
std::string Release_Text(uint16_t bcd)
{
    std::array<char, 8> text{};
    (void)std::snprintf(text.data(), text.size(), "%x.%02x", bcd >> 8U, bcd & 0xFFU);
    return text.data();
}

void Print_Line(const char* label, const std::string& text)
{
    if (!text.empty()) {
        std::cout << "     " << label << text << '\n';
    }
}

void Print_Text(size_t index, const v4l2_dev_sys_data_t& camera)
{
    std::cout << index << ": " << camera.device << "  " << Printable(camera.name) << '\n';
    Print_Line("driver        ", Printable(camera.driver));
    Print_Line("location      ", Printable(camera.location));
    if (camera.vendor == 0 && camera.product == 0) {
        Print_Line("", "not on USB");
        return;
    }
    Print_Line("ids           ",
               Id_Text(camera) + ", release " + Release_Text(camera.Bcd) + ", bus " + std::to_string(camera.busnum));
    Print_Line("manufacturer  ", Printable(camera.iManufacturer));
    Print_Line("product       ", Printable(camera.iProduct));
    Print_Line("serial        ", Printable(camera.iSerialNumber));
}

nlohmann::ordered_json Json(size_t index, const v4l2_dev_sys_data_t& camera)
{
    const std::string ids = Id_Text(camera);
    return {{"index", index},
            {"node", camera.device},
            {"card", camera.name},
            {"driver", camera.driver},
            {"location", camera.location},
            {"vid", ids.substr(0, ids.find(':'))},
            {"pid", ids.substr(ids.find(':') + 1)},
            {"release", Release_Text(camera.Bcd)},
            {"bus", camera.busnum},
            {"manufacturer", camera.iManufacturer},
            {"product", camera.iProduct},
            {"serial", camera.iSerialNumber}};
}

}  // namespace

void Print_Cameras(const Camera_List& cameras, std::optional<uint16_t> vid, std::optional<uint16_t> pid, bool json)
{
    auto list = nlohmann::ordered_json::array();
    size_t shown = 0;
    const auto records = cameras.Records();
    for (size_t index = 0; index < records.size(); ++index) {
        const auto& camera = records[index];
        if (camera.Vid != vid.value_or(camera.Vid) || camera.Pid != pid.value_or(camera.Pid)) {
            continue;
        }
        ++shown;
        if (json) {
            list.push_back(Json(index, camera));
        } else {
            Print_Text(index, camera);
        }
    }
    if (json) {
        // JSON must be UTF-8, and the strings of a camera need not be.
        std::cout << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
    }
    if (shown == 0) {
        const std::string remark = Remark_On_Forbidden_Nodes();
        std::cerr << "no camera found" << (remark.empty() ? "" : "; " + remark) << '\n';
    }
}
