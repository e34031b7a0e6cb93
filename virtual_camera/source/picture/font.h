// A bitmap font for the test card: printable ASCII, 6 by 10 pixels. It is the X Window System's public-domain font
// 6x10.
#ifndef WQZ_VIRTUAL_CAMERA_FONT_H
#define WQZ_VIRTUAL_CAMERA_FONT_H

namespace virtual_camera {

constexpr int Glyph_Width = 6;
constexpr int Glyph_Height = 10;

/// @return whether a pixel of the character is set; none is in what is not printable ASCII
bool Glyph_Has(char character, int x, int y);

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_FONT_H
