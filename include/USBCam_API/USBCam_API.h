// The flat functions of the session interface and the records that cross its boundary.
#ifndef WQZ_USBCAM_API_H
#define WQZ_USBCAM_API_H

// For C (C99) and C++ (C++11).
//
// Handles    WQZ_USBCam_CREATE_DEVICE_POINT returns a handle, which is valid until it is deleted. One handle is one
//            camera session. A null handle is answered (see Results); any other wrong value is not detected.
// Results    -2 a null handle or a null output pointer, -1 a failure inside, 0 success, a count where a count is
//            asked for. Functions without a result do nothing for a null handle. A pointer result is null when
//            there is nothing to return. In C++, only an allocation failure throws (std::bad_alloc).
// Owners     The discovery array and its strings belong to the caller, who gives them to
//            WQZ_USBCam_DEVICE_FREE. A frame record belongs to its session: take it with
//            WQZ_USBCam_GET_FRAME_BUFF, give it back with WQZ_USBCam_SAVE_FRAME_RES, never free it.
// Threads    The library starts none. WQZ_USBCam_Video_DEAL_WITH keeps the calling thread until the capture ends.
//            STREAM_STATUS, GET_FRAME_BUFF, SAVE_FRAME_RES, EVENT_LoopMode, PU_Get, PU_Set and the format list may
//            run on other threads meanwhile. INIT, UNINIT, Clear_Frame_Buff and DELETE belong to one thread at a time
//            and never beside a running capture or another call on the handle.
// Order      DEVICE_FIND_ID, CREATE_DEVICE_POINT, Video_DEAL_WITH_INIT, Get_Format_List, Video_DEAL_WITH on a thread
//            of its own, GET_FRAME_BUFF and SAVE_FRAME_RES on others, EVENT_LoopMode(0), and once the capture has
//            returned: Clear_Frame_Buff, Video_DEAL_WITH_UNINIT, DELETE_DEVICE_POINT.
// Capturing  A live mapping keeps a camera busy in the kernel even when its descriptor is closed. So a program that
// again      captures a second time waits for Video_DEAL_WITH to return, calls Clear_Frame_Buff, UNINIT and DELETE, and
//            starts with a new handle.

// In strict C99, struct timespec, which the kernel's header needs, is declared only here.
#include <sched.h>

#include <linux/videodev2.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>

#include "data_typedef/data_typedef.h"

#ifdef __cplusplus
extern "C" {
#endif

/// One camera as found by discovery.
typedef struct _v4l2_dev_sys_data_t {
    char* device;             ///< device node, e.g. /dev/video0
    char* name;               ///< card name of the driver
    char* driver;             ///< driver name
    char* location;           ///< bus location (v4l2_capability::bus_info), one per camera
    uint32_t vendor;          ///< USB vendor id, 0 for a camera that is not on USB
    uint32_t product;         ///< USB product id
    int32_t valid;            ///< 1 in every record that discovery made
    int32_t current;          ///< reserved, 0
    uint64_t busnum;          ///< USB bus number
    uint64_t devnum;          ///< the device release (bcdDevice) despite the name; the USB address is not read
    uint16_t Vid;             ///< low 16 bits of vendor
    uint16_t Pid;             ///< low 16 bits of product
    uint16_t Bcd;             ///< low 16 bits of devnum: the release in BCD
    char iManufacturer[256];  ///< USB strings, empty when the camera has none
    char iProduct[256];
    char iSerialNumber[256];
    char Device_Path[256];  ///< the node that a session opens; empty for a camera that is not on USB, so a program
                            ///< that opens such a camera copies `device` here first
} v4l2_dev_sys_data_t, *p_V4l2_dev_sys_data_t;

/// A capture mode.
typedef struct Pix_Format {
    /// In the format list: the V4L2 FourCC. In a request: 0 for Motion-JPEG, anything else for YUYV. An entry of the
    /// list passed back unchanged therefore asks for YUYV. In a delivered frame: 0 for Motion-JPEG, 1 for YUYV.
    uint32_t u_PixFormat;
    uint32_t u_Width;   ///< pixels
    uint32_t u_Height;  ///< pixels
    /// Whole frames per second: in the format list denominator / numerator of the frame interval, truncated; in a
    /// request the rate asked for; in a delivered frame the rate measured over the last whole second.
    uint32_t u_Fps;
} Pix_Format;

/// One captured frame.
typedef struct Frame_Buffer_Data {
    struct v4l2_buffer buffer;  ///< as dequeued; bytesused is the payload length in bytes. V4L2_BUF_FLAG_ERROR in its
                                ///< flags: the frame is damaged, or its bytes could not all be copied
    Pix_Format PixFormat;       ///< the mode of the frame
    struct timeval Frame_Time;  ///< time of day of the capture
    int32_t fd;                 ///< descriptor of the device
    char device_path[256];      ///< node of the device
    void* pMem;                 ///< the frame's bytes
    uint32_t buff_Length;       ///< capacity at pMem in bytes
    uint32_t buff_Offset;       ///< map offset of a kernel buffer, 0 for a copy
    uint32_t index;             ///< V4L2 buffer index, or in a delivered frame its running number from 0
} Frame_Buffer_Data;

/// A frame task. The frame and its bytes are valid during the call only.
/// @param context  for a Motion-JPEG task the image length (uint32_t*), else null
/// @param frame  the captured frame
/// @param user  the argument that was given to the capture loop
/// @return ignored by the loop
typedef int32_t (*pExe)(void* context, Frame_Buffer_Data* frame, void* user);

/// The last trace line that the capture path wrote, for a debugger or a look after a crash. Every session writes it
/// without a lock, so a reader may see a line half replaced. All zero until the first line.
extern WQZ_USBCAM_EXPORT char GLOG[4097];

/// Finds cameras, one record per camera: of neighbouring nodes with one bus location the first is kept.
/// Each call gives up about 5 KB of memory for each video node, on purpose: releasing the node's udev device would
/// release its parent twice. So call it when cameras are needed, and do not poll with it.
/// @param pDev  receives a new array (also when nothing was found), for WQZ_USBCam_DEVICE_FREE
/// @param VID, PID  the USB ids to keep; 0xFFFF for both keeps every camera
/// @return the number of leading records that are filled, or -2 when pDev is null
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_DEVICE_FIND_ID(v4l2_dev_sys_data_t** pDev, uint16_t VID, uint16_t PID);

/// Releases an array of WQZ_USBCam_DEVICE_FIND_ID and the strings of its first `count` records.
/// @param pDev  the array; null is harmless
/// @param count  what WQZ_USBCam_DEVICE_FIND_ID returned
WQZ_USBCAM_EXPORT void WQZ_USBCam_DEVICE_FREE(v4l2_dev_sys_data_t* pDev, int32_t count);

/// @return the address of GLOG
WQZ_USBCAM_EXPORT const char* WQZ_USBCam_Log(void);

/// Copies `size` bytes of `str` to the start of GLOG; no terminator is added and the rest stays.
WQZ_USBCAM_EXPORT void WQZ_USBCam_Set_Log(const char* str, uint8_t size);

/// @return the address of GLOG, for writing
WQZ_USBCAM_EXPORT char* WQZ_USBCam_Get_Cache(void);

/// Makes a session for a camera; nothing is opened yet. The record is copied but not the strings that it points at, so
/// free the discovery array after the session.
/// @return the handle, never null
WQZ_USBCAM_EXPORT void* WQZ_USBCam_CREATE_DEVICE_POINT(v4l2_dev_sys_data_t devinfo);

/// Destroys a session. Does not stop a capture, unmap buffers or close the camera: do these first, as Order above says.
WQZ_USBCAM_EXPORT void WQZ_USBCam_DELETE_DEVICE_POINT(void* pDevPoint);

/// Opens the camera's node and reads its format list.
/// @param fd  stored, used for nothing
/// @return 0 also when the open failed, which shows as an empty format list; -2 for a null handle
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_Video_DEAL_WITH_INIT(void* pDevPoint, int32_t fd);

/// Closes the camera's node.
WQZ_USBCAM_EXPORT void WQZ_USBCam_Video_DEAL_WITH_UNINIT(void* pDevPoint);

/// Unmaps and forgets the kernel buffers of an ended capture.
/// @return 0, or -2 for a null handle
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_Clear_Frame_Buff(void* pDevPoint);

/// @return the number of modes (one per format, size and frame interval), or -2 for a null handle
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_Get_Format_List_Size(void* pDevPoint);

/// Writes every mode.
/// @param pix_format  room for WQZ_USBCam_Get_Format_List_Size entries
/// @return 0, or -2 for a null handle or a null array where there are modes to write
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_Get_Format_List(void* pDevPoint, Pix_Format* pix_format);

/// Reads a control.
/// @param id  V4L2_CID_...
/// @param val  receives the value: 0 when an open camera refuses, unchanged when the camera was never opened
/// @return 0 also when the read failed, -2 for a null handle or a null val
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_PU_Get(void* pDevPoint, int32_t id, int32_t* val);

/// Writes a control.
/// @return 0, -1 when the camera refuses or was never opened, -2 for a null handle
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_PU_Set(void* pDevPoint, int32_t id, int32_t val);

/// Captures on the calling thread until WQZ_USBCam_EVENT_LoopMode ends it.
/// Refused settings are not reported here. After a refused or adjusted size, format or rate, frames keep coming in the
/// driver's mode, labelled as asked: VIDIOC_G_FMT on `frame->fd` tells the true one. After refused buffers or a refused
/// start, and from an unplugged camera, no frame comes and a stop may not be noticed: if none arrives for several
/// seconds, end the process.
/// @return 0 after a stop, -1 when the camera is not open, -2 for a null handle
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_Video_DEAL_WITH(void* pDevPoint, Pix_Format arg);

/// Sets how long a capture goes on: -1 without end (the value of a new session), n > 0 for n more waits, 0 to end it.
/// The value stays after the capture, so set -1 or a positive one before the next.
WQZ_USBCAM_EXPORT void WQZ_USBCam_EVENT_LoopMode(void* pDevPoint, int32_t val);

/// Counts the frames that are ready.
/// @param block  with none ready, wait for one wake-up; no wake-up comes when the capture ends or the camera is gone
/// @return the number of frames, -2 for a null handle
WQZ_USBCAM_EXPORT int32_t WQZ_USBCam_Video_STREAM_STATUS(void* pDevPoint, bool block);

/// Takes the oldest frame that is ready. Motion-JPEG frames come as the camera sent them. A YUYV frame is a BMP image
/// of 24 bits, blue green red, with rows that are not padded. Its first row is the top one although the header says
/// bottom-up, so image viewers show it upside down.
/// @param block  with none ready, wait for one wake-up; none comes when the capture ends or the camera is gone
/// @return the frame, for WQZ_USBCam_SAVE_FRAME_RES; null when there is none or for a null handle
WQZ_USBCAM_EXPORT Frame_Buffer_Data* WQZ_USBCam_GET_FRAME_BUFF(void* pDevPoint, bool block);

/// Gives a frame back for reuse. A null frame is ignored.
WQZ_USBCAM_EXPORT void WQZ_USBCam_SAVE_FRAME_RES(void* pDevPoint, Frame_Buffer_Data* pFrame);

#ifdef __cplusplus
}
#endif

#endif  // WQZ_USBCAM_API_H
