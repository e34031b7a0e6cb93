// Makes the frames of a camera: the test card, or bytes that a script supplies, with padding and damage.
#ifndef WQZ_VIRTUAL_CAMERA_FRAME_MAKER_H
#define WQZ_VIRTUAL_CAMERA_FRAME_MAKER_H

#include "driver/format_negotiation.h"
#include "picture/frame_painter.h"
#include "script/script.h"

namespace virtual_camera {

class Frame_Maker {
public:
    Frame_Maker(const Camera_Description& of_camera, Script& scripted) : description(of_camera), script(scripted) {}

    /// Renders the parts of a mode's frames, which takes some milliseconds, unless they exist already.
    void Set_Mode(const Video_Mode& wanted);

    /// Puts a frame into a buffer.
    /// @param content  the frame that the buffer still holds, if it is a whole one of this mode; updated
    /// @return bytes used
    uint32_t Fill(uint8_t* target, size_t capacity, uint32_t sequence, std::optional<uint32_t>& content);

    /// A frame as Fill writes it into a fresh buffer; scripted frames are not used.
    std::vector<uint8_t> Frame_Bytes(uint32_t sequence);

private:
    uint32_t Paint(uint8_t* target, size_t capacity, uint32_t sequence, std::optional<uint32_t> previous);

    const Camera_Description& description;
    Script& script;
    Video_Mode mode;
    Paint_Mode painted_mode;
    std::unique_ptr<Frame_Painter> painter;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_FRAME_MAKER_H
