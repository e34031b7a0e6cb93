// The log of calls on virtual cameras, for tests to read.
#ifndef WQZ_VIRTUAL_CAMERA_REQUEST_LOG_H
#define WQZ_VIRTUAL_CAMERA_REQUEST_LOG_H

#include <virtual_camera/virtual_camera.h>

namespace virtual_camera {

bool Is_Logging();
void Stop_Log();  ///< also empties it

/// @return an entry with what every call has
Log_Entry Call_Entry(uint32_t call, const std::string& node, int fd, int result, int error);

void Append_To_Log(Log_Entry entry);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_REQUEST_LOG_H
