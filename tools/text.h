// Small helpers for texts.
#ifndef WQZ_TOOL_TEXT_H
#define WQZ_TOOL_TEXT_H

#include <algorithm>
#include <cstddef>
#include <string>

/// Adds an item to a list in a text. A separator goes before every item but the first.
inline void Append_Item(std::string& list, const char* separator, const std::string& item)
{
    if (!list.empty()) {
        list += separator;
    }
    list += item;
}

/// @return the text in a field of a kernel record; a text that fills its field has no terminator
template <size_t Size>
std::string Field_Text(const unsigned char (&field)[Size])
{
    return {field, std::find(field, field + Size, 0)};
}

#endif  // WQZ_TOOL_TEXT_H
