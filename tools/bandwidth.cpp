// Computes what modes need and what USB carries.
#include "bandwidth.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <string_view>

#include "modes.h"

namespace {

struct Format_Bits {
    std::string_view format;
    uint32_t bits;  ///< per pixel, all planes together
};

constexpr Format_Bits Formats[] = {
    {"YUYV", 16}, {"UYVY", 16}, {"YVYU", 16}, {"VYUY", 16}, {"NV16", 16}, {"422P", 16}, {"NV12", 12}, {"NV21", 12},
    {"YU12", 12}, {"YV12", 12}, {"M420", 12}, {"GREY", 8},  {"Y10 ", 16}, {"Y12 ", 16}, {"Y16 ", 16}, {"Z16 ", 16},
    {"RGB3", 24}, {"BGR3", 24}, {"RGBP", 16}, {"BGR4", 32}, {"RGB4", 32}, {"BA81", 8},  {"GBRG", 8},  {"GRBG", 8},
    {"RGGB", 8},  {"BG10", 16}, {"GB10", 16}, {"BA10", 16}, {"RG10", 16}, {"BG12", 16}, {"GB12", 16}, {"BA12", 16},
    {"RG12", 16}, {"BYR2", 16}, {"pBAA", 10}, {"pGAA", 10}, {"pgAA", 10}, {"pRAA", 10},
};

uint32_t Bits_Of(uint32_t fourcc)
{
    const auto* found =
        std::ranges::find(Formats, fourcc, [](const Format_Bits& row) { return wqz::Fourcc(row.format).Code(); });
    return found == std::end(Formats) ? 0 : found->bits;
}

/// A speed of USB, and what it carries as its specification has it. The few bytes of header in each packet are not
/// taken off.
struct Usb_Speed {
    uint32_t least_megabits;
    const char* name;
    double isochronous;  ///< bytes a second for one stream of frames
    double bulk;         ///< bytes a second for one stream of frames without a reservation
    const char* reason;  ///< of `isochronous`
    double bus;          ///< bytes a second that all streams together can reserve; 0 when not known
};

constexpr double Microframes = 8000;  // a second; full speed has 1000 frames a second instead

// USB 2.0 specification, 5.6.3 and 5.9.2 for packets, 5.8.4 for bulk, 5.6.4 for the parts of the bus that can be
// reserved: 90 % of 1500 bytes a frame, 80 % of 7500 bytes a microframe. USB 3.2 specification for the others: bursts
// of 16 packets, three of them, or six at double speed.
constexpr Usb_Speed Speeds[] = {
    {10000, "USB 3 at double speed", 6 * 16 * 1024 * Microframes, 6 * 16 * 1024 * Microframes,
     "96 x 1024 bytes in each of 8,000 microframes a second", 0},
    {5000, "USB 3", 3 * 16 * 1024 * Microframes, 3 * 16 * 1024 * Microframes,
     "48 x 1024 bytes in each of 8,000 microframes a second", 0},
    {480, "USB 2 high speed", 3 * 1024 * Microframes, 13 * 512 * Microframes,
     "3 x 1024 bytes in each of 8,000 microframes a second", 0.8 * 7500 * Microframes},
    {1, "USB full speed", 1023 * 1000, 19 * 64 * 1000, "1023 bytes in each of 1,000 frames a second",
     0.9 * 1500 * 1000},
};

const Usb_Speed* Find_Speed(uint32_t megabits)
{
    const auto* found =
        std::ranges::find_if(Speeds, [&](const Usb_Speed& speed) { return megabits >= speed.least_megabits; });
    return found == std::end(Speeds) ? nullptr : found;
}

}  // namespace

double Needed(const WQZ_Camera_Offer& offer)
{
    // What a library or driver makes does not cross the bus.
    const bool crosses_otherwise = (offer.flags & (WQZ_CAMERA_OFFER_COMPRESSED | WQZ_CAMERA_OFFER_EMULATED)) != 0;
    const double bytes = static_cast<double>(offer.width_max) * offer.height_max * Bits_Of(offer.fourcc) / 8;
    return crosses_otherwise ? 0 : bytes * Rate(offer.interval_min);
}

double Port_Limit(const Usb_Camera& camera)
{
    const Usb_Speed* speed = Find_Speed(camera.megabits);
    if (speed == nullptr) {
        return 0;
    }
    return camera.has_bulk_frames ? speed->bulk : speed->isochronous;
}

std::string Limit_Reason(const Usb_Camera& camera)
{
    const Usb_Speed* speed = Find_Speed(camera.megabits);
    if (speed == nullptr) {
        return "";
    }
    return camera.has_bulk_frames ? "the most that bulk transfers reach" : speed->reason;
}

double Bus_Limit(uint32_t megabits)
{
    const Usb_Speed* speed = Find_Speed(megabits);
    return speed == nullptr ? 0 : speed->bus;
}

const WQZ_Camera_Offer* Widest_Within(const std::vector<WQZ_Camera_Offer>& offers, double limit)
{
    const WQZ_Camera_Offer* widest = nullptr;
    for (const WQZ_Camera_Offer& offer : offers) {
        const double needed = Needed(offer);
        if (needed > 0 && needed <= limit && (widest == nullptr || needed > Needed(*widest))) {
            widest = &offer;
        }
    }
    return widest;
}

std::string Speed_Text(uint32_t megabits)
{
    const Usb_Speed* speed = Find_Speed(megabits);
    return speed == nullptr ? "USB at unknown speed"
                            : std::string(speed->name) + ", " + std::to_string(megabits) + " Mbit/s";
}

std::string Megabytes_Text(double bytes_per_second)
{
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f MB/s", bytes_per_second / 1e6);
    return text.data();
}

std::string Largest_Mode_Text(const WQZ_Camera_Offer& offer)
{
    WQZ_Camera_Mode mode{};
    std::copy(std::begin(offer.format), std::end(offer.format), std::begin(mode.format));
    mode.width = offer.width_max;
    mode.height = offer.height_max;
    mode.interval = offer.interval_min;
    return Mode_Text(mode);
}
