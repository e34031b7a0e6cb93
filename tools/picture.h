#ifndef WQZ_TOOL_PICTURE_H
#define WQZ_TOOL_PICTURE_H

#include <cstdint>
#include <string>
#include <vector>

#include "USBCam_API/USBCam_API.h"

/// Whether the frame is not what its mode promises: a Motion-JPEG frame one whole image, a YUYV frame every row.
/// @param fourcc  what the camera sends
bool Is_Damaged(const Frame_Buffer_Data& frame, uint32_t fourcc);

/// Whether there is nothing of a picture in the frame, as when a camera delivers an empty buffer.
bool Is_Empty(const Frame_Buffer_Data& frame);

/// Writes frames into a folder, one file each.
class Picture_Folder {
public:
    enum class Kind {
        Pictures,  ///< .jpg and .bmp, numbered on from the highest number that the folder has
        Raw        ///< the bytes as delivered, named by the time of capture
    };

    /// Makes the folder when it is missing.
    /// @throws Tool_Error  when it cannot be made or written
    Picture_Folder(const std::string& folder_path, Kind file_kind);

    /// Writes one frame. After a failure no part of its file is left.
    /// @return the size of the file in bytes
    /// @throws Tool_Error  when the file cannot be written whole
    uint64_t Save(const Frame_Buffer_Data& frame);

    /// @return the files written, as "30 files, out/frame-000001.jpg to out/frame-000030.jpg"
    std::string Summary() const;

private:
    std::string Next_Path(const Frame_Buffer_Data& frame);
    void Write_Raw(const std::string& path, const Frame_Buffer_Data& frame);
    uint64_t Write_Picture(const std::string& path, const Frame_Buffer_Data& frame);

    std::string folder;
    Kind kind;
    std::vector<uint8_t> rendering;  // reused from frame to frame
    uint32_t next_number = 0;        // 0 until the first picture tells the ending
    uint64_t saved = 0;
    std::string first_file;
    std::string last_file;
};

#endif  // WQZ_TOOL_PICTURE_H
