// Messages to standard error, the progress line, and standard output that is checked.
#include "output.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tool_error.h"

namespace {

bool Has_Terminal()
{
    return isatty(STDERR_FILENO) == 1;
}

}  // namespace

void Say(const std::string& message)
{
    Clear_Progress();
    std::cerr << Message_Start << message << '\n';
}

void Show_Progress(const std::string& line)
{
    if (Has_Terminal()) {
        std::cerr << '\r' << line << "\x1b[K" << std::flush;
    }
}

void Clear_Progress()
{
    if (Has_Terminal()) {
        std::cerr << "\r\x1b[K";
    }
}

std::string Json_Text(const nlohmann::ordered_json& json, int indent)
{
    return json.dump(indent, ' ', false, nlohmann::json::error_handler_t::replace);
}

void Flush_Output()
{
    errno = 0;
    std::cout.flush();
    if (!std::cout) {
        const std::string reason = errno == 0 ? "" : std::string(": ") + std::strerror(errno);
        throw Tool_Error("standard output cannot be written" + reason);
    }
}
