// The camera interface for C (C99) and everything that calls C.
#ifndef WQZ_CAMERA_H
#define WQZ_CAMERA_H

// Order      List, Open, Modes, Controls, Get_Control, Set_Controls, Start, Read and Release in a loop, Counters, Stop,
//            Close. Only Open must come first and Close last. Start and Stop may follow each other any number of
//            times. Cancel ends a wait. Recover brings an unplugged camera back.
// Handles    A handle is valid from the WQZ_Camera_Open that stored it to its WQZ_Camera_Close. Null is answered with
//            -EINVAL; any other wrong value is not detected.
// Results    0 for success, a count where a count is asked for, otherwise a negative errno value. -EINVAL means that
//            the call itself was wrong (a null pointer, a wrong size, an unknown flag, a call out of order, an unknown
//            name), or that the driver refused it with this value. Nothing is printed and nothing is thrown.
//            WQZ_Camera_Explain puts the last failure in a sentence.
// Records    Every record begins with `size`: set it to sizeof the record before each call. The library reads and
//            writes no more than that, so programs and libraries of different age understand each other. A size
//            smaller than the first version of the record is -EINVAL; so initialise records as in
//            WQZ_Camera_Frame frame = {sizeof frame};
// Lists      List, Modes, Controls and Menu fill an array of `capacity` records and return how many there are, which
//            may be more. Set `size` in the first record only; it is the distance between the records too. A capacity
//            of 0 (the array may be null then) only counts.
// Texts      UTF-8 as far as the device keeps to it, terminated with a zero, cut where they do not fit. Texts handed
//            in are copied.
// Frames     A frame lends the driver's memory: no byte is copied. Its bytes stay readable and unchanged until
//            WQZ_Camera_Release, also after Stop, another Start, an unplug, Recover and Close. Release and Convert are
//            the two calls that are legal with a frame of a closed camera. A copy of the record is the same frame:
//            release one of them, once. Frames that were read before a Recover are released like all others.
// Threads    The library starts none. All functions may run on any threads at once, except: Start and Recover of one
//            camera run one at a time, and one thread at a time uses a monitor. Close may be called while other calls
//            run, Start and Recover too: it ends those that wait, with -ECANCELED, and waits for all. No call may begin
//            after it. Cancel may also be called from a signal handler. A process that was forked must not use the
//            handles of its parent.
// Time       Waits take milliseconds: 0 does not wait, a negative number waits without limit.

#include <stdint.h>

#include "data_typedef/data_typedef.h"

#ifdef __cplusplus
extern "C" {
#endif

/// An open camera.
typedef struct WQZ_Camera WQZ_Camera;

/// A watch over the plugging of all cameras.
typedef struct WQZ_Camera_Monitor WQZ_Camera_Monitor;

/// The code of a pixel format: WQZ_CAMERA_FOURCC('M', 'J', 'P', 'G').
#define WQZ_CAMERA_FOURCC(a, b, c, d) ((uint32_t)(a) | (uint32_t)(b) << 8 | (uint32_t)(c) << 16 | (uint32_t)(d) << 24)

/// Seconds as an exact fraction. 0/0 stands for "unknown" and "not asked for".
typedef struct WQZ_Camera_Fraction {
    uint32_t numerator;
    uint32_t denominator;
} WQZ_Camera_Fraction;

/// A camera as WQZ_Camera_List finds it. A device with several capture nodes has one record for each.
typedef struct WQZ_Camera_Info {
    uint32_t size;
    int32_t error;    ///< 0, or why the node cannot be opened: -EACCES when this user may not. `driver` and
                      ///< `location` of such a record are empty.
    uint32_t index;   ///< place in the list, from 0
    uint32_t bus;     ///< USB bus number, 0 for a camera that is not on USB
    uint16_t vendor;  ///< USB ids, 0 for a camera that is not on USB
    uint16_t product;
    uint16_t release;   ///< release of the device in binary-coded decimal: 0x0110 is 1.10
    uint16_t reserved;  ///< 0
    char node[64];      ///< "/dev/video0"
    char card[64];      ///< name of the camera by its driver
    char driver[32];
    char location[64];       ///< place on the bus by the driver (v4l2_capability::bus_info)
    char manufacturer[256];  ///< USB strings, empty where the camera has none
    char product_name[256];
    char serial[256];
    char identity[512];  ///< a name for WQZ_Camera_Open that survives replugging and restarting: "046d:0825:SERIAL";
                         ///< without a serial, or with one that two cameras share, "046d:0825@PORT"
} WQZ_Camera_Info;

/// One mode that a camera offers, or a range of modes. A range goes from min to max in steps; a discrete value has
/// equal bounds and a step of 0. A continuous range has a step of 1 pixel, or of 0 seconds with unequal bounds.
typedef struct WQZ_Camera_Offer {
    uint32_t size;
    uint32_t fourcc;
    uint32_t flags;        ///< WQZ_CAMERA_OFFER_...
    uint32_t reserved;     ///< 0
    char format[8];        ///< the FourCC as text: "MJPG"; "Y16-BE" when it is big-endian (bit 31)
    char description[32];  ///< the driver's words for the format
    uint32_t width_min, width_max, width_step;
    uint32_t height_min, height_max, height_step;
    WQZ_Camera_Fraction interval_min;  ///< the shortest: the highest rate; 0/0 when the driver names none
    WQZ_Camera_Fraction interval_max;
    WQZ_Camera_Fraction interval_step;
} WQZ_Camera_Offer;

enum {
    WQZ_CAMERA_OFFER_COMPRESSED = 1,
    WQZ_CAMERA_OFFER_EMULATED = 2  ///< made by a library or driver, not by the camera
};

/// What WQZ_Camera_Start is asked for.
typedef struct WQZ_Camera_Request {
    uint32_t size;
    uint32_t fourcc;  ///< format, width and height must not be 0
    uint32_t width;
    uint32_t height;
    WQZ_Camera_Fraction interval;  ///< seconds per frame; 0/0 leaves the rate to the camera
    uint32_t buffers;              ///< kernel buffers; 0 for four; the driver may provide another number
    uint32_t skip;                 ///< first frames that Read gives back unseen, while the exposure settles
    uint32_t flags;                ///< WQZ_CAMERA_START_...
} WQZ_Camera_Request;

enum {
    WQZ_CAMERA_START_EXACT = 1  ///< refuse what is not offered; a rate within 0.1 % of an offered one matches
};

/// What the driver accepted: every frame is in this mode.
typedef struct WQZ_Camera_Mode {
    uint32_t size;
    uint32_t fourcc;
    uint32_t width;
    uint32_t height;
    uint32_t bytes_per_line;       ///< of the first plane; 0 for compressed formats
    uint32_t image_size;           ///< the most bytes that a frame takes
    WQZ_Camera_Fraction interval;  ///< 0/0 when the driver tells none
    uint32_t buffers;              ///< kernel buffers; one fewer may be held at a time, but always one
    char format[8];                ///< the FourCC as text
} WQZ_Camera_Mode;

/// A frame on loan. Set `size` before WQZ_Camera_Read; the rest is the library's to fill.
typedef struct WQZ_Camera_Frame {
    uint32_t size;
    uint32_t flags;        ///< WQZ_CAMERA_FRAME_...
    const uint8_t* data;   ///< the bytes as the camera sent them; null while the record holds no frame
    uint64_t length;       ///< bytes at data; of a Motion-JPEG without the zeros behind the image
    int64_t time_ns;       ///< nanoseconds of CLOCK_MONOTONIC
    uint32_t sequence;     ///< the driver's number of the frame; starts again with each Start
    uint32_t lost_before;  ///< frames that the driver lost since the one delivered before
    uint32_t fourcc;       ///< the mode of the frame
    uint32_t width;
    uint32_t height;
    uint32_t bytes_per_line;
    void* loan;       ///< the library's; do not change
    uint64_t ticket;  ///< the library's; do not change
} WQZ_Camera_Frame;

enum {
    WQZ_CAMERA_FRAME_DAMAGED = 1  ///< the driver says that bytes are missing or wrong; the length may be 0. Few drivers
                                  ///< notice a Motion-JPEG that is cut short; Convert does
};

enum {
    WQZ_CAMERA_READ_NEWEST = 1  ///< of the frames that are ready the newest; the others count as skipped
};

/// Frames since the last Start; Recover goes on counting.
typedef struct WQZ_Camera_Counts {
    uint32_t size;
    uint32_t reserved;   ///< 0
    uint64_t delivered;  ///< handed out by Read
    uint64_t lost;       ///< missing in the driver's numbering
    uint64_t damaged;    ///< flagged by the driver, delivered or skipped
    uint64_t skipped;    ///< given back unseen: by `skip`, and by WQZ_CAMERA_READ_NEWEST
} WQZ_Camera_Counts;

/// A control of the camera.
typedef struct WQZ_Camera_Control {
    uint32_t size;
    uint32_t id;      ///< V4L2_CID_...
    uint32_t type;    ///< WQZ_CAMERA_CONTROL_..., the numbers of V4L2_CTRL_TYPE_...
    uint32_t flags;   ///< WQZ_CAMERA_CONTROL_FLAG_..., the bits of V4L2_CTRL_FLAG_...
    char name[32];    ///< the driver's: "White Balance Temperature"
    char key[32];     ///< the name in lower case with underscores: "white_balance_temperature"
    int64_t minimum;  ///< for a string: its least length
    int64_t maximum;  ///< for a string: its greatest length
    uint64_t step;
    int64_t default_value;
} WQZ_Camera_Control;

enum {
    WQZ_CAMERA_CONTROL_INTEGER = 1,
    WQZ_CAMERA_CONTROL_BOOLEAN = 2,
    WQZ_CAMERA_CONTROL_MENU = 3,  ///< the value is the index of an item
    WQZ_CAMERA_CONTROL_BUTTON = 4,
    WQZ_CAMERA_CONTROL_INTEGER64 = 5,
    WQZ_CAMERA_CONTROL_STRING = 7,
    WQZ_CAMERA_CONTROL_BITMASK = 8,
    WQZ_CAMERA_CONTROL_INTEGER_MENU = 9  ///< a menu whose items are numbers; other types can only be listed
};

enum {
    WQZ_CAMERA_CONTROL_FLAG_DISABLED = 0x01,
    WQZ_CAMERA_CONTROL_FLAG_GRABBED = 0x02,  ///< cannot be set while the camera captures
    WQZ_CAMERA_CONTROL_FLAG_READ_ONLY = 0x04,
    WQZ_CAMERA_CONTROL_FLAG_INACTIVE = 0x10,  ///< another control, often an automatic, has to change first
    WQZ_CAMERA_CONTROL_FLAG_WRITE_ONLY = 0x40,
    WQZ_CAMERA_CONTROL_FLAG_VOLATILE = 0x80  ///< the camera changes it by itself
};

/// An item of a menu.
typedef struct WQZ_Camera_Menu_Item {
    uint32_t size;
    uint32_t index;  ///< the value that chooses the item; indices may have gaps
    int64_t value;   ///< the number of an integer menu's item
    char name[32];   ///< for an integer menu: the number as text
} WQZ_Camera_Menu_Item;

/// A control with a value, to get or to set.
typedef struct WQZ_Camera_Setting {
    uint32_t size;
    uint32_t id;           ///< V4L2_CID_..., or 0 to find the control by its name
    const char* name;      ///< name or key as in WQZ_Camera_Control; neither case nor punctuation counts
    int64_t value;         ///< the number, 0 or 1 of a boolean, the index of a menu item, the bits of a bitmask
    const char* text;      ///< for Set_Controls: what to set instead of `value` when not null: a number (decimal, or
                           ///< hexadecimal with 0x), the name of a menu item, on or off, the text of a string control,
                           ///< "default" for all but strings
    char* buffer;          ///< for Get_Control: receives a string's text, a menu item's name, or the number; or null
    uint32_t buffer_size;  ///< bytes at buffer
    uint32_t flags;        ///< for Set_Controls: WQZ_CAMERA_SETTING_...
    int32_t result;        ///< receives 0, or what went wrong with this one; -ECANCELED after one that failed
} WQZ_Camera_Setting;

enum {
    WQZ_CAMERA_SETTING_DEFAULT = 1  ///< set the control's default, whatever `value` and `text` say
};

/// What WQZ_Camera_Monitor_Read reports.
typedef struct WQZ_Camera_Event {
    uint32_t size;
    uint32_t kind;         ///< WQZ_CAMERA_EVENT_...
    WQZ_Camera_Info info;  ///< the camera; its `size` need not be set
} WQZ_Camera_Event;

enum { WQZ_CAMERA_EVENT_PLUGGED = 1, WQZ_CAMERA_EVENT_UNPLUGGED = 2 };

/// Pixel layouts that WQZ_Camera_Convert makes: three bytes a pixel.
enum { WQZ_CAMERA_PIXELS_BGR = 1, WQZ_CAMERA_PIXELS_RGB = 2 };

/// Finds the nodes that can capture, each once, in the order of their numbers: cameras on USB and others. Nodes that
/// this user may not open are listed too, with `error` set.
/// @param cameras  array of `capacity` records (see Lists)
/// @return how many there are
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_List(WQZ_Camera_Info* cameras, uint32_t capacity);

/// Opens a camera. Nothing is set, and other programs can use the camera too until Start.
/// @param camera  receives the handle, null on failure
/// @param name  a node ("/dev/video0") or a link to one ("/dev/v4l/by-id/..."), "VID:PID" in hexadecimal, a serial, an
///              identity, a place in the list, or null or "" when there is one camera
/// @return 0; -ENOENT no such camera; -ENOTUNIQ the name fits several, which Explain(NULL, ...) names; -EACCES this
///         user may not open the node; -ENOTSUP the node delivers no pictures; or the system's error
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Open(WQZ_Camera** camera, const char* name);

/// Describes the camera that is open, as it was when Open or Recover found it, also after an unplug. `index` is the
/// place it had in the list then.
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Describe(WQZ_Camera* camera, WQZ_Camera_Info* info);

/// Lists what the camera offers: one record per format, size and interval, or per range of them.
/// @return how many there are
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Modes(WQZ_Camera* camera, WQZ_Camera_Offer* offers, uint32_t capacity);

/// Lists the controls of the camera.
/// @return how many there are
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Controls(WQZ_Camera* camera, WQZ_Camera_Control* controls, uint32_t capacity);

/// Lists the items of a menu control.
/// @return how many there are; -EINVAL when the camera has no such menu
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Menu(WQZ_Camera* camera, uint32_t id, WQZ_Camera_Menu_Item* items,
                                          uint32_t capacity);

/// Reads one control: fills `id`, `value`, `result`, and `buffer` when it is not null. An `id` other than 0 counts, and
/// `name` does not.
/// @return 0; -EINVAL no such control; -EACCES a control that can only be written; or the driver's error
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Get_Control(WQZ_Camera* camera, WQZ_Camera_Setting* setting);

/// Sets controls one after the other, in their order, up to the first that fails. Integers out of range are set to the
/// nearest value, as drivers do; `value` and `id` receive what was set. Recover sets again what succeeded.
/// @param settings  array of `count` records; set `size` in the first one only, as in lists
/// @return 0, or the error of the first that failed; `result` of each tells which
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Set_Controls(WQZ_Camera* camera, WQZ_Camera_Setting* settings, uint32_t count);

/// Begins a capture, after the end of the one that may be running. When any step fails, the camera is free again.
/// Without WQZ_CAMERA_START_EXACT the driver chooses the nearest mode it has.
/// @param mode  receives what the driver accepted; may be null
/// @return 0; -ENOTSUP not offered (EXACT; Explain names the nearest modes); -EBUSY another program captures;
///         -ENOSPC not enough USB bandwidth; -ENODEV unplugged; or the driver's error
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Start(WQZ_Camera* camera, const WQZ_Camera_Request* request,
                                           WQZ_Camera_Mode* mode);

/// Takes the oldest frame, or the newest with WQZ_CAMERA_READ_NEWEST. Frames that `skip` of the request leaves out are
/// part of the wait.
/// @param frame  receives the frame; unchanged when there is none. Release a frame that the record still holds first:
///               Read overwrites it, and its buffer would be lost
/// @param flags  WQZ_CAMERA_READ_..., or 0
/// @return 0, or without a frame:
///         -ETIMEDOUT none came in time
///         -ECANCELED Cancel, or Stop, Start or Close on another thread while this call waited
///         -ENODEV    the camera was unplugged: Recover or Close
///         -ENOBUFS   only one buffer is left to the driver: release a frame
///         -EIO       the camera or its driver failed; Start again
///         -EINVAL    no capture is running
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Read(WQZ_Camera* camera, WQZ_Camera_Frame* frame, int32_t timeout_ms,
                                          uint32_t flags);

/// Gives a frame back and sets `data` to null. `size` stays, so the record can be used for the next Read. Legal on any
/// thread, in any order, and after Close. The last release of a closed camera's frames frees their memory.
/// @return 0; -EINVAL for null and for a record that holds no frame; the driver's error when it does not take the
///         buffer back (the frame is released all the same)
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Release(WQZ_Camera_Frame* frame);

/// Counts the frames since the last Start.
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Counters(WQZ_Camera* camera, WQZ_Camera_Counts* counts);

/// Ends one Read or Recover: the one that waits, or else the next one, even when a frame is ready. A cancel that has
/// ended nothing yet is kept, also over Stop and Start. Several of them count as one. Safe in a signal handler.
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Cancel(WQZ_Camera* camera);

/// Ends the capture; without one there is nothing to do. Reads that wait end with -ECANCELED.
/// @return 0; -EBUSY when the driver keeps the camera until the held frames are released
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Stop(WQZ_Camera* camera);

/// Brings a camera back after an unplug: waits until the camera with its identity is there, opens it, sets the
/// controls that were set, and starts the capture that was running in the same mode. After a Stop, also one during the
/// wait, no capture is started. A camera that was not unplugged is reopened and restarted at once.
/// @return 0; -ETIMEDOUT it did not come back; -ECANCELED; the last error when it came back but failed to start
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Recover(WQZ_Camera* camera, int32_t timeout_ms);

/// Closes a camera in whatever state it is: ends the waits of other threads, ends the capture, gives everything back.
/// @return 0; -EBUSY when the driver keeps the camera until the held frames are released; the handle is gone then too
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Close(WQZ_Camera* camera);

/// Says what failed last with this camera, and what to do about it. A success leaves the sentence as it is. When
/// several threads use the camera, the sentence may be about another thread's call.
/// @param camera  null for this thread's last failure without a camera: Open, List, Release, Convert, Close, Monitor_*,
///                and every call with a null handle
/// @param text  receives the sentence, cut to `capacity` bytes with the final zero; empty when nothing failed; may be
///              null when `capacity` is 0
/// @return the length of the whole sentence without the zero
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Explain(WQZ_Camera* camera, char* text, uint32_t capacity);

/// As WQZ_Camera_Explain, for the last failure of the calling thread. Call it right after the call that failed.
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Explain_Call(WQZ_Camera* camera, char* text, uint32_t capacity);

/// A descriptor to poll for POLLIN, the same from Open to Close. While a capture runs, it is readable when Read would
/// not wait: a frame is there, Cancel was called, or the camera went away. It may also be readable without a cause:
/// Read with a time of 0 then answers -ETIMEDOUT. After -ENOBUFS it may stay readable until a frame is released, and
/// after -ENODEV until Recover, Stop or Close. Do not poll it without a capture: after a Cancel it stays readable.
/// @return the descriptor; do not read, change or close it
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Descriptor(WQZ_Camera* camera);

/// Begins to watch for cameras that come and go. Those that are there already are not reported.
/// @param monitor  receives the handle, null on failure
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Monitor_Open(WQZ_Camera_Monitor** monitor);

/// A descriptor to poll for POLLIN: then call Monitor_Read without waiting until it answers -ETIMEDOUT.
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Monitor_Descriptor(WQZ_Camera_Monitor* monitor);

/// Takes the next event. Cancel does not end this wait.
/// @return 0, or -ETIMEDOUT
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Monitor_Read(WQZ_Camera_Monitor* monitor, WQZ_Camera_Event* event,
                                                  int32_t timeout_ms);

WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Monitor_Close(WQZ_Camera_Monitor* monitor);

/// Converts a frame: YUYV, UYVY, raw Bayer (8 bits, 10 to 16 bits in 16, and packed 10, 12 and 14 bits; bilinear),
/// and Motion-JPEG where the library was built with TurboJPEG. Rows come from the top.
/// @param layout  WQZ_CAMERA_PIXELS_...
/// @param pixels  receives `height` rows of 3 * `width` bytes; bytes between the rows are left as they are
/// @param capacity  bytes at pixels, enough for all rows; -EINVAL otherwise
/// @param stride  bytes from row to row, 0 for rows without a gap
/// @return 0; -ENOTSUP a format that cannot be converted; -EBADMSG the frame is cut short or broken: what could be
///         decoded of it is at pixels
WQZ_USBCAM_EXPORT int32_t WQZ_Camera_Convert(const WQZ_Camera_Frame* frame, uint32_t layout, void* pixels,
                                             uint64_t capacity, uint32_t stride);

#ifdef __cplusplus
}
#endif

#endif  // WQZ_CAMERA_H
