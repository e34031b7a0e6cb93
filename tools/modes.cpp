// Prints and chooses modes.
#include "modes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <nlohmann/json.hpp>
#include <numeric>

#include "output.h"
#include "text.h"
#include "tool_error.h"

namespace {

using Json = nlohmann::ordered_json;
using Offers = std::vector<WQZ_Camera_Offer>;

constexpr double Rate_Tolerance = 0.001 + 1e-9;  // as WQZ_Camera_Start has it, with room for rounding

std::string Size_Text(uint32_t width, uint32_t height)
{
    return std::to_string(width) + "x" + std::to_string(height);
}

bool Has_One_Size(const WQZ_Camera_Offer& offer)
{
    return offer.width_min == offer.width_max && offer.height_min == offer.height_max;
}

bool Has_One_Interval(const WQZ_Camera_Offer& offer)
{
    return Rate(offer.interval_min) == Rate(offer.interval_max);
}

std::string Sizes_Text(const WQZ_Camera_Offer& offer)
{
    std::string least = Size_Text(offer.width_min, offer.height_min);
    if (Has_One_Size(offer)) {
        return least;
    }
    return least + " to " + Size_Text(offer.width_max, offer.height_max) + " in steps of " +
           Size_Text(offer.width_step, offer.height_step);
}

// The exact fraction, and for people the number that it is.
std::string Rate_For_People(const WQZ_Camera_Fraction& interval)
{
    std::string exact = Rate_Text(interval);
    if (exact.find('/') == std::string::npos) {
        return exact;
    }
    std::array<char, 32> rounded{};
    (void)std::snprintf(rounded.data(), rounded.size(), "%.4g", Rate(interval));
    return exact + " (" + rounded.data() + ")";
}

std::string Rates_Text(const WQZ_Camera_Offer& offer)
{
    if (Has_One_Interval(offer)) {
        return Rate_For_People(offer.interval_min);
    }
    std::string text = Rate_For_People(offer.interval_max) + " to " + Rate_For_People(offer.interval_min);
    const WQZ_Camera_Fraction& step = offer.interval_step;
    if (step.numerator != 0 && step.denominator != 0) {
        text += ", the time between frames in steps of " + Fraction_Text(step) + " s";
    }
    return text;
}

/// A row of the table: neighbouring offers of one format and size, with their rates in one text.
struct Row {
    std::string format;
    std::string sizes;
    std::string rates;
};

std::vector<Row> Rows(const Offers& offers)
{
    std::vector<Row> rows;
    for (const WQZ_Camera_Offer& offer : offers) {
        const std::string sizes = Sizes_Text(offer);
        if (rows.empty() || rows.back().format != offer.format || rows.back().sizes != sizes) {
            rows.push_back({offer.format, sizes, ""});
        }
        Append_Item(rows.back().rates, "  ", Rates_Text(offer));
    }
    return rows;
}

void Print_Table(const Offers& offers)
{
    constexpr size_t Least_Width = 10;
    size_t width = Least_Width;
    const std::vector<Row> rows = Rows(offers);
    for (const Row& row : rows) {
        width = std::max(width, row.sizes.size());
    }
    const auto column = std::setw(static_cast<int>(width) + 2);
    std::cout << std::left << "FORMAT  " << column << "SIZE"
              << "FRAMES PER SECOND\n";
    for (const Row& row : rows) {
        std::cout << std::setw(8) << Printable(row.format) << column << row.sizes << row.rates << '\n';
    }
}

Json Range_Json(uint32_t least, uint32_t greatest, uint32_t step)
{
    return least == greatest ? Json(least) : Json{{"min", least}, {"max", greatest}, {"step", step}};
}

Json Rate_Json(const WQZ_Camera_Fraction& interval)
{
    const double rate = Rate(interval);
    return rate == std::floor(rate) ? Json(static_cast<uint64_t>(rate)) : Json(rate);
}

Json Mode_Json(const WQZ_Camera_Offer& offer)
{
    Json json{{"format", offer.format},
              {"width", Range_Json(offer.width_min, offer.width_max, offer.width_step)},
              {"height", Range_Json(offer.height_min, offer.height_max, offer.height_step)}};
    if (Has_One_Interval(offer)) {
        json["fps"] = Rate_Json(offer.interval_min);
        json["interval"] = Fraction_Text(offer.interval_min);
    } else {
        json["fps"] = {{"min", Rate_Json(offer.interval_max)}, {"max", Rate_Json(offer.interval_min)}};
        json["interval"] = {{"min", Fraction_Text(offer.interval_min)},
                            {"max", Fraction_Text(offer.interval_max)},
                            {"step", Fraction_Text(offer.interval_step)}};
    }
    return json;
}

bool In_Range(uint32_t value, uint32_t least, uint32_t greatest, uint32_t step)
{
    return value >= least && value <= greatest && (step == 0 || (value - least) % step == 0);
}

bool Has_Rate(const WQZ_Camera_Offer& offer, double rate)
{
    return rate >= Rate(offer.interval_max) * (1 - Rate_Tolerance) &&
           rate <= Rate(offer.interval_min) * (1 + Rate_Tolerance);
}

bool Has_Size(const WQZ_Camera_Offer& offer, uint32_t width, uint32_t height)
{
    return In_Range(width, offer.width_min, offer.width_max, offer.width_step) &&
           In_Range(height, offer.height_min, offer.height_max, offer.height_step);
}

bool Fits(const WQZ_Camera_Offer& offer, const Mode_Wish& wish)
{
    return (!wish.size || Has_Size(offer, wish.size->first, wish.size->second)) &&
           (Rate(wish.interval) == 0 || Has_Rate(offer, Rate(wish.interval)));
}

uint32_t Largest(uint32_t least, uint32_t greatest, uint32_t step)
{
    return step == 0 ? greatest : greatest - (greatest - least) % step;
}

/// @throws Tool_Error  when no offer has the format
uint32_t Format_Named(const Offers& offers, const std::string& name)
{
    const std::string key = Key(name) == "mjpeg" ? "mjpg" : Key(name);
    std::vector<std::string> names;
    for (const WQZ_Camera_Offer& offer : offers) {
        if (Key(offer.format) == key) {
            return offer.fourcc;
        }
        if (names.empty() || names.back() != offer.format) {
            names.emplace_back(offer.format);
        }
    }
    std::string list;
    std::ranges::for_each(names, [&](const std::string& each) { Append_Item(list, ", ", each); });
    throw Tool_Error("the camera has no format '" + name + "'" + Suggestion(name, names) + " It has: " + list);
}

/// @return the first format of the preferred ones that some offer has, or the format of the first offer
uint32_t Preferred_Format(const Offers& offers, const std::vector<uint32_t>& preferred)
{
    for (const uint32_t fourcc : preferred) {
        if (std::ranges::find(offers, fourcc, &WQZ_Camera_Offer::fourcc) != offers.end()) {
            return fourcc;
        }
    }
    return offers.front().fourcc;
}

WQZ_Camera_Fraction Shortest_Interval(const Offers& offers, const wqz::Request& request)
{
    WQZ_Camera_Fraction shortest{0, 0};
    for (const WQZ_Camera_Offer& offer : offers) {
        if (Has_Size(offer, request.width, request.height) && Rate(offer.interval_min) > Rate(shortest)) {
            shortest = offer.interval_min;
        }
    }
    return shortest;
}

/// @return the number that up to nine digits make, as many as fit 32 bits; 0 for any other text
uint32_t Short_Number(const std::string& text)
{
    const bool is_number = text.size() <= 9 && text.find_first_not_of("0123456789") == std::string::npos;
    return is_number ? static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10)) : 0;
}

}  // namespace

void Print_Modes(const Offers& offers, bool json)
{
    if (!json) {
        Print_Table(offers);
        return;
    }
    std::cout << Json_Text(Offers_Json(offers)) << '\n';
}

Json Offers_Json(const Offers& offers)
{
    Json list = Json::array();
    std::ranges::transform(offers, std::back_inserter(list), Mode_Json);
    return list;
}

wqz::Request Choose_Mode(const Offers& offers, const Mode_Wish& wish, const std::vector<uint32_t>& preferred)
{
    if (offers.empty()) {
        throw Tool_Error("the camera lists no modes; plug it in again");
    }
    Offers fitting;
    std::ranges::copy_if(offers, std::back_inserter(fitting), [&](const auto& offer) { return Fits(offer, wish); });
    wqz::Request request;
    request.exact = true;
    request.format = wish.format.empty() ? Preferred_Format(fitting.empty() ? offers : fitting, preferred)
                                         : Format_Named(offers, wish.format);
    std::erase_if(fitting, [&](const auto& offer) { return offer.fourcc != request.format.Code(); });
    const auto of_format = std::ranges::find(offers, request.format.Code(), &WQZ_Camera_Offer::fourcc);
    const WQZ_Camera_Offer& first = fitting.empty() ? *of_format : fitting.front();
    request.width = wish.size ? wish.size->first : Largest(first.width_min, first.width_max, first.width_step);
    request.height = wish.size ? wish.size->second : Largest(first.height_min, first.height_max, first.height_step);
    request.rate = Rate(wish.interval) == 0 ? Shortest_Interval(fitting, request) : wish.interval;
    return request;
}

std::optional<WQZ_Camera_Fraction> Interval_Of_Rate(const std::string& rate)
{
    const size_t split = rate.find_first_of("./");
    std::string frames = rate.substr(0, split);
    std::string seconds = "1";
    if (split != std::string::npos && rate[split] == '/') {
        seconds = rate.substr(split + 1);
    } else if (split != std::string::npos) {
        frames += rate.substr(split + 1);
        seconds.append(rate.size() - split - 1, '0');
    }
    const uint32_t numerator = Short_Number(seconds);
    const uint32_t denominator = Short_Number(frames);
    if (numerator == 0 || denominator == 0) {
        return std::nullopt;
    }
    const uint32_t divisor = std::gcd(numerator, denominator);
    return WQZ_Camera_Fraction{numerator / divisor, denominator / divisor};
}

std::string Fraction_Text(const WQZ_Camera_Fraction& fraction)
{
    const uint32_t divisor = std::max(1U, std::gcd(fraction.numerator, fraction.denominator));
    return std::to_string(fraction.numerator / divisor) + "/" + std::to_string(fraction.denominator / divisor);
}

std::string Rate_Text(const WQZ_Camera_Fraction& interval)
{
    constexpr uint64_t Thousand = 1000;
    const uint64_t divisor = std::max(1U, std::gcd(interval.numerator, interval.denominator));
    const uint64_t frames = interval.denominator / divisor;
    const uint64_t seconds = interval.numerator / divisor;
    if (frames == 0 || seconds == 0) {
        return "unknown";
    }
    if (frames * Thousand % seconds != 0) {
        return std::to_string(frames) + "/" + std::to_string(seconds);
    }
    std::string decimals = std::to_string(Thousand + frames * Thousand / seconds % Thousand).substr(1);
    decimals.erase(decimals.find_last_not_of('0') + 1);
    return std::to_string(frames / seconds) + (decimals.empty() ? "" : "." + decimals);
}

double Rate(const WQZ_Camera_Fraction& interval)
{
    return interval.numerator == 0 ? 0 : static_cast<double>(interval.denominator) / interval.numerator;
}

std::string Mode_Text(const WQZ_Camera_Mode& mode)
{
    const std::string rate = Rate(mode.interval) == 0 ? "" : " at " + Rate_Text(mode.interval) + " frames per second";
    return Printable(mode.format) + " " + Size_Text(mode.width, mode.height) + rate;
}
