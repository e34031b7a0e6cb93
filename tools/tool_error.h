#ifndef WQZ_TOOL_ERROR_H
#define WQZ_TOOL_ERROR_H

#include <stdexcept>

/// What the user is told before the tool ends with a non-zero status: what is wrong and what would work.
class Tool_Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

#endif  // WQZ_TOOL_ERROR_H
