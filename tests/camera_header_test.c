/* The camera interface's header in a C99 program: layout of the records, linkage of every function, null pointers. */
#include <errno.h>
#include <stddef.h>
#include <stdio.h>

#include "Camera/wqz_camera.h"

static int failures = 0;

static void check(int holds, const char* what)
{
    if (!holds) {
        printf("FAILED: %s\n", what);
        ++failures;
    }
}

#define CHECK(condition) check((condition), #condition)

/* Programs built with today's records run with tomorrow's library. */
static void check_records(void)
{
    CHECK(sizeof(WQZ_Camera_Fraction) == 8);
    CHECK(sizeof(WQZ_Camera_Info) == 1528);
    CHECK(offsetof(WQZ_Camera_Info, vendor) == 16);
    CHECK(offsetof(WQZ_Camera_Info, node) == 24);
    CHECK(offsetof(WQZ_Camera_Info, identity) == 1016);
    CHECK(sizeof(WQZ_Camera_Offer) == 104);
    CHECK(offsetof(WQZ_Camera_Offer, interval_min) == 80);
    CHECK(sizeof(WQZ_Camera_Request) == 36);
    CHECK(sizeof(WQZ_Camera_Mode) == 44);
    CHECK(sizeof(WQZ_Camera_Counts) == 40);
    CHECK(sizeof(WQZ_Camera_Control) == 112);
    CHECK(sizeof(WQZ_Camera_Menu_Item) == 48);
    CHECK(sizeof(WQZ_Camera_Event) == 8 + sizeof(WQZ_Camera_Info));
#if UINTPTR_MAX == UINT64_MAX
    CHECK(sizeof(WQZ_Camera_Frame) == 72);
    CHECK(offsetof(WQZ_Camera_Frame, data) == 8);
    CHECK(offsetof(WQZ_Camera_Frame, loan) == 56);
    CHECK(sizeof(WQZ_Camera_Setting) == 56);
#endif
    CHECK(WQZ_CAMERA_FOURCC('M', 'J', 'P', 'G') == 0x47504A4DU);
}

static void check_null_pointers(void)
{
    char text[200] = "";
    WQZ_Camera* camera = NULL;
    WQZ_Camera_Frame frame = {sizeof frame};
    CHECK(WQZ_Camera_List(NULL, 1) == -EINVAL);
    CHECK(WQZ_Camera_List(NULL, 0) >= 0);
    CHECK(WQZ_Camera_Open(NULL, NULL) == -EINVAL);
    CHECK(WQZ_Camera_Open(&camera, "/nowhere") == -ENOENT && camera == NULL);
    CHECK(WQZ_Camera_Explain(NULL, text, sizeof text) > 0 && text[0] != '\0');
    CHECK(WQZ_Camera_Explain(NULL, NULL, 0) > 0);
    CHECK(WQZ_Camera_Explain(NULL, text, 5) > 4 && text[4] == '\0');
    CHECK(WQZ_Camera_Describe(NULL, NULL) == -EINVAL);
    CHECK(WQZ_Camera_Modes(NULL, NULL, 0) == -EINVAL);
    CHECK(WQZ_Camera_Controls(NULL, NULL, 0) == -EINVAL);
    CHECK(WQZ_Camera_Menu(NULL, 0, NULL, 0) == -EINVAL);
    CHECK(WQZ_Camera_Get_Control(NULL, NULL) == -EINVAL);
    CHECK(WQZ_Camera_Set_Controls(NULL, NULL, 0) == -EINVAL);
    CHECK(WQZ_Camera_Start(NULL, NULL, NULL) == -EINVAL);
    CHECK(WQZ_Camera_Read(NULL, &frame, 0, 0) == -EINVAL);
    CHECK(WQZ_Camera_Release(&frame) == -EINVAL);
    CHECK(WQZ_Camera_Counters(NULL, NULL) == -EINVAL);
    CHECK(WQZ_Camera_Cancel(NULL) == -EINVAL);
    CHECK(WQZ_Camera_Stop(NULL) == -EINVAL);
    CHECK(WQZ_Camera_Recover(NULL, 0) == -EINVAL);
    CHECK(WQZ_Camera_Close(NULL) == -EINVAL);
    CHECK(WQZ_Camera_Descriptor(NULL) == -EINVAL);
    CHECK(WQZ_Camera_Monitor_Open(NULL) == -EINVAL);
    CHECK(WQZ_Camera_Monitor_Descriptor(NULL) == -EINVAL);
    CHECK(WQZ_Camera_Monitor_Read(NULL, NULL, 0) == -EINVAL);
    CHECK(WQZ_Camera_Monitor_Close(NULL) == -EINVAL);
    CHECK(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, NULL, 0, 0) == -EINVAL);
}

int main(void)
{
    check_records();
    check_null_pointers();
    return failures == 0 ? 0 : 1;
}
