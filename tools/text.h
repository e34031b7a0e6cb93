// Helpers for texts: lists, names that a user mistyped, and numbers.
#ifndef WQZ_TOOL_TEXT_H
#define WQZ_TOOL_TEXT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// Adds an item to a list in a text. A separator goes before every item but the first.
void Append_Item(std::string& list, const char* separator, const std::string& item);

/// @return the text with control characters replaced by question marks. Cameras choose their strings, and control
///         characters in them could take over the terminal.
std::string Printable(std::string text);

/// @return the text in lower case, with every run of other characters than letters and digits as one underscore
std::string Key(const std::string& text);

/// @return the end of a sentence: "; did you mean 'brightness'?" for the name that is nearest to `word`, or "." when
///         none is near
std::string Suggestion(const std::string& word, const std::vector<std::string>& names);

/// @return the number that the whole text is, decimal or hexadecimal with 0x, with or without a minus sign
std::optional<int64_t> Whole_Number(const std::string& text);

/// @return "046d:0825"
std::string Id_Text(uint16_t vendor, uint16_t product);

#endif  // WQZ_TOOL_TEXT_H
