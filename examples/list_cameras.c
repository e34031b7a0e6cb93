/* Lists the cameras and the modes of each. */
#include <stdio.h>
#include <stdlib.h>

#include "USBCam_API/USBCam_API.h"

static void Print_Modes(void* camera)
{
    const int32_t count = WQZ_USBCam_Get_Format_List_Size(camera);
    Pix_Format* modes = calloc(count > 0 ? (size_t)count : 1, sizeof *modes);
    if (modes == NULL) {
        return;
    }
    WQZ_USBCam_Get_Format_List(camera, modes);
    for (int32_t i = 0; i < count; ++i) {
        /* In this list, u_PixFormat is a FourCC: four characters, with the first in the low byte. */
        const uint32_t code = modes[i].u_PixFormat;
        printf("    %c%c%c%c %ux%u, %u frames per second\n", (int)(code & 0x7F), (int)(code >> 8 & 0x7F),
               (int)(code >> 16 & 0x7F), (int)(code >> 24 & 0x7F), modes[i].u_Width, modes[i].u_Height, modes[i].u_Fps);
    }
    free(modes);
}

int main(void)
{
    v4l2_dev_sys_data_t* cameras = NULL;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF);
    printf("%d cameras\n", (int)count);
    for (int32_t i = 0; i < count; ++i) {
        printf("%s: %s, %04x:%04x\n", cameras[i].device, cameras[i].name, (unsigned)cameras[i].Vid,
               (unsigned)cameras[i].Pid);
        if (cameras[i].Device_Path[0] == '\0') {
            /* Discovery fills Device_Path for USB cameras only, and a session opens it. */
            snprintf(cameras[i].Device_Path, sizeof cameras[i].Device_Path, "%s", cameras[i].device);
        }
        void* camera = WQZ_USBCam_CREATE_DEVICE_POINT(cameras[i]);
        WQZ_USBCam_Video_DEAL_WITH_INIT(camera, 0);
        Print_Modes(camera);
        WQZ_USBCam_Video_DEAL_WITH_UNINIT(camera);
        WQZ_USBCam_DELETE_DEVICE_POINT(camera);
    }
    WQZ_USBCam_DEVICE_FREE(cameras, count);
    return 0;
}
