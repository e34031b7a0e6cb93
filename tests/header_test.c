/* The flat header in a C99 program: layout of the records, the task type, linkage of every function. */
#include <stddef.h>
#include <stdio.h>
#include <time.h>

#include "USBCam_API/USBCam_API.h"

static int failures = 0;

static void check(int holds, const char* what)
{
    if (!holds) {
        printf("FAILED: %s\n", what);
        ++failures;
    }
}

#define CHECK(condition) check((condition), #condition)

/* records_test checks every member; here C must agree with it. */
static void check_records(void)
{
    const bool pointers_64 = sizeof(void*) == 8;
    const bool times_32 = sizeof(time_t) == 4;
    CHECK(sizeof(v4l2_dev_sys_data_t) == (pointers_64 ? 1096 : 1080));
    CHECK(offsetof(v4l2_dev_sys_data_t, Device_Path) == (pointers_64 ? 838 : 822));
    CHECK(sizeof(Pix_Format) == 16 && offsetof(Pix_Format, u_Fps) == 12);
    CHECK(sizeof(Frame_Buffer_Data) == (pointers_64 ? 408 : times_32 ? 368 : 392));
    CHECK(offsetof(Frame_Buffer_Data, index) == (pointers_64 ? 400 : times_32 ? 364 : 384));
    CHECK(sizeof GLOG == 4097);
}

/* A null handle is answered and leaves the trace alone. */
static void check_null_handles(void)
{
    Pix_Format mode = {0, 640, 480, 30};
    int32_t value = 7;
    CHECK(WQZ_USBCam_DEVICE_FIND_ID(NULL, 0xFFFF, 0xFFFF) == -2);
    CHECK(WQZ_USBCam_Video_DEAL_WITH_INIT(NULL, 0) == -2);
    CHECK(WQZ_USBCam_Get_Format_List_Size(NULL) == -2);
    CHECK(WQZ_USBCam_Get_Format_List(NULL, &mode) == -2);
    CHECK(WQZ_USBCam_PU_Get(NULL, V4L2_CID_BRIGHTNESS, &value) == -2 && value == 7);
    CHECK(WQZ_USBCam_PU_Set(NULL, V4L2_CID_BRIGHTNESS, 1) == -2);
    CHECK(WQZ_USBCam_Video_DEAL_WITH(NULL, mode) == -2);
    CHECK(WQZ_USBCam_Video_STREAM_STATUS(NULL, true) == -2);
    CHECK(WQZ_USBCam_Clear_Frame_Buff(NULL) == -2);
    CHECK(WQZ_USBCam_GET_FRAME_BUFF(NULL, true) == NULL);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(NULL);
    WQZ_USBCam_EVENT_LoopMode(NULL, 0);
    WQZ_USBCam_SAVE_FRAME_RES(NULL, NULL);
    WQZ_USBCam_DELETE_DEVICE_POINT(NULL);
    WQZ_USBCam_DEVICE_FREE(NULL, 3);
    CHECK(WQZ_USBCam_Log() == GLOG && WQZ_USBCam_Get_Cache() == GLOG);
    CHECK(GLOG[0] == '\0');
}

/* A program that registers tasks needs the flat header only. */
static int32_t count_bytes(void* context, Frame_Buffer_Data* frame, void* user)
{
    (void)context;
    (void)user;
    return (int32_t)frame->buffer.bytesused;
}

static void check_task_type(void)
{
    Frame_Buffer_Data frame = {0};
    const pExe task = count_bytes;
    PVOID user = NULL;
    frame.buffer.bytesused = 3;
    CHECK(task(NULL, &frame, user) == 3);
}

int main(void)
{
    check_records();
    check_task_type();
    check_null_handles();
    return failures == 0 ? 0 : 1;
}
