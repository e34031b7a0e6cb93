// The picture that a virtual camera shows: a still card, and two moving parts (the frame number and a ball).
// Moving parts stand on the grid of the Motion-JPEG restart intervals, so that encoded pieces can be exchanged.
#ifndef WQZ_VIRTUAL_CAMERA_TEST_CARD_H
#define WQZ_VIRTUAL_CAMERA_TEST_CARD_H

#include <cstdint>
#include <string>
#include <vector>

namespace virtual_camera {

/// An RGB picture, three bytes a pixel, rows without padding.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;

    Picture(int w, int h) : width(w), height(h), rgb(static_cast<size_t>(w) * static_cast<size_t>(h) * 3) {}
    uint8_t* At(int x, int y)
    {
        return &rgb[(static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 3];
    }
    const uint8_t* At(int x, int y) const
    {
        return &rgb[(static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)) * 3];
    }
};

constexpr int Block_Width = 16;  // of a Motion-JPEG coding unit with 4:2:2 chroma
constexpr int Block_Height = 8;
constexpr int Ball_Phases = 60;

/// Where things are, in pixels. `digits` or `band_height` is 0 when the picture is too small for them.
struct Card_Layout {
    int width = 0;
    int height = 0;
    int segment_width = Block_Width;  ///< all x of moving parts are multiples of it
    int digits = 0;
    int digit_x = 0;
    int digit_y = 0;
    int digit_width = 0;
    int digit_height = 0;
    int band_y = 0;
    int band_height = 0;

    int Ball_X(uint32_t phase) const;  ///< left edge of the ball, even
};

Card_Layout Lay_Out(int width, int height);

/// The still part, with dark fields where the moving parts go.
Picture Draw_Card(const Card_Layout& layout, const std::string& name, const std::string& mode);

/// The ten digits side by side, each as large as its field.
Picture Draw_Digits(const Card_Layout& layout);

/// The ball on the band's ground, a square of the band's height.
Picture Draw_Ball(const Card_Layout& layout);

/// The whole band with the ball in it.
Picture Draw_Band(const Card_Layout& layout, const Picture& ball, uint32_t phase);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_TEST_CARD_H
