// Writes frames into numbered files, into one file, or to standard output.
#ifndef WQZ_TOOL_FRAME_OUTPUT_H
#define WQZ_TOOL_FRAME_OUTPUT_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "Camera/wqz_camera.h"

/// What is written of a frame.
enum class Content {
    Picture,  ///< a .jpg file of Motion-JPEG, a .bmp file of what can be converted, the bytes of all others
    Jpeg,     ///< a .jpg file; only Motion-JPEG can be written
    Bitmap,   ///< a .bmp file, of Motion-JPEG too
    Raw       ///< the bytes that the camera sent, in files named by the time of capture
};

enum class Target { Folder, File, Standard_Output };

/// Where frames go, by the option -o: "-", a file with the ending of a picture or ".raw", a folder otherwise.
struct Output_Choice {
    Output_Choice(const std::string& output_path, bool raw);

    std::string path;
    Target target;
    Content content;
};

/// @return whether a part of the frame is missing: the end of a Motion-JPEG image, rows of an uncompressed picture, or
///         what the driver says
bool Is_Damaged(const WQZ_Camera_Frame& frame);

class Frame_Output {
public:
    /// Creates the folder if it is missing.
    /// @param fourcc  the format of the frames
    /// @throws Tool_Error  when the folder cannot be created or written to, or the file takes another format
    Frame_Output(const Output_Choice& output_choice, uint32_t fourcc);

    /// Writes one frame. A failure leaves no part of its file behind.
    /// @return the name of the file, or "frame 12" of a stream
    /// @throws Tool_Error  when it cannot be written completely; Closed_Pipe
    std::string Save(const WQZ_Camera_Frame& frame);

    /// @return whether the last frame could be decoded only in part
    bool Last_Is_Broken() const { return last_is_broken; }
    uint64_t Saved() const { return saved; }
    uint64_t Bytes() const { return bytes_written; }
    const std::string& First_File() const { return first_file; }
    const std::string& Last_File() const { return last_file; }

    /// @return what was written, such as "30 files, out/frame-000001.jpg to out/frame-000030.jpg"
    std::string Summary() const;

private:
    std::span<const uint8_t> Rendered(const WQZ_Camera_Frame& frame);
    std::string Next_Path(const WQZ_Camera_Frame& frame);

    Output_Choice choice;
    std::vector<uint8_t> rendering;  // reused from frame to frame
    uint64_t next_number = 0;        // 0 until the first picture
    int64_t wall_clock_ns = 0;       // what to add to a frame's time for the time of day
    int64_t last_stamp = 0;          // microseconds of the last name
    bool last_is_broken = false;
    uint64_t saved = 0;
    uint64_t bytes_written = 0;
    std::string first_file;
    std::string last_file;
};

#endif  // WQZ_TOOL_FRAME_OUTPUT_H
