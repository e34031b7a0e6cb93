// Reads single values of a description.
#include "description/description_parts.h"

#include <cmath>
#include <cstring>
#include <tuple>

namespace virtual_camera {
namespace {

std::pair<uint32_t, uint32_t> Parse_Pair(const std::string& text)
{
    const Words parts = Split(text, "x");
    if (parts.size() != 2) {
        Refuse("'" + text + "' is not WIDTHxHEIGHT");
    }
    const auto width = Parse_Number<uint16_t>(parts[0]), height = Parse_Number<uint16_t>(parts[1]);
    if (width == 0 || height == 0) {
        Refuse("a size cannot be 0");
    }
    return {width, height};
}

}  // namespace

Words Split(const std::string& text, const char* separators)
{
    Words words;
    size_t from = text.find_first_not_of(separators);
    while (from != std::string::npos) {
        const size_t end = text.find_first_of(separators, from);
        words.push_back(text.substr(from, end - from));
        from = text.find_first_not_of(separators, end);
    }
    return words;
}

double Parse_Decimal(const std::string& text)
{
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, std::chars_format::fixed);
    constexpr double Most = 1e6;
    if (text.empty() || error != std::errc{} || stop != end || !(value > 0 && value <= Most)) {
        Refuse("'" + text + "' is no number above 0 and up to a million");
    }
    return value;
}

double Parse_Seconds(const std::string& text)
{
    const size_t unit = text.empty() || text.back() != 's' ? 0 : 1;
    return Parse_Decimal(text.substr(0, text.size() - unit));
}

v4l2_fract Parse_Interval(const std::string& text)
{
    const size_t slash = text.find('/');
    if (slash != std::string::npos) {
        const v4l2_fract interval{Parse_Number<uint32_t>(text.substr(0, slash)),
                                  Parse_Number<uint32_t>(text.substr(slash + 1))};
        if (interval.numerator == 0 || interval.denominator == 0) {
            Refuse("an interval cannot contain 0");
        }
        return interval;
    }
    const double rate = Parse_Decimal(text);
    if (rate == std::floor(rate)) {
        return {1, Parse_Number<uint32_t>(text)};
    }
    return {1000, static_cast<uint32_t>(std::lround(rate * 1000))};
}

Frame_Size Parse_Size(const std::string& text)
{
    Frame_Size size;
    const size_t dash = text.find('-'), slash = text.find('/');
    std::tie(size.width, size.height) = Parse_Pair(text.substr(0, dash));
    size.max_width = size.width;
    size.max_height = size.height;
    if (dash != std::string::npos) {
        if (slash == std::string::npos) {
            Refuse("a range of sizes needs its step: WxH-WxH/WxH");
        }
        std::tie(size.max_width, size.max_height) = Parse_Pair(text.substr(dash + 1, slash - dash - 1));
        std::tie(size.step_width, size.step_height) = Parse_Pair(text.substr(slash + 1));
        if (size.max_width < size.width || size.max_height < size.height) {
            Refuse("the largest size is below the smallest");
        }
    }
    return size;
}

uint32_t Parse_Fourcc(const std::string& text)
{
    if (text.empty() || text.size() > 4) {
        Refuse("'" + text + "' is no four-character code");
    }
    std::string code = text + std::string(4 - text.size(), ' ');
    return v4l2_fourcc(static_cast<uint32_t>(code[0]), static_cast<uint32_t>(code[1]), static_cast<uint32_t>(code[2]),
                       static_cast<uint32_t>(code[3]));
}

int Parse_Errno(const std::string& text)
{
    constexpr int Highest = 133;
    for (int error = 1; error <= Highest; error++) {
        const char* name = strerrorname_np(error);
        if (name && text == name) {
            return error;
        }
    }
    Refuse("'" + text + "' is no errno name");
}

}  // namespace virtual_camera
