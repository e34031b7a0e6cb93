// Captures 30 Motion-JPEG and 30 YUYV frames of the first camera through the session functions: .jpg and .bmp files.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "USBCam_API/USBCam_API.h"

namespace {

constexpr int Frames = 30;  // of each format
constexpr size_t Header_Bytes = 54;

// Ends the whole program: no call reaches a capture thread that waits in the driver for a frame.
[[noreturn]] void Give_Up(const std::string& reason)
{
    std::fprintf(stderr, "session_demo: %s\n", reason.c_str());
    std::_Exit(1);
}

// Takes the next frame. Gives up when none comes for five seconds.
Frame_Buffer_Data* Next_Frame(void* session)
{
    for (int i = 0; i < 500; ++i) {
        if (Frame_Buffer_Data* frame = WQZ_USBCam_GET_FRAME_BUFF(session, false)) {
            return frame;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Give_Up("no frame for five seconds: the camera is busy, unplugged or did not start");
}

void Write_File(const std::string& name, const uint8_t* bytes, size_t count)
{
    FILE* file = std::fopen(name.c_str(), "wb");
    if (file == nullptr || std::fwrite(bytes, 1, count, file) != count || std::fclose(file) != 0) {
        Give_Up(name + " cannot be written");
    }
}

// The session's bitmaps run from top to bottom without padding. Viewers want the rows from bottom to top, each padded
// to 4 bytes.
std::vector<uint8_t> Upright_Bitmap(const Frame_Buffer_Data& frame)
{
    const auto* source = static_cast<const uint8_t*>(frame.pMem);
    const size_t row = size_t{frame.PixFormat.u_Width} * 3;
    const size_t padded_row = (row + 3) / 4 * 4;
    const size_t height = frame.PixFormat.u_Height;
    std::vector<uint8_t> file(Header_Bytes + padded_row * height);
    if (frame.buffer.bytesused < Header_Bytes + row * height) {
        Give_Up("a frame is not complete");
    }
    std::memcpy(file.data(), source, Header_Bytes);
    const auto file_bytes = static_cast<uint32_t>(file.size());
    std::memcpy(file.data() + 2, &file_bytes, sizeof file_bytes);
    for (size_t y = 0; y < height; ++y) {
        std::memcpy(file.data() + Header_Bytes + y * padded_row, source + Header_Bytes + (height - 1 - y) * row, row);
    }
    return file;
}

void Save(const Frame_Buffer_Data& frame, const std::string& start)
{
    if (frame.PixFormat.u_PixFormat == 0) {
        Write_File(start + ".jpg", static_cast<const uint8_t*>(frame.pMem), frame.buffer.bytesused);
        return;
    }
    const std::vector<uint8_t> bitmap = Upright_Bitmap(frame);
    Write_File(start + ".bmp", bitmap.data(), bitmap.size());
}

// Prefers 640x480, and then the highest rate up to 30 frames per second.
bool Is_Better(const Pix_Format& mode, const Pix_Format& than)
{
    const auto rating = [](const Pix_Format& m) {
        const bool has_size = m.u_Width == 640 && m.u_Height == 480;
        return (has_size ? 1000 : 0) + (m.u_Fps <= 30 ? static_cast<int>(m.u_Fps) : 0);
    };
    return rating(mode) > rating(than);
}

// A request names its format by 0 for Motion-JPEG and 1 for YUYV; the camera's list names it by its FourCC.
bool Choose_Mode(void* session, uint32_t fourcc, Pix_Format& request)
{
    std::vector<Pix_Format> modes(static_cast<size_t>(std::max(WQZ_USBCam_Get_Format_List_Size(session), 0)));
    WQZ_USBCam_Get_Format_List(session, modes.data());
    modes.erase(std::remove_if(modes.begin(), modes.end(), [=](const auto& m) { return m.u_PixFormat != fourcc; }),
                modes.end());
    if (modes.empty()) {
        return false;
    }
    request = *std::min_element(modes.begin(), modes.end(), Is_Better);
    request.u_PixFormat = fourcc == V4L2_PIX_FMT_MJPEG ? 0 : 1;
    return true;
}

// Each capture has a session of its own; see "Capturing again" in docs/session.md.
void Capture(const v4l2_dev_sys_data_t& camera, uint32_t fourcc, const char* name, const std::string& folder)
{
    void* session = WQZ_USBCam_CREATE_DEVICE_POINT(camera);
    WQZ_USBCam_Video_DEAL_WITH_INIT(session, 0);
    Pix_Format request = {};
    if (Choose_Mode(session, fourcc, request)) {
        std::printf("%s %ux%u at %u frames per second\n", name, request.u_Width, request.u_Height, request.u_Fps);
        std::thread capture([=] { WQZ_USBCam_Video_DEAL_WITH(session, request); });
        for (int i = 1; i <= Frames; ++i) {
            char number[8];
            std::snprintf(number, sizeof number, "%02d", i);
            Frame_Buffer_Data* frame = Next_Frame(session);
            Save(*frame, folder + "/frame-" + number);
            WQZ_USBCam_SAVE_FRAME_RES(session, frame);
        }
        WQZ_USBCam_EVENT_LoopMode(session, 0);
        capture.join();
    } else {
        std::printf("the camera has no %s mode\n", name);
    }
    WQZ_USBCam_Clear_Frame_Buff(session);
    WQZ_USBCam_Video_DEAL_WITH_UNINIT(session);
    WQZ_USBCam_DELETE_DEVICE_POINT(session);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        Give_Up("usage: session_demo FOLDER");
    }
    v4l2_dev_sys_data_t* cameras = nullptr;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&cameras, 0xFFFF, 0xFFFF);
    if (count < 1) {
        Give_Up("no camera found");
    }
    // A session opens Device_Path, which discovery fills for USB cameras only.
    std::snprintf(cameras[0].Device_Path, sizeof cameras[0].Device_Path, "%s", cameras[0].device);
    Capture(cameras[0], V4L2_PIX_FMT_MJPEG, "Motion-JPEG", argv[1]);
    Capture(cameras[0], V4L2_PIX_FMT_YUYV, "YUYV", argv[1]);
    WQZ_USBCam_DEVICE_FREE(cameras, count);
}
