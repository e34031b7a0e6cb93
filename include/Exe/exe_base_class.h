// The registry of frame tasks that a capturing device offers.
#ifndef WQZ_EXE_BASE_CLASS_H
#define WQZ_EXE_BASE_CLASS_H

#include <stdint.h>

#include "USBCam_API/USBCam_API.h"

/// The task registry of a capturing device. The first task of a kind stays: it can be neither replaced nor removed.
class WQZ_USBCAM_EXPORT Video_Stream_EXE_Base_Class {
public:
    /// Where YUYV frames go: 0 to the YUV task, any other value to the task for unusual formats.
    enum YUV_MODE : uint32_t { YUV_Mode = 0 };

    virtual ~Video_Stream_EXE_Base_Class();

    /// Registers a task for MJPG frames, for YUYV frames, for all others.
    /// @return 0, or -1 when one is registered already (it stays)
    virtual int32_t Set_Task_MJPEG(pExe p) = 0;
    virtual int32_t Set_Task_YUV(pExe p) = 0;
    virtual int32_t Set_Task_Unusual(pExe p) = 0;
    /// Chooses the task for YUYV frames.
    virtual void Set_YUV_Mode(YUV_MODE val) = 0;
};

#endif  // WQZ_EXE_BASE_CLASS_H
