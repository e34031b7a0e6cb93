// Keeps the log.
#include "script/request_log.h"

#include <atomic>
#include <mutex>

namespace virtual_camera {
namespace {

std::atomic<bool> logging{false};
std::mutex log_mutex;

std::vector<Log_Entry>& Entries()
{
    static auto* entries = new std::vector<Log_Entry>;  // outlives every user
    return *entries;
}

}  // namespace

bool Is_Logging()
{
    return logging.load(std::memory_order_relaxed);
}

Log_Entry Call_Entry(uint32_t call, const std::string& node, int fd, int result, int error)
{
    return {call, Request_Name(call), node, fd, result, error};
}

void Append_To_Log(Log_Entry entry)
{
    const std::lock_guard lock(log_mutex);
    Entries().push_back(std::move(entry));
}

void Start_Log()
{
    Clear_Log();
    logging = true;
}

std::vector<Log_Entry> Log()
{
    const std::lock_guard lock(log_mutex);
    return Entries();
}

void Clear_Log()
{
    const std::lock_guard lock(log_mutex);
    Entries().clear();
}

void Stop_Log()
{
    logging = false;
    Clear_Log();
}

std::string Log_Names()
{
    std::string names;
    for (const Log_Entry& entry : Log()) {
        names += (names.empty() ? "" : " ") + entry.name;
    }
    return names;
}

}  // namespace virtual_camera
