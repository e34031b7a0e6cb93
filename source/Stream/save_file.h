// Debugging files: where they go, how they are named, and how they are written.
#ifndef WQZ_SAVE_FILE_H
#define WQZ_SAVE_FILE_H

#include <sys/time.h>

#include <string>

/// Where debugging files go when no directory is given.
constexpr const char* Default_Save_Directory = "/mnt/hgfs/Work_Linux_SDK/DEBUG_SAVE/";

/// @param directory  null for the default one, whose path then has two slashes, which the file system accepts
/// @return "<directory>/<name>", cut at 255 characters
std::string Save_Path(const char* directory, const std::string& name);

/// @return "<seconds>_<microseconds>.<ending>", both without padding
std::string Time_Name(const timeval& time, const char* ending);

/// Writes a whole file. A write that fails after the file was opened is not reported, because these are debugging aids.
/// @return whether the file could be opened; errno tells why not
bool Save_File(const std::string& path, const void* bytes, std::size_t length);

#endif  // WQZ_SAVE_FILE_H
