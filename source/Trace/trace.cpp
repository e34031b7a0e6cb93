// The trace buffer and its accessors.
#include "Trace/trace.h"

char GLOG[4097];

const char* WQZ_USBCam_Log(void)
{
    return GLOG;
}

void WQZ_USBCam_Set_Log(const char* str, uint8_t size)
{
    if (size > 0) {
        std::memcpy(GLOG, str, size);
    }
}

char* WQZ_USBCam_Get_Cache(void)
{
    return GLOG;
}
