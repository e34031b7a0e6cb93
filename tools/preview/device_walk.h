// One thread at a time looks for devices.
#ifndef WQZ_TOOL_PREVIEW_DEVICE_WALK_H
#define WQZ_TOOL_PREVIEW_DEVICE_WALK_H

#include <mutex>

/// Held by every call that lists, opens, watches or brings back a camera: libudev has a state that all threads share
/// and nothing guards.
inline std::mutex Device_Walk;

#endif  // WQZ_TOOL_PREVIEW_DEVICE_WALK_H
