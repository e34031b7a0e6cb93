// Parts of Parse_Description: reads single values, and fills in what a description leaves open.
#ifndef WQZ_VIRTUAL_CAMERA_DESCRIPTION_VALUES_H
#define WQZ_VIRTUAL_CAMERA_DESCRIPTION_VALUES_H

#include <virtual_camera/description.h>
#include <charconv>
#include <functional>

namespace virtual_camera {

// Values in the text. Each function throws Description_Error for what it cannot read.

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
double Parse_Seconds(const std::string& text);  ///< likewise; "s" may follow the number

/// "30" and "7.5" are frames per second, "1/30" is an interval in seconds.
v4l2_fract Parse_Interval(const std::string& text);

/// WxH, or a range WxH-WxH/WxH of smallest, largest and step.
Frame_Size Parse_Size(const std::string& text);

uint32_t Parse_Fourcc(const std::string& text);
int Parse_Errno(const std::string& text);

// Node numbers and bus information that a description leaves open.

/// "video4" of "/dev/video4".
std::string Node_Name(const std::string& path);

/// 4 of "/dev/video4"; 0 without a number.
unsigned Node_Number(const std::string& path);

/// Fills open fields in. `is_taken` tells which paths other cameras have.
void Complete(Camera_Description& camera, const std::function<bool(const std::string&)>& is_taken);

/// Completes all cameras of a description.
/// @throw Description_Error when two want the same node
void Complete_All(std::vector<Camera_Description>& cameras);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_DESCRIPTION_VALUES_H
