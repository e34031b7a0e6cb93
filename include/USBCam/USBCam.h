// The camera session: a device with two pools of frame records and a capture loop.
#ifndef WQZ_USBCAM_H
#define WQZ_USBCAM_H

#include <stdint.h>
#include <sys/time.h>

#include "List/list_container.h"
#include "Mutex/mutex_class.h"
#include "USBCam_API/USBCam_API.h"
#include "Video/Video_Device.h"

/// A camera session: a device with a pool of free records and a queue of filled ones between the capture loop and the
/// application. A record is in one place at a time: in a list, with the loop or with the application.
/// States: created, open (after Video_DEAL_WITH_INIT), capturing (inside Video_DEAL_WITH), open again, closed (after
/// Video_DEAL_WITH_UNINIT). The destructor does not stop, unmap or close, and frees no record.
class WQZ_USBCAM_EXPORT USBCam : public Video_Device {
public:
    /// @param p_Dev_Message  copied as by Video_Device
    explicit USBCam(v4l2_dev_sys_data_t* p_Dev_Message);
    ~USBCam() override;

    /// Adds uResSize zeroed records to the free pool.
    void INIT_FRAME_RES(uint32_t uResSize);

    /// Takes a record to fill: a free one, else the oldest filled one, whose frame is lost.
    /// @return null when both lists are empty
    Frame_Buffer_Data* GET_FRAME_RES();

    /// Gives a record back to the free pool; null is ignored.
    void SAVE_FRAME_RES(Frame_Buffer_Data* pFrame);

    /// Queues a filled record and wakes one waiter.
    void SAVE_FRAME_BUFF(Frame_Buffer_Data* pFrame);

    /// Takes the oldest filled record.
    /// @param block  wait for one wake-up when there is none
    /// @return null when there is none, also after a wake-up that another consumer used
    Frame_Buffer_Data* GET_FRAME_BUFF(bool block);

    /// Takes the newest filled record and gives the older ones back to the free pool; else as GET_FRAME_BUFF.
    Frame_Buffer_Data* GET_FRAME_BUFF_NEWEST(bool block);

    /// Frees the records of both lists with their bytes.
    void CLEAR_FRAME_BUFF();

    /// Opens the camera.
    /// @param fd  stored in iFd, read by nothing
    /// @return 0, also after a failed open; -1 when the descriptor is 0
    int32_t Video_DEAL_WITH_INIT(int32_t fd);

    /// Closes the camera.
    void Video_DEAL_WITH_UNINIT();

    /// Sets the budget of the capture loop: -1 no end, N > 0 that many more waits, else stop.
    void EVENT_LoopMode(int32_t val);

    /// Waits for a filled kernel buffer, copies it into a record and requeues it. A refused request is repeated every
    /// 11 milliseconds without end.
    /// @param pBuffer  as for Frame_Buffer::read_buff
    /// @return 0, or not 0 as Frame_Buffer::read_buff says
    int32_t Read_Frame_BUFF(Frame_Buffer_Data* pBuffer);

    /// The capture loop: runs on the calling thread until the budget is spent. Results of setting up are ignored.
    /// @param arg  u_PixFormat 0 for Motion-JPEG, else YUYV
    /// @return 0, or -1 when the camera is not open
    int32_t Video_DEAL_WITH(Pix_Format* arg);

    /// @param block  wait for one wake-up when nothing is queued
    /// @return the number of filled records
    int32_t Video_STREAM_STATUS(bool block);

    // Both lists are guarded by cMutex; front is the oldest.
    std::list<Frame_Buffer_Data*> cFrame_Buffer;  ///< filled, waiting for the application
    std::list<Frame_Buffer_Data*> cFrame_RES;     ///< free
    Mutex_Class cMutex;
    int32_t iFd;
    int32_t iLoopMode;  ///< budget of the loop; read and written atomically from several threads
    timeval tv_b;       ///< start of the second in which frames are counted
    int32_t fps_i;      ///< frames read since tv_b
};

#endif  // WQZ_USBCAM_H
