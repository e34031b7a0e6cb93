// Bitmap fonts for the test card: printable ASCII, 12 by 20 pixels with the baseline at row 15, and large digits.
// Rasterised from DejaVu Sans Mono Bold, whose licence allows it.
#ifndef WQZ_VIRTUAL_CAMERA_FONT_H
#define WQZ_VIRTUAL_CAMERA_FONT_H

#include <cstdint>

namespace virtual_camera {

constexpr int Glyph_Width = 12;
constexpr int Glyph_Height = 20;

constexpr int Digit_Width = 24;
constexpr int Digit_Height = 32;

/// A bitmap of `height` rows, the leftmost pixel in bit `width` - 1.
struct Glyph {
    int width = 0;
    int height = 0;
    const uint32_t* rows = nullptr;

    bool Has(int x, int y) const
    {
        return x >= 0 && y >= 0 && x < width && y < height && ((rows[y] >> (width - 1 - x)) & 1) != 0;
    }
};

/// A blank for what is not printable ASCII.
Glyph Small_Glyph(char character);

/// @param digit  0 to 9
Glyph Large_Digit(int digit);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_FONT_H
