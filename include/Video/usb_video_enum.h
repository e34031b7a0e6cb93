// Discovery: the V4L2 nodes of the machine with the identity of their USB devices.
#ifndef WQZ_USB_VIDEO_ENUM_H
#define WQZ_USB_VIDEO_ENUM_H

#include <stdint.h>

#include "data_typedef/data_typedef.h"
#include "List/list_container.h"
#include "USBCam_API/USBCam_API.h"

struct udev;
struct udev_monitor;

/// Bookkeeping of a scan.
typedef struct _v4l2_device_list_t {
    struct udev* udev;                  ///< set during the scan only
    struct udev_monitor* udev_mon;      ///< always null
    uint32_t udev_fd;                   ///< always 0
    v4l2_dev_sys_data_t* list_devices;  ///< always null
    uint32_t num_devices;               ///< records appended by the scan
} v4l2_device_list_t;

/// The result of a scan. The destructor frees the records but not the strings that they point at, so that copies stay
/// usable.
class WQZ_USBCAM_EXPORT USBDev_Message {
public:
    USBDev_Message();
    virtual ~USBDev_Message();

    v4l2_device_list_t S_V4L2_Device_List_Index;
    std::list<v4l2_dev_sys_data_t> V4l2_dev_message;  ///< in the order of libudev
};

/// Scans the video4linux nodes once, in its constructor: one record per node that answers VIDIOC_QUERYCAP. Nodes that
/// cannot be opened or do not answer are skipped silently. Leaves no descriptor open.
class WQZ_USBCAM_EXPORT USB_Video_Enum {
public:
    USB_Video_Enum();

    USBDev_Message C_Dev_Mes;
};

#endif  // WQZ_USB_VIDEO_ENUM_H
