// Declares how the tool talks to its user.
#ifndef WQZ_TOOL_OUTPUT_H
#define WQZ_TOOL_OUTPUT_H

#include <nlohmann/json_fwd.hpp>
#include <string>

/// Every message begins with this.
constexpr const char* Message_Start = "wqz-usbcam: ";

/// Prints a message to standard error, in place of the progress line if there is one.
void Say(const std::string& message);

/// Shows a line that the next message or progress line overwrites; does nothing when standard error is no terminal.
void Show_Progress(const std::string& line);

/// Removes the progress line.
void Clear_Progress();

/// @return JSON as text; bytes that are not UTF-8, as strings of a camera may hold, are replaced
/// @param indent  spaces for each level; -1 for a single line
std::string Json_Text(const nlohmann::ordered_json& json, int indent = 2);

/// Writes out what std::cout holds.
/// @throws Tool_Error  when standard output does not take it, as on a full disk
void Flush_Output();

#endif  // WQZ_TOOL_OUTPUT_H
