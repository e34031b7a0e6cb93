#ifndef WQZ_TOOL_TEXT_H
#define WQZ_TOOL_TEXT_H

#include <algorithm>
#include <cstddef>
#include <string>

/// Adds an item to a list in a text, a separator before it unless it is the first.
inline void Append_Item(std::string& list, const char* separator, const std::string& item)
{
    if (!list.empty()) {
        list += separator;
    }
    list += item;
}

/// @return a text of the kernel's, which has no terminator when it fills its field
template <size_t Size>
std::string Field_Text(const unsigned char (&field)[Size])
{
    return {field, std::find(field, field + Size, 0)};
}

#endif  // WQZ_TOOL_TEXT_H
