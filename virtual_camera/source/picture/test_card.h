// The picture that a virtual camera shows: a still card and the frame number in digits. Digits lie on the grid of the
// Motion-JPEG restart intervals, so that their encoded pieces can be exchanged.
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

    Picture(int w, int h) : width(w), height(h), rgb(static_cast<size_t>(w * h) * 3) {}
    uint8_t* At(int x, int y) { return &rgb[static_cast<size_t>(y * width + x) * 3]; }
    const uint8_t* At(int x, int y) const { return &rgb[static_cast<size_t>(y * width + x) * 3]; }
};

// The card's font: printable ASCII, 6 by 10 pixels.
constexpr int Glyph_Width = 6;
constexpr int Glyph_Height = 10;

/// @return whether a pixel of the character is set; false for what is not printable ASCII
bool Glyph_Has(char character, int x, int y);

constexpr int Block_Width = 16;  // of a Motion-JPEG coding unit with 4:2:2 chroma
constexpr int Block_Height = 8;

/// The places of things, in pixels. `digits` is 0 when the picture is too small for them.
struct Card_Layout {
    int width = 0;
    int height = 0;
    int segment_width = Block_Width;  ///< every digit begins at a multiple of it
    int digits = 0;
    int digit_x = 0;
    int digit_y = 0;
    int digit_width = 0;
    int digit_height = 0;
};

Card_Layout Lay_Out(int width, int height);

/// The still part, with a dark field where the digits go.
Picture Draw_Card(const Card_Layout& layout, const std::string& name, const std::string& mode);

/// The ten digits side by side, each as large as its field.
Picture Draw_Digits(const Card_Layout& layout);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_TEST_CARD_H
