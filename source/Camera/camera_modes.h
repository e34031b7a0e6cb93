// The modes that a camera offers, and the ones nearest to a request.
#ifndef WQZ_CAMERA_MODES_H
#define WQZ_CAMERA_MODES_H

#include <optional>
#include <string>
#include <vector>

#include "Camera/device_file.h"
#include "Camera/wqz_camera.h"

namespace wqz_camera {

/// Asks the driver for all formats, sizes and intervals.
/// @throws Failure
std::vector<WQZ_Camera_Offer> List_Offers(const Device_File& device);

/// @return "MJPG"; "Y16-BE" for a big-endian format (bit 31); blanks at the end are left out, what is not printable
///         becomes '?'
std::string Fourcc_Text(uint32_t fourcc);

/// @return "MJPG 1280x720 at 29.97 frames per second"
std::string Mode_Text(const WQZ_Camera_Mode& mode);

/// Whether two rates differ by no more than 0.1 %, as 30 and 30000/1001 do, and rates rounded to two decimals.
bool Same_Interval(const WQZ_Camera_Fraction& one, const WQZ_Camera_Fraction& other);

bool Is_Known(const WQZ_Camera_Fraction& interval);

/// Finds the mode that is asked for among the offers.
/// @return the interval to set: the offered one that comes nearest, or of a range the one asked for; nothing when the
///         mode is not offered
std::optional<WQZ_Camera_Fraction> Offered_Interval(const std::vector<WQZ_Camera_Offer>& offers,
                                                    const WQZ_Camera_Request& request);

/// @return the few offers that come nearest, as text; never the wish itself
std::string Nearest_Modes(const WQZ_Camera_Mode& wish, const std::vector<WQZ_Camera_Offer>& offers);

/// @return a few offers that need less bandwidth than `mode`, as text
std::string Lighter_Modes(const WQZ_Camera_Mode& mode, const std::vector<WQZ_Camera_Offer>& offers);

/// @return the most that a mode can take; 0 when its rate is not known
double Bytes_Per_Second(const WQZ_Camera_Mode& mode);
std::string Megabytes_Text(double bytes);

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_MODES_H
