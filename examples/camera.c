/* Saves ten Motion-JPEG pictures of a camera as picture-0.jpg to picture-9.jpg. Usage: camera_c [CAMERA] */
#include <stdbool.h>
#include <stdio.h>

#include "Camera/wqz_camera.h"

/* Prints what failed last with this camera; with a null pointer, what failed without a camera. */
static bool Report(WQZ_Camera* camera)
{
    char sentence[1024];
    WQZ_Camera_Explain(camera, sentence, sizeof sentence);
    fprintf(stderr, "%s\n", sentence);
    return false;
}

static bool Save(const WQZ_Camera_Frame* frame, int number)
{
    char name[32];
    snprintf(name, sizeof name, "picture-%d.jpg", number);
    FILE* file = fopen(name, "wb");
    const bool is_written = file != NULL && fwrite(frame->data, 1, (size_t)frame->length, file) == frame->length;
    const bool is_closed = file != NULL && fclose(file) == 0;
    if (!is_written || !is_closed) {
        fprintf(stderr, "%s cannot be written\n", name);
        return false;
    }
    return true;
}

static bool Capture(WQZ_Camera* camera)
{
    const WQZ_Camera_Request request = {.size = sizeof request,
                                        .fourcc = WQZ_CAMERA_FOURCC('M', 'J', 'P', 'G'),
                                        .width = 640,
                                        .height = 480,
                                        .interval = {1, 30},
                                        .flags = WQZ_CAMERA_START_EXACT};
    if (WQZ_Camera_Start(camera, &request, NULL) != 0) {
        return Report(camera);
    }
    for (int saved = 0; saved < 10;) {
        WQZ_Camera_Frame frame = {.size = sizeof frame};
        if (WQZ_Camera_Read(camera, &frame, 5000, 0) != 0) {
            return Report(camera);
        }
        const bool is_whole = (frame.flags & WQZ_CAMERA_FRAME_DAMAGED) == 0;
        const bool is_saved = !is_whole || Save(&frame, saved);
        WQZ_Camera_Release(&frame);
        if (!is_saved) {
            return false;
        }
        saved += is_whole ? 1 : 0;
    }
    return true;
}

int main(int argc, char** argv)
{
    WQZ_Camera* camera = NULL;
    if (WQZ_Camera_Open(&camera, argc > 1 ? argv[1] : NULL) != 0) {
        Report(NULL);
        return 1;
    }
    const bool is_captured = Capture(camera);
    WQZ_Camera_Close(camera);
    return is_captured ? 0 : 1;
}
