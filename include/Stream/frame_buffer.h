// One memory-mapped kernel buffer, and the length of the Motion-JPEG image in it.
#ifndef WQZ_FRAME_BUFFER_H
#define WQZ_FRAME_BUFFER_H

#include <stdint.h>

#include "data_typedef/data_typedef.h"
#include "List/list_container.h"
#include "USBCam_API/USBCam_API.h"

/// One kernel capture buffer of the memory-mapped streaming interface: queried and mapped (query_buff), queued
/// (queue_buff), unmapped (unmap_buff). Copies share the mapping; only unmap_buff ends it.
class WQZ_USBCAM_EXPORT Frame_Buffer {
public:
    /// Every field zero, pMem null.
    Frame_Buffer();

    /// Maps buff_Length bytes at buff_Offset. A failure leaves MAP_FAILED in pMem; do not unmap it then.
    /// @return 0, or -1
    int32_t map_buff(uint32_t fd);

    /// Asks the driver where buffer `index` lies (VIDIOC_QUERYBUF) and maps it.
    /// @return 0, or -1 when the query (nothing is mapped then) or the mapping failed
    int32_t query_buff(uint32_t fd);

    /// Gives the buffer to the driver for filling (VIDIOC_QBUF).
    /// @return 0, or -1
    int32_t queue_buff(uint32_t fd);

    /// Ends the mapping; pMem keeps its value.
    /// @return 0, or -1
    int32_t unmap_buff();

    /// Dequeues a filled buffer, copies its bytes and gives it back to the driver.
    /// @param LC_Frame_Buffer  the mapped buffers in index order
    /// @param pBuffer  receives the V4L2 record and a copy of the bytes at pMem (array new; grown when needed, owned by
    ///                 the caller, bytesused plus 256 bytes); its other fields stay
    /// @return 0, or -1: no mapped buffers; a request failed; the mapping does not hold the whole frame (the missing
    ///         bytes are zero in the copy); or an impossible length (the record is then empty). The last two set
    ///         V4L2_BUF_FLAG_ERROR in the record.
    static int32_t read_buff(uint32_t fd, std::list<Frame_Buffer>& LC_Frame_Buffer, Frame_Buffer_Data* pBuffer);

    /// Dequeues a filled buffer and gives it back without a copy. Prints the name that a picture of it would have on
    /// standard error; no file is written.
    /// @return 0, or -1 when a request failed
    static int32_t read_buff(uint32_t fd, std::list<Frame_Buffer>& LC_Frame_Buffer);

    /// Checks that a frame is a whole JPEG image: FF D8 in front, FF D9 at the end of its bytesused bytes.
    /// @return bytesused, or -1
    static int32_t MJPEG_Length(uint8_t* p_data, v4l2_buffer* p_buffer);

    /// Finds the end of a JPEG image that zeros follow, without reading all of the buffer. Prints what it found on
    /// standard error. A run of 100 or more zero bytes inside the image can mislead it.
    /// @param Max_Length  size of the buffer in bytes
    /// @return the length of the image, or -1 when there is no image that starts with FF D8 and ends with FF D9
    static int32_t MJPEG_Length(uint8_t* p_data, uint32_t Max_Length);

    /// @return the address of sBuf
    Frame_Buffer_Data* Get_Frame_Buff_data();

    Frame_Buffer_Data sBuf;
};

#endif  // WQZ_FRAME_BUFFER_H
