// The destructors of the abstract classes, and the exported factory pair.
#include "Video/video_device_base_class.h"

#include "Video/Video_Device.h"

Resolution_Info_Base_Class::~Resolution_Info_Base_Class() = default;
Format_Info_Base_Class::~Format_Info_Base_Class() = default;
Video_Device_Base_Class::~Video_Device_Base_Class() = default;
Video_Stream_EXE_Base_Class::~Video_Stream_EXE_Base_Class() = default;

Video_Device_Base_Class* creater_Video_Device_Base_Class(v4l2_dev_sys_data_t* p_Dev, PVOID* pClass)
{
    auto* device = new Video_Device(p_Dev);
    *pClass = device;
    return device;
}

void delete_Video_Device_Base_Class(Video_Device_Base_Class* pAPI)
{
    delete pAPI;
}
