// Declares the error that ends the tool.
#ifndef WQZ_TOOL_ERROR_H
#define WQZ_TOOL_ERROR_H

#include <stdexcept>

/// Ends the tool with a message and status 1. The message says what is wrong and what the user can do.
class Tool_Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

#endif  // WQZ_TOOL_ERROR_H
