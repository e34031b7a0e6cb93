/* A user's C99 program over the flat functions. */
#include <inttypes.h>
#include <stdio.h>

#include "USBCam_API/USBCam_API.h"

int main(void)
{
    v4l2_dev_sys_data_t* cameras = NULL;
    int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF);
    printf("%" PRId32 " cameras\n", count);
    WQZ_USBCam_DEVICE_FREE(cameras, count);
    return count >= 0 && WQZ_USBCam_Get_Format_List_Size(NULL) == -2 ? 0 : 1;
}
