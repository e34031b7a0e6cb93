// A device or session that notes its virtual calls, to prove that the library makes them through the virtual table.
#ifndef WQZ_TESTS_SUPPORT_WATCHED_DEVICE_H
#define WQZ_TESTS_SUPPORT_WATCHED_DEVICE_H

#include <optional>
#include <string>

#include "Video/Video_Device.h"

/// @tparam Base  Video_Device or USBCam
template <typename Base>
class Watched : public Base {
public:
    using Base::Base;
    ~Watched() override
    {
        if (destroyed != nullptr) {
            *destroyed = true;
        }
    }

    int32_t Get_Video_Device_FD() override
    {
        calls += "Get_Video_Device_FD ";
        return shown_fd.value_or(Base::Get_Video_Device_FD());
    }
    Pix_Format Get_Current_PixFormat() override
    {
        calls += "Get_Current_PixFormat ";
        return label.value_or(Base::Get_Current_PixFormat());
    }
    int32_t Video_Open() override
    {
        calls += "Video_Open ";
        return Base::Video_Open();
    }
    int32_t Video_Close() override
    {
        calls += "Video_Close ";
        return Base::Video_Close();
    }
    int32_t Video_Frame_Format() override
    {
        calls += "Video_Frame_Format ";
        return Base::Video_Frame_Format();
    }
    int32_t Video_Stream_Set_Frame_Buff(uint32_t u_Queue_buff) override
    {
        calls += "Video_Stream_Set_Frame_Buff ";
        return Base::Video_Stream_Set_Frame_Buff(u_Queue_buff);
    }
    int32_t Video_Stream_Clear_Frame_Buff() override
    {
        calls += "Video_Stream_Clear_Frame_Buff ";
        return Base::Video_Stream_Clear_Frame_Buff();
    }
    int32_t Video_Stream_Set_Format(uint32_t u_Pixlformat, uint32_t u_Width, uint32_t u_Height) override
    {
        calls += "Video_Stream_Set_Format ";
        return Base::Video_Stream_Set_Format(u_Pixlformat, u_Width, u_Height);
    }
    int32_t Video_Stream_Set_Frame_Rate(uint32_t u_Fps_num, uint32_t u_Fps_denom) override
    {
        calls += "Video_Stream_Set_Frame_Rate ";
        return Base::Video_Stream_Set_Frame_Rate(u_Fps_num, u_Fps_denom);
    }
    int32_t Video_Stream_Start_Stream() override
    {
        calls += "Video_Stream_Start_Stream ";
        return Base::Video_Stream_Start_Stream();
    }
    int32_t Video_Stream_Stop_Stream() override
    {
        calls += "Video_Stream_Stop_Stream ";
        return Base::Video_Stream_Stop_Stream();
    }

    std::string calls;                ///< names in order, a blank after each
    std::optional<Pix_Format> label;  ///< what Get_Current_PixFormat returns instead of the real one
    std::optional<int32_t> shown_fd;  ///< what Get_Video_Device_FD returns instead of the real one
    bool* destroyed = nullptr;        ///< set by the destructor
};

#endif  // WQZ_TESTS_SUPPORT_WATCHED_DEVICE_H
