// Writes frames into numbered files, into one file, or to standard output.
#include "frame_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>  // renameat2
#include <cstring>
#include <filesystem>

#include "bitmap.h"
#include "interrupt.h"
#include "modes.h"
#include "output.h"
#include "text.h"
#include "tool_error.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* Name_Start = "frame-";
constexpr uint64_t Highest_Continued = 1000000000000;  // a file with a larger number was not written by this tool

[[noreturn]] void Throw_Write_Failure(const std::string& path, int error)
{
    const bool is_full = error == ENOSPC || error == EDQUOT || error == EFBIG;
    throw Tool_Error(path + ": cannot be written: " + std::strerror(error) + (is_full ? "; make room, or" : ";") +
                     " choose another place with -o");
}

bool Write_All(int descriptor, std::span<const uint8_t> bytes, bool until_signal)
{
    while (!bytes.empty()) {
        if (until_signal && Caught_Signal() != 0) {
            errno = EINTR;
            return false;
        }
        const ssize_t written = write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        bytes = bytes.subspan(static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
    return true;
}

/// Moves a file to a name that no file has. File systems without such a move (EINVAL) replace the other file.
int Rename_To_New_Name(const std::string& from, const std::string& to)
{
    const int result = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
    return result != 0 && errno == EINVAL ? std::rename(from.c_str(), to.c_str()) : result;
}

/// Writes a file under a temporary name and renames it, so that a file with its final name is always complete.
/// @return false when replaces is false and another program has taken the name
bool Write_File(const std::string& path, std::span<const uint8_t> bytes, bool replaces)
{
    const std::string part = path + ".part";
    const int descriptor = open(part.c_str(), O_WRONLY | O_CREAT | (replaces ? O_TRUNC : O_EXCL) | O_CLOEXEC, 0666);
    if (descriptor < 0) {
        if (errno == EEXIST) {
            return false;
        }
        Throw_Write_Failure(path, errno);
    }
    int error = Write_All(descriptor, bytes, false) ? 0 : errno;
    if (close(descriptor) != 0 && error == 0) {
        error = errno;
    }
    if (error == 0 && (replaces ? std::rename(part.c_str(), path.c_str()) : Rename_To_New_Name(part, path)) != 0) {
        error = errno;
    }
    if (error == 0) {
        return true;
    }
    (void)unlink(part.c_str());
    if (error != EEXIST) {
        Throw_Write_Failure(path, error);
    }
    return false;
}

/// @return whether all was written; a signal ends a wait for a reader that has stopped reading
bool Write_Stream(std::span<const uint8_t> bytes)
{
    if (Write_All(STDOUT_FILENO, bytes, true)) {
        return true;
    }
    if (errno == EPIPE) {
        throw Closed_Pipe();
    }
    if (errno != EINTR) {
        throw Tool_Error(std::string("standard output cannot be written: ") + std::strerror(errno));
    }
    return false;
}

uint64_t Highest_Number(const std::string& folder, const std::string& ending)
{
    uint64_t highest = 0;
    for (const auto& entry : fs::directory_iterator(folder)) {
        const std::string name = entry.path().filename().string();
        if (!name.starts_with(Name_Start) || !name.ends_with(ending)) {
            continue;
        }
        uint64_t number = 0;
        (void)std::from_chars(name.data() + std::strlen(Name_Start), name.data() + name.size(), number);
        highest = std::max(highest, number <= Highest_Continued ? number : 0);
    }
    return highest;
}

std::string Numbered_Name(uint64_t number, const std::string& ending)
{
    std::array<char, 24> digits{};
    (void)std::snprintf(digits.data(), digits.size(), "%06llu", static_cast<unsigned long long>(number));
    return Name_Start + std::string(digits.data()) + ending;
}

/// The digits are padded, so that names sort by time.
std::string Name_By_Time(int64_t microseconds)
{
    constexpr int64_t Million = 1000000;
    std::array<char, 48> name{};
    (void)std::snprintf(name.data(), name.size(), "%010lld_%06lld.raw", static_cast<long long>(microseconds / Million),
                        static_cast<long long>(microseconds % Million));
    return name.data();
}

bool Is_Jpeg(uint32_t fourcc)
{
    return fourcc == Motion_Jpeg || fourcc == Still_Jpeg;
}

void Make_Folder(const std::string& folder)
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

Content Content_Of_Ending(const std::string& path)
{
    const std::string ending = Key(fs::path(path).extension());
    if (ending == "jpg" || ending == "jpeg") {
        return Content::Jpeg;
    }
    if (ending == "bmp") {
        return Content::Bitmap;
    }
    return ending == "raw" ? Content::Raw : Content::Picture;
}

}  // namespace

Output_Choice::Output_Choice(const std::string& output_path, bool raw)
    : path(output_path), target(Target::File), content(Content_Of_Ending(output_path))
{
    if (path == "-") {
        target = Target::Standard_Output;
        content = Content::Raw;
    } else if (content == Content::Picture || fs::is_directory(path)) {
        target = Target::Folder;
        content = Content::Picture;
    }
    content = raw ? Content::Raw : content;
}

bool Is_Damaged(const WQZ_Camera_Frame& frame)
{
    if ((frame.flags & WQZ_CAMERA_FRAME_DAMAGED) != 0 || frame.length == 0) {
        return true;
    }
    if (Is_Jpeg(frame.fourcc)) {
        const uint8_t* end = frame.data + frame.length;
        return frame.length < 4 || end[-2] != 0xFF || end[-1] != 0xD9;
    }
    return frame.length < uint64_t{frame.bytes_per_line} * frame.height;  // 0 bytes per line: another compressed format
}

Frame_Output::Frame_Output(const Output_Choice& output_choice, uint32_t fourcc) : choice(output_choice)
{
    using namespace std::chrono;
    const nanoseconds time_of_day = system_clock::now().time_since_epoch();
    wall_clock_ns = (time_of_day - steady_clock::now().time_since_epoch()).count();
    if (choice.content == Content::Jpeg && !Is_Jpeg(fourcc)) {
        throw Tool_Error(choice.path +
                         " can only hold a Motion-JPEG picture: capture with --format mjpeg, or choose a "
                         "name that ends in .bmp");
    }
    if (choice.content == Content::Picture) {
        choice.content = Is_Jpeg(fourcc) ? Content::Jpeg : Content::Bitmap;
    }
    if (choice.target == Target::Folder) {
        Make_Folder(choice.path);
    }
}

std::string Frame_Output::Save(const WQZ_Camera_Frame& frame)
{
    const std::span<const uint8_t> bytes = Rendered(frame);
    std::string name = "frame " + std::to_string(saved + 1);
    if (choice.target == Target::Standard_Output) {
        if (!Write_Stream(bytes)) {
            return name;
        }
    } else {
        const bool replaces = choice.target == Target::File;
        do {
            name = Next_Path(frame);
        } while (!Write_File(name, bytes, replaces));
        first_file = saved == 0 ? name : first_file;
        last_file = name;
    }
    ++saved;
    bytes_written += bytes.size();
    return name;
}

std::span<const uint8_t> Frame_Output::Rendered(const WQZ_Camera_Frame& frame)
{
    last_is_broken = false;
    if (choice.content == Content::Bitmap) {
        const Rendering result = Render_Bitmap(frame, rendering);
        if (result != Rendering::Impossible) {
            last_is_broken = result == Rendering::Broken;
            return rendering;
        }
        if (choice.target == Target::File) {
            throw Tool_Error(choice.path + ": frames of this format cannot be converted into a picture; add --raw");
        }
        Say("frames of this format cannot be converted into pictures; their bytes are written as they come");
        choice.content = Content::Raw;
    }
    return {frame.data, frame.length};
}

std::string Frame_Output::Next_Path(const WQZ_Camera_Frame& frame)
{
    if (choice.target == Target::File) {
        return choice.path;
    }
    const fs::path folder = choice.path;
    if (choice.content == Content::Raw) {
        last_stamp = std::max((frame.time_ns + wall_clock_ns) / 1000, last_stamp + 1);  // every name is another one
        return folder / Name_By_Time(last_stamp);
    }
    const std::string ending = choice.content == Content::Jpeg ? ".jpg" : ".bmp";
    next_number = next_number == 0 ? Highest_Number(choice.path, ending) + 1 : next_number + 1;
    return folder / Numbered_Name(next_number, ending);
}

std::string Frame_Output::Summary() const
{
    if (saved == 0) {
        return "nothing";
    }
    if (choice.target == Target::Standard_Output) {
        return std::to_string(saved) + (saved == 1 ? " frame" : " frames") + " to standard output";
    }
    if (saved == 1) {
        return "1 file, " + first_file;
    }
    return std::to_string(saved) + " files, " + first_file + " to " + last_file;
}
