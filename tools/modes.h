// Lists a camera's modes, chooses one, and writes modes as text.
#ifndef WQZ_TOOL_MODES_H
#define WQZ_TOOL_MODES_H

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Camera/wqz_camera.hpp"

/// The mode that the user asks for. Choose_Mode fills in what is left out.
struct Mode_Wish {
    std::string format;                                 ///< as `modes` prints it, in any case; empty for any
    std::optional<std::pair<uint32_t, uint32_t>> size;  ///< width and height in pixels
    WQZ_Camera_Fraction interval{0, 0};                 ///< 0/0 for any
};

constexpr uint32_t Motion_Jpeg = WQZ_CAMERA_FOURCC('M', 'J', 'P', 'G');
constexpr uint32_t Still_Jpeg = WQZ_CAMERA_FOURCC('J', 'P', 'E', 'G');
constexpr uint32_t Yuyv = WQZ_CAMERA_FOURCC('Y', 'U', 'Y', 'V');

/// Prints modes to standard output, as a table with a row per size or as JSON with an object per mode.
void Print_Modes(const std::vector<WQZ_Camera_Offer>& offers, bool json);

/// @return an object for each mode or range of modes
nlohmann::ordered_json Offers_Json(const std::vector<WQZ_Camera_Offer>& offers);

/// Picks the mode to ask for. The defaults are the preferred formats, the size that the camera lists first, and the
/// highest rate. What the camera does not offer stays in the request, for the camera interface to refuse.
/// @param preferred  formats to take where the wish names none, the best first; then any
/// @throws Tool_Error  when the camera lacks the format, or lists no modes
wqz::Request Choose_Mode(const std::vector<WQZ_Camera_Offer>& offers, const Mode_Wish& wish,
                         const std::vector<uint32_t>& preferred);

/// @return seconds per frame for a rate such as "30", "29.97" or "30000/1001"; nothing for any other text
std::optional<WQZ_Camera_Fraction> Interval_Of_Rate(const std::string& rate);

/// @return a fraction in lowest terms: "1001/30000"
std::string Fraction_Text(const WQZ_Camera_Fraction& fraction);

/// @return a rate as exactly as it can be written: "30", "7.5", "30000/1001"
std::string Rate_Text(const WQZ_Camera_Fraction& interval);

/// @return frames per second; 0 when the interval is unknown
double Rate(const WQZ_Camera_Fraction& interval);

/// @return a text such as "MJPG 640x480 at 30 frames per second", without the rate when it is unknown
std::string Mode_Text(const WQZ_Camera_Mode& mode);

#endif  // WQZ_TOOL_MODES_H
