// Comparing modes: what is offered, what comes near, what needs less of the bus.
#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Camera/camera_modes.h"

namespace wqz_camera {

namespace {

constexpr uint32_t Big_Endian = 1U << 31;  // in a FourCC
constexpr double Interval_Tolerance = 0.001;
constexpr double Rounding = 1e-9;  // room for doubles where fractions are compared
constexpr size_t Named_Modes = 4;  // more in a message would not be read
constexpr double Uncompressed_Bytes_Per_Pixel = 2;
constexpr double Compressed_Bytes_Per_Pixel = 0.5;  // a generous Motion-JPEG

// Distances between modes are counted in doublings. The weights put another format farther away than another size, and
// a size farther than a rate.
constexpr double Format_Weight = 16;
constexpr double Size_Weight = 2;

double Seconds(const WQZ_Camera_Fraction& interval)
{
    return Is_Known(interval) ? static_cast<double>(interval.numerator) / interval.denominator : 0;
}

bool In_Range(uint32_t value, uint32_t least, uint32_t greatest, uint32_t step)
{
    return value >= least && value <= greatest && (step == 0 || (value - least) % step == 0);
}

bool Offers_Size(const WQZ_Camera_Offer& offer, const WQZ_Camera_Request& request)
{
    return offer.fourcc == request.fourcc &&
           In_Range(request.width, offer.width_min, offer.width_max, offer.width_step) &&
           In_Range(request.height, offer.height_min, offer.height_max, offer.height_step);
}

bool Is_Range(const WQZ_Camera_Offer& offer)
{
    return Seconds(offer.interval_min) != Seconds(offer.interval_max);
}

bool Same_Seconds(double one, double other)
{
    return std::abs(one - other) <= std::max(one, other) * Interval_Tolerance * (1 + Rounding);
}

// The nearest interval of a range, on its grid.
double Nearest_Seconds(const WQZ_Camera_Offer& offer, double wanted)
{
    const double least = Seconds(offer.interval_min);
    const double greatest = Seconds(offer.interval_max);
    const double step = Seconds(offer.interval_step);
    const double inside = std::clamp(wanted, least, std::max(least, greatest));
    if (step == 0) {
        return inside;
    }
    const double last = std::floor((greatest - least) / step + Rounding);
    return least + std::min(std::round((inside - least) / step), last) * step;
}

// For texts: exact to the nanosecond, or of long intervals to the microsecond.
WQZ_Camera_Fraction Fraction_Of(double seconds)
{
    const double parts = seconds < 4 ? 1e9 : 1e6;
    return {static_cast<uint32_t>(std::min<double>(std::round(seconds * parts), UINT32_MAX)),
            static_cast<uint32_t>(parts)};
}

uint32_t Nearest_In_Range(uint32_t value, uint32_t least, uint32_t greatest, uint32_t step)
{
    const uint32_t inside = std::clamp(value, least, std::max(least, greatest));
    return step == 0 ? inside : inside - (inside - least) % step;
}

// The mode of an offer that comes nearest.
WQZ_Camera_Mode Nearest_Mode(const WQZ_Camera_Offer& offer, const WQZ_Camera_Mode& wish)
{
    WQZ_Camera_Mode mode{};
    mode.fourcc = offer.fourcc;
    mode.width = Nearest_In_Range(wish.width, offer.width_min, offer.width_max, offer.width_step);
    mode.height = Nearest_In_Range(wish.height, offer.height_min, offer.height_max, offer.height_step);
    mode.interval = offer.interval_min;
    if (Is_Range(offer) && Is_Known(wish.interval)) {
        mode.interval = Fraction_Of(Nearest_Seconds(offer, Seconds(wish.interval)));
    }
    return mode;
}

double Octaves(double one, double other)
{
    return one > 0 && other > 0 ? std::abs(std::log2(one / other)) : 0;
}

double Distance(const WQZ_Camera_Mode& one, const WQZ_Camera_Mode& other)
{
    return (one.fourcc == other.fourcc ? 0 : Format_Weight) +
           Size_Weight * (Octaves(one.width, other.width) + Octaves(one.height, other.height)) +
           Octaves(Seconds(one.interval), Seconds(other.interval));
}

struct Rated_Mode {
    WQZ_Camera_Mode mode;
    double rating;
};

// Names the modes with the lowest ratings, each once.
std::string Best_Rated(std::vector<Rated_Mode> modes)
{
    std::stable_sort(modes.begin(), modes.end(),
                     [](const Rated_Mode& one, const Rated_Mode& other) { return one.rating < other.rating; });
    std::vector<std::string> names;
    std::string text;
    for (size_t i = 0; i < modes.size() && names.size() < Named_Modes; ++i) {
        const std::string name = Mode_Text(modes[i].mode);
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            text += (names.empty() ? "" : ", ") + name;
            names.push_back(name);
        }
    }
    return text;
}

// An estimate, because the size of compressed frames is not known in advance.
double Load(const WQZ_Camera_Mode& mode, bool compressed)
{
    const double pixels = static_cast<double>(mode.width) * mode.height;
    const double seconds = Seconds(mode.interval);
    return pixels * (compressed ? Compressed_Bytes_Per_Pixel : Uncompressed_Bytes_Per_Pixel) /
           (seconds > 0 ? seconds : 1);
}

bool Is_Compressed(const WQZ_Camera_Offer& offer)
{
    return (offer.flags & WQZ_CAMERA_OFFER_COMPRESSED) != 0;
}

}  // namespace

std::string Fourcc_Text(uint32_t fourcc)
{
    std::string text;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        const uint32_t letter = (fourcc & ~Big_Endian) >> shift & 0xFF;
        text += letter < ' ' || letter > '~' ? '?' : static_cast<char>(letter);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return (fourcc & Big_Endian) != 0 ? text + "-BE" : text;
}

bool Is_Known(const WQZ_Camera_Fraction& interval)
{
    return interval.numerator != 0 && interval.denominator != 0;
}

std::string Mode_Text(const WQZ_Camera_Mode& mode)
{
    std::string text = Fourcc_Text(mode.fourcc) + " " + std::to_string(mode.width) + "x" + std::to_string(mode.height);
    if (Is_Known(mode.interval)) {
        char rate[32];
        (void)snprintf(rate, sizeof rate, " at %.4g", 1 / Seconds(mode.interval));
        text += rate + std::string(" frames per second");
    }
    return text;
}

bool Same_Interval(const WQZ_Camera_Fraction& one, const WQZ_Camera_Fraction& other)
{
    return Same_Seconds(Seconds(one), Seconds(other));
}

std::optional<WQZ_Camera_Fraction> Offered_Interval(const std::vector<WQZ_Camera_Offer>& offers,
                                                    const WQZ_Camera_Request& request)
{
    const double wanted = Seconds(request.interval);
    std::optional<WQZ_Camera_Fraction> found;
    double difference = 0;
    for (const WQZ_Camera_Offer& offer : offers) {
        if (!Offers_Size(offer, request)) {
            continue;
        }
        if (!Is_Known(request.interval) || !Is_Known(offer.interval_min)) {
            return request.interval;
        }
        const double offered = Is_Range(offer) ? Nearest_Seconds(offer, wanted) : Seconds(offer.interval_min);
        if (Same_Seconds(offered, wanted) && (!found || std::abs(offered - wanted) < difference)) {
            found = Is_Range(offer) ? request.interval : offer.interval_min;
            difference = std::abs(offered - wanted);
        }
    }
    return found;
}

std::string Nearest_Modes(const WQZ_Camera_Mode& wish, const std::vector<WQZ_Camera_Offer>& offers)
{
    std::vector<Rated_Mode> modes;
    for (const WQZ_Camera_Offer& offer : offers) {
        const WQZ_Camera_Mode mode = Nearest_Mode(offer, wish);
        if (Mode_Text(mode) != Mode_Text(wish)) {
            modes.push_back({mode, Distance(mode, wish)});
        }
    }
    return Best_Rated(std::move(modes));
}

std::string Lighter_Modes(const WQZ_Camera_Mode& mode, const std::vector<WQZ_Camera_Offer>& offers)
{
    const bool compressed = std::any_of(offers.begin(), offers.end(), [&](const WQZ_Camera_Offer& offer) {
        return offer.fourcc == mode.fourcc && Is_Compressed(offer);
    });
    std::vector<Rated_Mode> modes;
    for (const WQZ_Camera_Offer& offer : offers) {
        const WQZ_Camera_Mode candidate = Nearest_Mode(offer, mode);
        if (Load(candidate, Is_Compressed(offer)) < Load(mode, compressed)) {
            // A compressed format helps most, and costs neither size nor rate.
            modes.push_back({candidate, Distance(candidate, mode) - (Is_Compressed(offer) ? Format_Weight : 0)});
        }
    }
    return Best_Rated(std::move(modes));
}

double Bytes_Per_Second(const WQZ_Camera_Mode& mode)
{
    return Is_Known(mode.interval) ? mode.image_size / Seconds(mode.interval) : 0;
}

std::string Megabytes_Text(double bytes)
{
    char text[32];
    (void)snprintf(text, sizeof text, "%.1f MB", bytes / 1e6);
    return text;
}

}  // namespace wqz_camera
