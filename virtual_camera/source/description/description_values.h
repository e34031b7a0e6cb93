// Values in a description's text. Each function throws Description_Error for what it cannot read.
#ifndef WQZ_VIRTUAL_CAMERA_DESCRIPTION_VALUES_H
#define WQZ_VIRTUAL_CAMERA_DESCRIPTION_VALUES_H

#include <virtual_camera/description.h>
#include <charconv>

namespace virtual_camera {

using Words = std::vector<std::string>;

[[noreturn]] inline void Refuse(const std::string& message)
{
    throw Description_Error(message);
}

template <typename Number>
Number Parse_Number(const std::string& text, int base = 10)
{
    Number value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (text.empty() || error != std::errc{} || stop != end) {
        Refuse("'" + text + "' is no number in range");
    }
    return value;
}

Words Split(const std::string& text, const char* separators);
double Parse_Decimal(const std::string& text);  ///< above 0, at most a million
double Parse_Seconds(const std::string& text);  ///< such a number, with or without "s" behind it

/// "30" and "7.5" are frames per second, "1/30" is an interval in seconds.
v4l2_fract Parse_Interval(const std::string& text);

/// WxH, or a range WxH-WxH/WxH of smallest, largest and step.
Frame_Size Parse_Size(const std::string& text);

uint32_t Parse_Fourcc(const std::string& text);
int Parse_Errno(const std::string& text);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_DESCRIPTION_VALUES_H
