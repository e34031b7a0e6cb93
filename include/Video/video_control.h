// Reading and writing the V4L2 controls of a capture node.
#ifndef WQZ_VIDEO_CONTROL_H
#define WQZ_VIDEO_CONTROL_H

#include <stdint.h>

#include "data_typedef/data_typedef.h"

/// Reads and writes the V4L2 controls of an open capture node. Bound to a descriptor that it neither opens nor closes.
class WQZ_USBCAM_EXPORT V4L2_Video_Control_Pu {
public:
    /// Unbound, or bound to a descriptor.
    V4L2_Video_Control_Pu();
    explicit V4L2_Video_Control_Pu(uint32_t fd);
    virtual ~V4L2_Video_Control_Pu();

    /// Binds to a descriptor, and unbinds.
    void init(uint32_t fd);
    void uninit();

    /// Reads a control (VIDIOC_G_CTRL).
    /// @param OperVal  V4L2_CID_...
    /// @param pVal  receives the value; 0 when the driver refuses, unchanged when unbound
    /// @return 0, or -1 when unbound or refused (refusals are reported on standard error)
    int32_t V4L2_Static_Pu_Get_Control(uint32_t OperVal, int32_t* pVal);

    /// Writes a control (VIDIOC_S_CTRL). Both outcomes are reported on standard error.
    /// @return 0, or -1 when unbound or refused
    int32_t V4L2_Static_Pu_Set_Control(uint32_t OperVal, int32_t Val);

    uint32_t VC_fd;  ///< descriptor of the capture node, 0 when unbound
};

#endif  // WQZ_VIDEO_CONTROL_H
