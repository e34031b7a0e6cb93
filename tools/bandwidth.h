// How many bytes a mode needs, and how many a USB connection carries.
#ifndef WQZ_TOOL_BANDWIDTH_H
#define WQZ_TOOL_BANDWIDTH_H

#include <string>
#include <vector>

#include "Camera/wqz_camera.hpp"
#include "system_facts.h"

/// @return bytes a second that the largest and fastest mode of an offer needs; 0 for formats that are
///         compressed, emulated or unknown, and when the driver tells no rate
double Needed(const WQZ_Camera_Offer& offer);

/// @return bytes a second that a camera's frames can take on its connection; 0 when its speed is unknown
double Port_Limit(const Usb_Camera& camera);

/// @return why it is so much: "3 x 1024 bytes in each of 8,000 microframes a second"
std::string Limit_Reason(const Usb_Camera& camera);

/// @return bytes a second that all cameras of a bus with this speed can reserve; 0 when that is not known
double Bus_Limit(uint32_t megabits);

/// @return the offer that needs most of those that a limit leaves room for; null without an uncompressed one
const WQZ_Camera_Offer* Widest_Within(const std::vector<WQZ_Camera_Offer>& offers, double limit);

/// @return "USB 2 high speed, 480 Mbit/s"
std::string Speed_Text(uint32_t megabits);

/// @return "18.4 MB/s"
std::string Megabytes_Text(double bytes_per_second);

/// @return the largest and fastest mode of an offer: "YUYV 640x480 at 30 frames per second"
std::string Largest_Mode_Text(const WQZ_Camera_Offer& offer);

#endif  // WQZ_TOOL_BANDWIDTH_H
