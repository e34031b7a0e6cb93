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
        return shown_fd.value_or(Note("Get_Video_Device_FD").Base::Get_Video_Device_FD());
    }
    Pix_Format Get_Current_PixFormat() override
    {
        return label.value_or(Note("Get_Current_PixFormat").Base::Get_Current_PixFormat());
    }
    int32_t Video_Open() override { return Note("Video_Open").Base::Video_Open(); }
    int32_t Video_Close() override { return Note("Video_Close").Base::Video_Close(); }
    int32_t Video_Frame_Format() override { return Note("Video_Frame_Format").Base::Video_Frame_Format(); }
    int32_t Video_Stream_Set_Frame_Buff(uint32_t count) override
    {
        return Note("Video_Stream_Set_Frame_Buff").Base::Video_Stream_Set_Frame_Buff(count);
    }
    int32_t Video_Stream_Clear_Frame_Buff() override
    {
        return Note("Video_Stream_Clear_Frame_Buff").Base::Video_Stream_Clear_Frame_Buff();
    }
    int32_t Video_Stream_Set_Format(uint32_t fourcc, uint32_t width, uint32_t height) override
    {
        return Note("Video_Stream_Set_Format").Base::Video_Stream_Set_Format(fourcc, width, height);
    }
    int32_t Video_Stream_Set_Frame_Rate(uint32_t numerator, uint32_t denominator) override
    {
        return Note("Video_Stream_Set_Frame_Rate").Base::Video_Stream_Set_Frame_Rate(numerator, denominator);
    }
    int32_t Video_Stream_Start_Stream() override
    {
        return Note("Video_Stream_Start_Stream").Base::Video_Stream_Start_Stream();
    }
    int32_t Video_Stream_Stop_Stream() override
    {
        return Note("Video_Stream_Stop_Stream").Base::Video_Stream_Stop_Stream();
    }

    std::string calls;                ///< names in order, a blank after each
    std::optional<Pix_Format> label;  ///< what Get_Current_PixFormat returns instead of the real one
    std::optional<int32_t> shown_fd;  ///< what Get_Video_Device_FD returns instead of the real one
    bool* destroyed = nullptr;        ///< set by the destructor

private:
    Watched& Note(const char* name)
    {
        calls.append(name).append(" ");
        return *this;
    }
};

#endif  // WQZ_TESTS_SUPPORT_WATCHED_DEVICE_H
