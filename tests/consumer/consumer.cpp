// A user's C++11 program over the classes.
#include <cstring>

#include "Stream/YUV/yuv_stream.h"
#include "USBCam/USBCam.h"
#include "USBCam_API/USBCam_API.h"

namespace {

// A user's own camera class over the second interface.
class Camera : public USBCam {
public:
    explicit Camera(v4l2_dev_sys_data_t* record) : USBCam(record) {}
};

}  // namespace

int main()
{
    v4l2_dev_sys_data_t record;
    std::memset(&record, 0, sizeof record);
    Camera camera(&record);
    camera.INIT_FRAME_RES(2);
    const bool pooled = camera.cFrame_RES.size() == 2;
    camera.CLEAR_FRAME_BUFF();

    uint8_t grey[4] = {77, 128, 77, 128};
    uint8_t bgr[6] = {};
    YUV_Stream::YUV_Decode_Table.YUYV_Decode(grey, sizeof grey, bgr, sizeof bgr);
    return pooled && bgr[0] == 77 && bgr[5] == 77 && WQZ_USBCam_Log() == GLOG ? 0 : 1;
}
