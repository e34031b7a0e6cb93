// The flat functions over the camera session.
#include "USBCam_API/USBCam_API.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "USBCam/USBCam.h"
#include "Video/usb_video_enum.h"

namespace {

constexpr int32_t Null_Argument = -2;
constexpr uint16_t Any_Id = 0xFFFF;
constexpr std::size_t Location_Bytes = 256;

USBCam* Session(void* pDevPoint)
{
    return static_cast<USBCam*>(pDevPoint);
}

bool Has_Ids(const v4l2_dev_sys_data_t& record, uint16_t VID, uint16_t PID)
{
    return (VID == Any_Id && PID == Any_Id) || (record.Vid == VID && record.Pid == PID);
}

Pix_Format Mode(const v4l2_frmsizeenum& size, const v4l2_fract& interval)
{
    const uint32_t fps = interval.numerator == 0 ? 0 : interval.denominator / interval.numerator;
    return {size.pixel_format, size.discrete.width, size.discrete.height, fps};
}

// The catalogue as one list: one entry per frame interval, in driver order.
std::vector<Pix_Format> Modes(const USBCam& session)
{
    std::vector<Pix_Format> modes;
    for (const Format_Info& format : session.LC_Format_List) {
        for (const Resolution_Info& resolution : format.LC_Resolution_List) {
            for (const v4l2_frmivalenum& interval : resolution.LS_Frame_Rata) {
                modes.push_back(Mode(resolution.S_Resolution, interval.discrete));
            }
        }
    }
    return modes;
}

}  // namespace

int32_t WQZ_USBCam_DEVICE_FIND_ID(v4l2_dev_sys_data_t** pDev, uint16_t VID, uint16_t PID)
{
    if (pDev == nullptr) {
        return Null_Argument;
    }
    *pDev = nullptr;
    const USB_Video_Enum scan;
    const auto& records = scan.C_Dev_Mes.V4l2_dev_message;
    *pDev = new v4l2_dev_sys_data_t[records.size()];

    int32_t taken = 0;
    // Only neighbours merge, because each location is compared with that of the record taken last.
    char previous_location[Location_Bytes + 1] = {};
    for (const v4l2_dev_sys_data_t& record : records) {
        if (!Has_Ids(record, VID, PID) || std::strcmp(record.location, previous_location) == 0) {
            continue;
        }
        std::memset(previous_location, 0, sizeof previous_location);
        std::memcpy(previous_location, record.location, strnlen(record.location, Location_Bytes));
        (*pDev)[taken++] = record;
    }
    return taken;
}

void WQZ_USBCam_DEVICE_FREE(v4l2_dev_sys_data_t* pDev, int32_t count)
{
    if (pDev == nullptr) {
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        for (char* text : {pDev[i].device, pDev[i].name, pDev[i].driver, pDev[i].location}) {
            free(text);
        }
    }
    delete[] pDev;
}

void* WQZ_USBCam_CREATE_DEVICE_POINT(v4l2_dev_sys_data_t devinfo)
{
    return new USBCam(&devinfo);
}

void WQZ_USBCam_DELETE_DEVICE_POINT(void* pDevPoint)
{
    if (pDevPoint != nullptr) {
        delete_Video_Device_Base_Class(Session(pDevPoint));
    }
}

int32_t WQZ_USBCam_Video_DEAL_WITH_INIT(void* pDevPoint, int32_t fd)
{
    if (pDevPoint == nullptr) {
        return Null_Argument;
    }
    // A camera that does not open shows as an empty format list.
    (void)Session(pDevPoint)->Video_DEAL_WITH_INIT(fd);
    (void)Session(pDevPoint)->Video_Frame_Format();
    return 0;
}

void WQZ_USBCam_Video_DEAL_WITH_UNINIT(void* pDevPoint)
{
    if (pDevPoint != nullptr) {
        Session(pDevPoint)->Video_DEAL_WITH_UNINIT();
    }
}

int32_t WQZ_USBCam_Clear_Frame_Buff(void* pDevPoint)
{
    if (pDevPoint == nullptr) {
        return Null_Argument;
    }
    return Session(pDevPoint)->Video_Stream_Clear_Frame_Buff();
}

int32_t WQZ_USBCam_Get_Format_List_Size(void* pDevPoint)
{
    if (pDevPoint == nullptr) {
        return Null_Argument;
    }
    return static_cast<int32_t>(Modes(*Session(pDevPoint)).size());
}

int32_t WQZ_USBCam_Get_Format_List(void* pDevPoint, Pix_Format* pix_format)
{
    if (pDevPoint == nullptr) {
        return Null_Argument;
    }
    const std::vector<Pix_Format> modes = Modes(*Session(pDevPoint));
    if (pix_format == nullptr && !modes.empty()) {
        return Null_Argument;
    }
    std::copy(modes.begin(), modes.end(), pix_format);
    return 0;
}

int32_t WQZ_USBCam_PU_Get(void* pDevPoint, int32_t id, int32_t* val)
{
    if (pDevPoint == nullptr || val == nullptr) {
        return Null_Argument;
    }
    // Success is reported even when the read failed: *val is then what the control object left there.
    (void)Session(pDevPoint)->C_V4L2_VC_Pu.V4L2_Static_Pu_Get_Control(static_cast<uint32_t>(id), val);
    return 0;
}

int32_t WQZ_USBCam_PU_Set(void* pDevPoint, int32_t id, int32_t val)
{
    if (pDevPoint == nullptr) {
        return Null_Argument;
    }
    return Session(pDevPoint)->C_V4L2_VC_Pu.V4L2_Static_Pu_Set_Control(static_cast<uint32_t>(id), val);
}

int32_t WQZ_USBCam_Video_DEAL_WITH(void* pDevPoint, Pix_Format arg)
{
    if (pDevPoint == nullptr) {
        return Null_Argument;
    }
    return Session(pDevPoint)->Video_DEAL_WITH(&arg);
}

void WQZ_USBCam_EVENT_LoopMode(void* pDevPoint, int32_t val)
{
    if (pDevPoint != nullptr) {
        Session(pDevPoint)->EVENT_LoopMode(val);
    }
}

int32_t WQZ_USBCam_Video_STREAM_STATUS(void* pDevPoint, bool block)
{
    if (pDevPoint == nullptr) {
        return Null_Argument;
    }
    return Session(pDevPoint)->Video_STREAM_STATUS(block);
}

Frame_Buffer_Data* WQZ_USBCam_GET_FRAME_BUFF(void* pDevPoint, bool block)
{
    if (pDevPoint == nullptr) {
        return nullptr;
    }
    return Session(pDevPoint)->GET_FRAME_BUFF(block);
}

void WQZ_USBCam_SAVE_FRAME_RES(void* pDevPoint, Frame_Buffer_Data* pFrame)
{
    if (pDevPoint != nullptr) {
        Session(pDevPoint)->SAVE_FRAME_RES(pFrame);
    }
}
