// Judges frames by their bytes and writes each into a file of its own.
#include "picture.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <span>

#include "bitmap.h"
#include "Stream/frame_buffer.h"
#include "tool_error.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* Name_Start = "frame-";

[[noreturn]] void Throw_Write_Failure(const std::string& path, int error)
{
    const bool is_full = error == ENOSPC || error == EDQUOT || error == EFBIG;
    throw Tool_Error(path + ": cannot be written: " + std::strerror(error) + (is_full ? "; make room, or" : ";") +
                     " choose another directory with -o");
}

bool Write_All(int descriptor, std::span<const uint8_t> bytes)
{
    while (!bytes.empty()) {
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        bytes = bytes.subspan(static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
    return true;
}

/// Writes a file under a temporary name and renames it, so that a file with its final name is always complete.
void Write_File(const std::string& path, std::span<const uint8_t> bytes)
{
    const std::string part = path + ".part";
    const int descriptor = open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        Throw_Write_Failure(path, errno);
    }
    int error = Write_All(descriptor, bytes) ? 0 : errno;
    if (close(descriptor) != 0 && error == 0) {
        error = errno;
    }
    if (error == 0 && std::rename(part.c_str(), path.c_str()) != 0) {
        error = errno;
    }
    if (error != 0) {
        (void)unlink(part.c_str());
        Throw_Write_Failure(path, error);
    }
}

uint32_t Highest_Number(const std::string& folder, const std::string& ending)
{
    uint32_t highest = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(Name_Start) || !name.ends_with(ending)) {
            continue;
        }
        uint32_t number = 0;
        (void)std::from_chars(name.data() + std::strlen(Name_Start), name.data() + name.size(), number);
        highest = std::max(highest, number);
    }
    return highest;
}

std::string Name_By_Time(const timeval& time)
{
    return std::to_string(time.tv_sec) + "_" + std::to_string(time.tv_usec) + ".raw";
}

std::string Numbered_Name(uint32_t number, const std::string& ending)
{
    std::array<char, 16> digits{};
    (void)std::snprintf(digits.data(), digits.size(), "%06u", number);
    return Name_Start + std::string(digits.data()) + ending;
}

bool Is_Jpeg(const Frame_Buffer_Data& frame)
{
    return frame.PixFormat.u_PixFormat == 0;
}

}  // namespace

bool Is_Damaged(const Frame_Buffer_Data& frame, uint32_t fourcc)
{
    if (frame.pMem == nullptr || (frame.buffer.flags & V4L2_BUF_FLAG_ERROR) != 0) {
        return true;
    }
    if (fourcc != V4L2_PIX_FMT_MJPEG) {
        const bool converted = !Is_Jpeg(frame);
        const size_t yuyv_bytes = size_t{2} * frame.PixFormat.u_Width * frame.PixFormat.u_Height;
        return frame.buffer.bytesused != (converted ? Library_Bitmap_Bytes(frame.PixFormat) : yuyv_bytes);
    }
    v4l2_buffer buffer = frame.buffer;
    return Frame_Buffer::MJPEG_Length(static_cast<uint8_t*>(frame.pMem), &buffer) < 0;
}

bool Is_Empty(const Frame_Buffer_Data& frame)
{
    const size_t header_bytes = Is_Jpeg(frame) ? 0 : Library_Bitmap_Bytes({});
    return frame.pMem == nullptr || frame.buffer.bytesused <= header_bytes;
}

Picture_Folder::Picture_Folder(const std::string& folder_path, Kind file_kind) : folder(folder_path), kind(file_kind)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder)) {
        throw Tool_Error(folder + ": cannot be made: " + (error ? error.message() : "it is not a directory") +
                         "; choose another directory with -o");
    }
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        Throw_Write_Failure(folder, errno);
    }
}

uint64_t Picture_Folder::Save(const Frame_Buffer_Data& frame)
{
    const std::string path = fs::path(folder) / Next_Name(frame);
    const std::span<const uint8_t> bytes = File_Bytes(frame);
    Write_File(path, bytes);
    first_file = saved == 0 ? path : first_file;
    last_file = path;
    ++next_number;
    ++saved;
    return bytes.size();
}

std::string Picture_Folder::Next_Name(const Frame_Buffer_Data& frame)
{
    if (kind == Kind::Raw) {
        return Name_By_Time(frame.Frame_Time);
    }
    const std::string ending = Is_Jpeg(frame) ? ".jpg" : ".bmp";
    if (next_number == 0) {
        next_number = Highest_Number(folder, ending) + 1;
    }
    return Numbered_Name(next_number, ending);
}

std::span<const uint8_t> Picture_Folder::File_Bytes(const Frame_Buffer_Data& frame)
{
    if (kind == Kind::Raw || Is_Jpeg(frame)) {
        return {static_cast<const uint8_t*>(frame.pMem), frame.buffer.bytesused};
    }
    Render_Bitmap(frame, rendering);
    return rendering;
}

std::string Picture_Folder::Summary() const
{
    if (saved == 0) {
        return "no files";
    }
    if (saved == 1) {
        return "1 file, " + first_file;
    }
    return std::to_string(saved) + " files, " + first_file + " to " + last_file;
}
