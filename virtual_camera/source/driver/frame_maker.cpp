// Writes frames of the test card, padded and damaged as the description says.
#include "driver/frame_maker.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace virtual_camera {
namespace {

std::string Mode_Text(const Video_Mode& mode)
{
    char text[64];
    std::snprintf(text, sizeof text, "%ux%u %s %.4g fps", mode.width, mode.height, Fourcc_Text(mode.fourcc).c_str(),
                  static_cast<double>(mode.interval.denominator) / mode.interval.numerator);
    return text;
}

}  // namespace

void Frame_Maker::Set_Mode(const Video_Mode& wanted)
{
    const Paint_Mode paint{wanted.fourcc, wanted.width, wanted.height, description.card, Mode_Text(wanted)};
    mode = wanted;
    if (!painter || !(paint == painted_mode)) {
        painter = Make_Painter(paint, Image_Size(mode));
        painted_mode = paint;
    }
}

uint32_t Frame_Maker::Paint(uint8_t* target, size_t capacity, uint32_t sequence, std::optional<uint32_t> previous)
{
    size_t used = painter->Paint(target, capacity, sequence, previous);
    if (Is_Compressed(mode.fourcc)) {
        const uint64_t padding = description.jpeg_padding;
        const size_t padded =
            static_cast<size_t>(std::min<uint64_t>(capacity, (used + padding - 1) / padding * padding));
        std::memset(target + used, 0, padded - used);
        used = padded;
    }
    if (description.damage_every > 0 && (sequence + 1) % description.damage_every == 0) {
        used = used * 2 / 3;
    }
    return static_cast<uint32_t>(used);
}

uint32_t Frame_Maker::Fill(uint8_t* target, size_t capacity, uint32_t sequence, std::optional<uint32_t>& content)
{
    if (const auto bytes = script.frames.Take(VIDIOC_DQBUF)) {
        const size_t used = std::min(capacity, bytes->size());
        std::copy_n(bytes->begin(), used, target);
        content.reset();
        return static_cast<uint32_t>(used);
    }
    // A paced camera writes the whole frame, as a device does. At `rate max` it repaints only what changed, so that a
    // measurement shows the program and not the camera.
    const uint32_t used = Paint(target, capacity, sequence, description.max_rate ? content : std::nullopt);
    content = sequence;
    return used;
}

std::vector<uint8_t> Frame_Maker::Frame_Bytes(uint32_t sequence)
{
    std::vector<uint8_t> bytes(Image_Size(mode));
    bytes.resize(Paint(bytes.data(), bytes.size(), sequence, std::nullopt));
    return bytes;
}

}  // namespace virtual_camera
