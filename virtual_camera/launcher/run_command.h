// Runs a command on a device tree of its own.
#ifndef WQZ_VIRTUAL_CAMERA_RUN_COMMAND_H
#define WQZ_VIRTUAL_CAMERA_RUN_COMMAND_H

#include <string>

constexpr int Cannot_Run = 126;  // as shells have it

/// @param devices  what the command sees in /sys and /dev, as Umockdev_Description() writes it
/// @param object  preloaded into the command and all that it starts
/// @return the command's exit status; 128 and the signal's number when a signal ended it
/// @throw std::runtime_error when nothing can be run
int Run_Command(char** command, const std::string& devices, const std::string& object);

#endif  // WQZ_VIRTUAL_CAMERA_RUN_COMMAND_H
