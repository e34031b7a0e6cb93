/* Saves ten Motion-JPEG pictures of the first camera as picture-0.jpg to picture-9.jpg, through the session in C99. */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "USBCam_API/USBCam_API.h"

/* Ends the whole program: no call reaches a capture thread that waits in the driver for a frame. */
static void Give_Up(const char* reason)
{
    fprintf(stderr, "%s\n", reason);
    _Exit(1);
}

/* Runs until EVENT_LoopMode ends it, so it has a thread of its own. */
static void* Capture(void* camera)
{
    const Pix_Format mode = {0, 640, 480, 30}; /* 0 asks for Motion-JPEG */
    WQZ_USBCam_Video_DEAL_WITH(camera, mode);
    return NULL;
}

/* Takes the next frame. Gives up when none comes for five seconds. */
static Frame_Buffer_Data* Next_Frame(void* camera)
{
    const struct timespec pause = {0, 10000000};
    for (int i = 0; i < 500; ++i) {
        Frame_Buffer_Data* frame = WQZ_USBCam_GET_FRAME_BUFF(camera, false);
        if (frame != NULL) {
            return frame;
        }
        nanosleep(&pause, NULL);
    }
    Give_Up("no frame for five seconds: the camera is busy, unplugged or did not start");
    return NULL;
}

static void Save(const Frame_Buffer_Data* frame, int number)
{
    char name[32];
    snprintf(name, sizeof name, "picture-%d.jpg", number);
    FILE* file = fopen(name, "wb");
    const size_t length = frame->buffer.bytesused;
    if (file == NULL || fwrite(frame->pMem, 1, length, file) != length || fclose(file) != 0) {
        Give_Up("cannot write a picture");
    }
}

int main(void)
{
    v4l2_dev_sys_data_t* cameras = NULL;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF);
    if (count < 1) {
        Give_Up("no camera found");
    }
    /* A session opens Device_Path, which discovery fills for USB cameras only. */
    snprintf(cameras[0].Device_Path, sizeof cameras[0].Device_Path, "%s", cameras[0].device);
    void* camera = WQZ_USBCam_CREATE_DEVICE_POINT(cameras[0]);
    WQZ_USBCam_Video_DEAL_WITH_INIT(camera, 0);
    pthread_t thread;
    if (pthread_create(&thread, NULL, Capture, camera) != 0) {
        Give_Up("cannot start a thread");
    }
    for (int saved = 0; saved < 10; ++saved) {
        Frame_Buffer_Data* frame = Next_Frame(camera);
        Save(frame, saved);
        WQZ_USBCam_SAVE_FRAME_RES(camera, frame);
    }
    WQZ_USBCam_EVENT_LoopMode(camera, 0);
    pthread_join(thread, NULL);
    WQZ_USBCam_Clear_Frame_Buff(camera);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(camera);
    WQZ_USBCam_DELETE_DEVICE_POINT(camera);
    WQZ_USBCam_DEVICE_FREE(cameras, count);
    return 0;
}
