// Takes frames of a session and saves them as pictures, for session_demo.cpp.
#ifndef WQZ_EXAMPLE_SESSION_FRAMES_H
#define WQZ_EXAMPLE_SESSION_FRAMES_H

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "USBCam_API/USBCam_API.h"

// Ends the whole program: no call reaches a capture thread that waits in the driver for a frame.
[[noreturn]] inline void Give_Up(const std::string& reason)
{
    std::fprintf(stderr, "session_demo: %s\n", reason.c_str());
    std::_Exit(1);
}

// Takes the next frame. Gives up when none comes for five seconds.
inline Frame_Buffer_Data* Next_Frame(void* session)
{
    for (int i = 0; i < 500; ++i) {
        if (Frame_Buffer_Data* frame = WQZ_USBCam_GET_FRAME_BUFF(session, false)) {
            return frame;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    Give_Up("no frame for five seconds: the camera is busy, unplugged or did not start");
}

inline void Write_File(const std::string& name, const uint8_t* bytes, size_t count)
{
    FILE* file = std::fopen(name.c_str(), "wb");
    if (file == nullptr || std::fwrite(bytes, 1, count, file) != count || std::fclose(file) != 0) {
        Give_Up(name + " cannot be written");
    }
}

// The session's bitmaps run from top to bottom without padding. Viewers want the rows from bottom to top, each padded
// to 4 bytes.
inline std::vector<uint8_t> Upright_Bitmap(const Frame_Buffer_Data& frame)
{
    constexpr size_t Header_Bytes = 54;
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

inline void Save(const Frame_Buffer_Data& frame, const std::string& start)
{
    if (frame.PixFormat.u_PixFormat == 0) {
        Write_File(start + ".jpg", static_cast<const uint8_t*>(frame.pMem), frame.buffer.bytesused);
        return;
    }
    const std::vector<uint8_t> bitmap = Upright_Bitmap(frame);
    Write_File(start + ".bmp", bitmap.data(), bitmap.size());
}

#endif  // WQZ_EXAMPLE_SESSION_FRAMES_H
