// The abstract interfaces of a device and its catalogue, and the exported factory pair.
#ifndef WQZ_VIDEO_DEVICE_BASE_CLASS_H
#define WQZ_VIDEO_DEVICE_BASE_CLASS_H

#include <stdint.h>

#include "data_typedef/data_typedef.h"
#include "USBCam_API/USBCam_API.h"

/// One frame size of a pixel format.
class WQZ_USBCAM_EXPORT Resolution_Info_Base_Class {
public:
    virtual ~Resolution_Info_Base_Class();

    /// Numerator and denominator of a frame interval in seconds. An index beyond the list reads the first interval;
    /// with no interval the result is 0.
    virtual uint32_t Index_At_Numerator(uint32_t index) = 0;
    virtual uint32_t Index_At_Denominator(uint32_t index) = 0;
    /// Width and height in pixels; of a stepwise size its minimum and maximum width, the first two words of the record.
    virtual int32_t Width() = 0;
    virtual int32_t High() = 0;
    /// @return the number of frame intervals
    virtual uint32_t Size() = 0;
};

/// One pixel format of a device.
class WQZ_USBCAM_EXPORT Format_Info_Base_Class {
public:
    virtual ~Format_Info_Base_Class();

    /// @return the frame size at a position, the first one beyond the end, null with no sizes; owned by the device
    virtual Resolution_Info_Base_Class* Index_At(uint32_t index) = 0;
    /// @return the FourCC
    virtual int32_t Format() = 0;
    /// @return the number of frame sizes
    virtual uint32_t Size() = 0;
};

/// A capture device. Requests that fail return -1.
class WQZ_USBCAM_EXPORT Video_Device_Base_Class {
public:
    virtual ~Video_Device_Base_Class();

    /// @return the open descriptor, 0 when closed, -1 after a failed open
    virtual int32_t Get_Video_Device_FD() = 0;
    /// @return the format at a position, the first one beyond the end, null with no formats; owned by the device
    virtual Format_Info_Base_Class* Index_At_Format_Info(uint32_t index) = 0;
    virtual int32_t Video_Open() = 0;
    virtual int32_t Video_Close() = 0;
    /// Builds the catalogue of formats, sizes and intervals.
    virtual int32_t Video_Frame_Format() = 0;
    virtual int32_t Video_Stream_Set_Frame_Buff(uint32_t u_Queue_buff) = 0;
    virtual int32_t Video_Stream_Clear_Frame_Buff() = 0;
    virtual int32_t Video_Stream_Set_Format(uint32_t u_Pixlformat, uint32_t u_Width, uint32_t u_Height) = 0;
    virtual int32_t Video_Stream_Set_Frame_Rate(uint32_t u_Fps_num, uint32_t u_Fps_denom) = 0;
    virtual int32_t Video_Stream_Start_Stream() = 0;
    virtual int32_t Video_Stream_Stop_Stream() = 0;
    /// @return the format by which frames are labelled
    virtual Pix_Format Get_Current_PixFormat() = 0;
};

extern "C" {

/// Makes a Video_Device for a discovered camera; nothing is opened.
/// @param p_Dev  copied
/// @param pClass  receives the address of the object
/// @return the object, for delete_Video_Device_Base_Class
WQZ_USBCAM_EXPORT Video_Device_Base_Class* creater_Video_Device_Base_Class(v4l2_dev_sys_data_t* p_Dev, PVOID* pClass);

/// Deletes a device; null is ignored.
WQZ_USBCAM_EXPORT void delete_Video_Device_Base_Class(Video_Device_Base_Class* pAPI);
}

#endif  // WQZ_VIDEO_DEVICE_BASE_CLASS_H
