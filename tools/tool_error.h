// Declares the errors that end the tool.
#ifndef WQZ_TOOL_ERROR_H
#define WQZ_TOOL_ERROR_H

#include <stdexcept>
#include <string>

/// Ends the tool with a message and status 1. The message says what is wrong and what the user can do.
class Tool_Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Ends a capture whose reader has closed the pipe. It needs no message.
class Closed_Pipe : public std::exception {};

#endif  // WQZ_TOOL_ERROR_H
