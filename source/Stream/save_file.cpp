// Debugging files: where they go, how they are named, and how they are written.
#include "Stream/save_file.h"

#include <cstdint>
#include <cstdio>

namespace {

constexpr std::size_t Path_Limit = 255;  // characters

}  // namespace

std::string Save_Path(const char* directory, const std::string& name)
{
    std::string path(directory == nullptr ? Default_Save_Directory : directory);
    path.append("/").append(name);
    path.resize(path.size() < Path_Limit ? path.size() : Path_Limit);
    return path;
}

std::string Time_Name(const timeval& time, const char* ending)
{
    const auto seconds = static_cast<int32_t>(time.tv_sec);
    const auto microseconds = static_cast<int32_t>(time.tv_usec);
    return std::to_string(seconds) + "_" + std::to_string(microseconds) + "." + ending;
}

bool Save_File(const std::string& path, const void* bytes, std::size_t length)
{
    FILE* file = fopen(path.c_str(), "w+");
    if (file == nullptr) {
        return false;
    }
    (void)fwrite(bytes, 1, length, file);
    (void)fflush(file);
    (void)fclose(file);
    return true;
}
