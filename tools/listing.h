// Declares the verb "list".
#ifndef WQZ_TOOL_LISTING_H
#define WQZ_TOOL_LISTING_H

#include <cstdint>
#include <optional>

struct List_Options {
    std::optional<uint16_t> vid;  ///< only cameras with these USB ids
    std::optional<uint16_t> pid;
    bool json = false;
    bool watch = false;
};

/// Prints the cameras to standard output, as text or as a JSON array; the printed index is always the one in the whole
/// list. With `watch` goes on with a line for each camera that comes or goes, until the tool is ended.
/// @return the exit status: 1 when cameras with certain ids were asked for and none of them can be opened
int Run_List(const List_Options& options);

#endif  // WQZ_TOOL_LISTING_H
