// Writes frames of one mode. The card is rendered once; each frame is a copy of it with a new number.
#ifndef WQZ_VIRTUAL_CAMERA_FRAME_PAINTER_H
#define WQZ_VIRTUAL_CAMERA_FRAME_PAINTER_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace virtual_camera {

struct Paint_Mode {
    uint32_t fourcc = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    std::string name;  ///< shown on the card, as is `text`
    std::string text;

    bool operator==(const Paint_Mode&) const = default;
};

class Frame_Painter {
public:
    virtual ~Frame_Painter() = default;

    /// Writes frame `sequence` into `target`, at most `capacity` bytes. The target must hold an image of the mode.
    /// @param previous  a frame of this painter that `target` still holds; then only the number is written
    /// @return the frame's length
    virtual size_t Paint(uint8_t* target, size_t capacity, uint32_t sequence, std::optional<uint32_t> previous) = 0;
};

/// Makes a painter for Motion-JPEG, YUYV or GREY. Other formats get GREY's bytes, repeated to fill `frame_bytes`.
std::unique_ptr<Frame_Painter> Make_Painter(const Paint_Mode& mode, size_t frame_bytes);

std::unique_ptr<Frame_Painter> Make_Jpeg_Painter(const Paint_Mode& mode);

/// The comment of a Motion-JPEG frame: the number follows the prefix with ten decimal digits.
constexpr char Jpeg_Comment_Prefix[] = "frame ";
constexpr size_t Jpeg_Comment_Digits = 10;

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_FRAME_PAINTER_H
