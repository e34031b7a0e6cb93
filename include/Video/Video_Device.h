// One V4L2 capture node with its catalogue of formats, sizes and frame intervals.
#ifndef WQZ_VIDEO_DEVICE_H
#define WQZ_VIDEO_DEVICE_H

#include <linux/videodev2.h>
#include <stdint.h>

#include "Exe/exe_base_class.h"
#include "List/list_container.h"
#include "Stream/frame_buffer.h"
#include "USBCam_API/USBCam_API.h"
#include "Video/video_control.h"
#include "Video/video_device_base_class.h"

/// One frame size of the catalogue with its frame intervals.
class WQZ_USBCAM_EXPORT Resolution_Info : public Resolution_Info_Base_Class {
public:
    Resolution_Info();
    ~Resolution_Info() override;
    Resolution_Info(const Resolution_Info&) = default;
    Resolution_Info& operator=(const Resolution_Info&) = default;

    uint32_t Index_At_Numerator(uint32_t index) override;
    uint32_t Index_At_Denominator(uint32_t index) override;
    int32_t Width() override;
    int32_t High() override;
    uint32_t Size() override;

    v4l2_frmsizeenum S_Resolution;              ///< as the driver returned it
    std::list<v4l2_frmivalenum> LS_Frame_Rata;  ///< in driver order
};

/// One pixel format of the catalogue with its frame sizes.
class WQZ_USBCAM_EXPORT Format_Info : public Format_Info_Base_Class {
public:
    Format_Info();
    ~Format_Info() override;
    Format_Info(const Format_Info&) = default;
    Format_Info& operator=(const Format_Info&) = default;

    Resolution_Info_Base_Class* Index_At(uint32_t index) override;
    int32_t Format() override;
    uint32_t Size() override;

    v4l2_fmtdesc S_Format;                          ///< as the driver returned it
    std::list<Resolution_Info> LC_Resolution_List;  ///< in driver order
};

/// One V4L2 capture node. A new object is closed. Its usual life is Video_Open, Video_Frame_Format (catalogue),
/// Video_Stream_Set_Format, Set_Frame_Rate, Set_Frame_Buff, Start_Stream, frames, Video_Exe_End. The class enforces no
/// order: every operation acts on the present descriptor. The destructor frees memory only, so unmap, stop and close
/// first. Every request but those for controls is tried up to five times while it fails with EINTR, EAGAIN or
/// ETIMEDOUT.
class WQZ_USBCAM_EXPORT Video_Device : public Video_Device_Base_Class, public Video_Stream_EXE_Base_Class {
public:
    /// @param dev  copied; the strings that it points at are not
    explicit Video_Device(v4l2_dev_sys_data_t* dev);
    ~Video_Device() override;

    int32_t Get_Video_Device_FD() override;
    Format_Info_Base_Class* Index_At_Format_Info(uint32_t index) override;

    /// Opens S_Dev_Message.Device_Path for reading and writing, blocking, and binds the controls to it.
    /// @return the descriptor, or -1 (reported on standard error)
    int32_t Video_Open() override;

    /// @return 0 after closing, else the descriptor as it stands (0 or -1)
    int32_t Video_Close() override;

    /// Appends every format, size and interval of the node to the catalogue, also those that are in it already. After
    /// each format it prints the number of formats so far as "**%d" on standard output.
    /// @return the number of formats listed by this call
    int32_t Video_Frame_Format() override;

    /// Requests, maps and queues capture buffers. A failure does not stop it. A count of 0 still makes one buffer.
    /// @return 0, or -1 when VIDIOC_REQBUFS failed
    int32_t Video_Stream_Set_Frame_Buff(uint32_t u_Queue_buff) override;

    /// Unmaps and forgets all capture buffers.
    /// @return 0
    int32_t Video_Stream_Clear_Frame_Buff() override;

    /// Asks for a format (VIDIOC_S_FMT). The request becomes the current format, whatever the driver answers, and
    /// frames are labelled with it. VIDIOC_G_FMT on the descriptor tells the driver's true format.
    /// @param u_Pixlformat  FourCC
    /// @return 0, or -1
    int32_t Video_Stream_Set_Format(uint32_t u_Pixlformat, uint32_t u_Width, uint32_t u_Height) override;

    /// Asks for a frame interval of u_Fps_num / u_Fps_denom seconds (VIDIOC_S_PARM).
    /// @return 0, or -1
    int32_t Video_Stream_Set_Frame_Rate(uint32_t u_Fps_num, uint32_t u_Fps_denom) override;

    /// VIDIOC_STREAMON and VIDIOC_STREAMOFF.
    /// @return 0, or -1
    int32_t Video_Stream_Start_Stream() override;
    int32_t Video_Stream_Stop_Stream() override;

    /// @return the format last asked for; u_Fps is not kept
    Pix_Format Get_Current_PixFormat() override;

    int32_t Set_Task_MJPEG(pExe p) override;
    int32_t Set_Task_YUV(pExe p) override;
    int32_t Set_Task_Unusual(pExe p) override;
    void Set_YUV_Mode(YUV_MODE val) override;

    /// Captures Count frames on the calling thread and hands each to the task of its format; a frame without a task is
    /// dropped and counts. Time-outs (100 seconds) and failures of select are reported on standard error and retried
    /// without end.
    /// @param Arg  passed to the tasks
    /// @return 0 for Count 0, else the positive result of the last select
    virtual int32_t Video_Exe(uint32_t Count, PVOID Arg);

    /// Does nothing.
    /// @return 0
    int32_t Video_Exe_Start();

    /// Unmaps the buffers, stops the stream and closes the node, in this order.
    /// @return 0
    int32_t Video_Exe_End();

    /// The first two do nothing; the third does what Video_Exe_End does. They are not virtual and cannot be overridden:
    /// a derived class that declares one of them again hides it, and the library never calls the new one.
    void exec();
    void exec_start();
    void exec_eqit();

    /// Lists the sizes of a format into pC_Format, or only counts them.
    /// @return the number of sizes
    int32_t Video_Frame_Sizes(v4l2_fmtdesc& S_Fmt, Format_Info* pC_Format);
    int32_t Video_Frame_Sizes(v4l2_fmtdesc& S_Fmt);

    /// Lists the frame intervals of a size into pC_Resolution, or only counts them. A stepwise or continuous answer
    /// ends the list.
    /// @return the number of intervals
    int32_t Video_Frame_Rate(v4l2_frmsizeenum& S_Fsize, Resolution_Info* pC_Resolution);
    int32_t Video_Frame_Rate(v4l2_frmsizeenum& fsize);

    /// @return 1 for a FourCC that common decoders take, and for 0; else 0
    int32_t Video_Frame_Format_support(uint32_t u_pixelformat);

    v4l2_dev_sys_data_t S_Dev_Message;
    V4L2_Video_Control_Pu C_V4L2_VC_Pu;
    std::list<Format_Info> LC_Format_List;
    uint32_t u_VideoStream_Queue_buff;
    std::list<Frame_Buffer> LC_Buffer_List;
    Pix_Format C_PixFormat;   ///< the format last asked for; u_Fps is not kept
    int32_t Video_Device_FD;  ///< 0 closed, -1 after a failed open
    pExe MJPEG_Task;
    pExe YUV_Task;
    pExe Unusual_Task;
    YUV_MODE Yuv_mode_select;
};

#endif  // WQZ_VIDEO_DEVICE_H
