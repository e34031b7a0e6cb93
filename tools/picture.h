// Judges frames and writes them into files.
#ifndef WQZ_TOOL_PICTURE_H
#define WQZ_TOOL_PICTURE_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "USBCam_API/USBCam_API.h"

/// @param fourcc  the format that the camera sends
/// @return whether a part of the frame is missing: the end of a Motion-JPEG image, or rows of a YUYV picture
bool Is_Damaged(const Frame_Buffer_Data& frame, uint32_t fourcc);

/// @return whether the frame holds no pixels at all, as when a camera delivers an empty buffer
bool Is_Empty(const Frame_Buffer_Data& frame);

/// Writes frames into a folder, one file each.
class Picture_Folder {
public:
    enum class Kind {
        Pictures,  ///< .jpg and .bmp files, numbered from the highest number in the folder on
        Raw        ///< the bytes that the camera sent, in files named by the time of capture
    };

    /// Creates the folder if it is missing.
    /// @throws Tool_Error  when the folder cannot be created or written to
    Picture_Folder(const std::string& folder_path, Kind file_kind);

    /// Writes one frame. A failure leaves no part of its file behind.
    /// @return the size of the file in bytes
    /// @throws Tool_Error  when the file cannot be written completely
    uint64_t Save(const Frame_Buffer_Data& frame);

    /// @return the files written, such as "30 files, out/frame-000001.jpg to out/frame-000030.jpg"
    std::string Summary() const;

private:
    std::string Next_Name(const Frame_Buffer_Data& frame);
    std::span<const uint8_t> File_Bytes(const Frame_Buffer_Data& frame);

    std::string folder;
    Kind kind;
    std::vector<uint8_t> rendering;  // reused from frame to frame
    uint32_t next_number = 0;        // 0 until the first picture shows which ending to look for
    uint64_t saved = 0;
    std::string first_file;
    std::string last_file;
};

#endif  // WQZ_TOOL_PICTURE_H
