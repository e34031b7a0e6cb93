// Declares the verb "controls".
#ifndef WQZ_TOOL_CONTROLS_H
#define WQZ_TOOL_CONTROLS_H

#include <string>
#include <vector>

/// Prints or sets controls of a camera.
/// @param words  a camera may come first. Then names print single controls, "name=value" sets one, "reset" sets all to
///               their defaults, in this order; no word prints all. All words are checked before anything is set.
/// @param json  print the controls as a JSON array
/// @return the exit status: 1 when a control could not be read or reset
/// @throws Tool_Error  for an unknown name, a value out of range and a setting that the camera refuses
int Run_Controls(std::vector<std::string> words, bool json);

#endif  // WQZ_TOOL_CONTROLS_H
