// Declares what the shells ask for when a user presses Tab.
#ifndef WQZ_TOOL_COMPLETION_H
#define WQZ_TOOL_COMPLETION_H

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/// The word of the command line that makes the tool complete the words behind it. The shells' scripts use it; help does
/// not show it.
constexpr const char* Completion_Word = "complete-words";

/// Prints what may stand in place of the last word, one line each: the word, a tab, and its meaning. Prints the line
/// "<file>" where a path is expected.
/// @param app  the table of verbs and options
/// @param words  what the user typed behind the tool's name; the last one may be incomplete or empty
void Print_Completions(const CLI::App& app, const std::vector<std::string>& words);

#endif  // WQZ_TOOL_COMPLETION_H
