// Reads, prints and chooses modes.
#include "modes.h"

#include <algorithm>
#include <cctype>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>

#include "text.h"
#include "tool_error.h"

namespace {

std::string Size_Text(const Pix_Format& mode)
{
    return std::to_string(mode.u_Width) + "x" + std::to_string(mode.u_Height);
}

bool Same_Size(const Pix_Format& a, const Pix_Format& b)
{
    return a.u_PixFormat == b.u_PixFormat && a.u_Width == b.u_Width && a.u_Height == b.u_Height;
}

template <typename Condition>
std::vector<Pix_Format> Matching(const std::vector<Pix_Format>& modes, Condition condition)
{
    std::vector<Pix_Format> result;
    std::ranges::copy_if(modes, std::back_inserter(result), condition);
    return result;
}

/// Neighbouring modes of one format and size; their rates are joined in one text.
struct Row {
    Pix_Format mode;
    std::string rates;
};

std::vector<Row> Rows(const std::vector<Pix_Format>& modes)
{
    std::vector<Row> rows;
    for (const Pix_Format& mode : modes) {
        if (rows.empty() || !Same_Size(rows.back().mode, mode)) {
            rows.push_back({mode, ""});
        }
        Append_Item(rows.back().rates, " ", std::to_string(mode.u_Fps));
    }
    return rows;
}

std::string Offer(const std::vector<Pix_Format>& modes)
{
    std::string text;
    for (const Row& row : Rows(modes)) {
        text += "\n  " + Four_CC_Text(row.mode.u_PixFormat) + " " + Size_Text(row.mode) + " at " + row.rates;
    }
    return text;
}

bool Can_Be_Captured(const Pix_Format& mode)
{
    return mode.u_PixFormat == V4L2_PIX_FMT_MJPEG || mode.u_PixFormat == V4L2_PIX_FMT_YUYV;
}

std::string Wish_Text(const Mode_Wish& wish)
{
    std::string text = wish.pixel_format ? Four_CC_Text(*wish.pixel_format) : "mode of";
    if (wish.size) {
        text += " " + std::to_string(wish.size->first) + "x" + std::to_string(wish.size->second);
    }
    return wish.frames_per_second ? text + " at " + std::to_string(*wish.frames_per_second) + " frames per second"
                                  : text;
}

}  // namespace

std::vector<Pix_Format> Read_Modes(void* handle)
{
    std::vector<Pix_Format> modes(static_cast<size_t>(std::max(WQZ_USBCam_Get_Format_List_Size(handle), 0)));
    (void)WQZ_USBCam_Get_Format_List(handle, modes.data());
    return modes;
}

void Print_Modes(const std::vector<Pix_Format>& modes, bool json)
{
    if (json) {
        auto list = nlohmann::ordered_json::array();
        for (const Pix_Format& mode : modes) {
            list.push_back({{"format", Four_CC_Text(mode.u_PixFormat)},
                            {"width", mode.u_Width},
                            {"height", mode.u_Height},
                            {"fps", mode.u_Fps}});
        }
        std::cout << list.dump(2) << '\n';
        return;
    }
    std::cout << "FORMAT  SIZE        FRAMES PER SECOND\n" << std::left;
    for (const Row& row : Rows(modes)) {
        std::cout << std::setw(8) << Four_CC_Text(row.mode.u_PixFormat) << std::setw(12) << Size_Text(row.mode)
                  << row.rates << '\n';
    }
}

Pix_Format Choose_Mode(const std::vector<Pix_Format>& modes, const Mode_Wish& wish)
{
    if (modes.empty()) {
        throw Tool_Error("the camera lists no modes; plug it in again");
    }
    const auto has_format = [&](const Pix_Format& mode) {
        return Can_Be_Captured(mode) && mode.u_PixFormat == wish.pixel_format.value_or(mode.u_PixFormat);
    };
    const auto has_size = [&](const Pix_Format& mode) {
        return !wish.size || *wish.size == std::pair{mode.u_Width, mode.u_Height};
    };
    const auto has_rate = [&](const Pix_Format& mode) {
        return mode.u_Fps == wish.frames_per_second.value_or(mode.u_Fps);
    };
    const auto of_format = Matching(modes, has_format);
    if (of_format.empty()) {
        throw Tool_Error("the camera has no " +
                         (wish.pixel_format ? Four_CC_Text(*wish.pixel_format) : "MJPG or YUYV") +
                         " mode; it offers:" + Offer(modes));
    }
    const auto of_size = Matching(of_format, has_size);
    const auto wanted = Matching(of_size, has_rate);
    if (wanted.empty()) {
        throw Tool_Error("the camera has no " + Wish_Text(wish) +
                         "; it offers:" + Offer(of_size.empty() ? of_format : of_size));
    }
    const auto is_mjpeg = [](const Pix_Format& mode) { return mode.u_PixFormat == V4L2_PIX_FMT_MJPEG; };
    const auto mjpeg = std::ranges::find_if(wanted, is_mjpeg);
    const Pix_Format& first = mjpeg == wanted.end() ? wanted.front() : *mjpeg;
    const auto rates = Matching(wanted, [&](const Pix_Format& mode) { return Same_Size(mode, first); });
    return *std::ranges::max_element(rates, {}, &Pix_Format::u_Fps);
}

std::string Four_CC_Text(uint32_t pixel_format)
{
    std::string text;
    for (uint32_t shift = 0; shift < 32; shift += 8) {
        const auto c = static_cast<unsigned char>((pixel_format >> shift) & 0x7F);
        text += std::isprint(c) != 0 ? static_cast<char>(c) : '?';
    }
    return (pixel_format & (1U << 31)) != 0 ? text + "-BE" : text;
}

std::string Mode_Text(const Pix_Format& mode)
{
    const std::string rate = mode.u_Fps == 0 ? "" : " at " + std::to_string(mode.u_Fps) + " frames per second";
    return Four_CC_Text(mode.u_PixFormat) + " " + Size_Text(mode) + rate;
}
