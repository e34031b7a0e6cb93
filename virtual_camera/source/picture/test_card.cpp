// Drawing of the card: colour bars, a run of hues, grey steps, two lines of text, the field of the number.
#include "picture/test_card.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace virtual_camera {
namespace {

using Colour = std::array<uint8_t, 3>;

constexpr Colour Number_Ground{16, 18, 26}, Page_Ground{26, 30, 42};
constexpr Colour Digit_Ink{255, 255, 255}, Text_Ink{206, 214, 232};
constexpr Colour Bars[]{{235, 235, 235}, {226, 214, 40}, {36, 206, 214}, {40, 196, 62},
                        {204, 48, 196},  {210, 44, 46},  {44, 60, 206},  {20, 22, 28}};

struct Rectangle {
    int left, top, width, height;
};

int Round_To(double value, int step)
{
    return static_cast<int>(std::lround(value / step)) * step;
}

void Fill(Picture& picture, const Rectangle& area, const Colour& colour)
{
    for (int y = area.top; y < area.top + area.height; y++) {
        for (int x = area.left; x < area.left + area.width; x++) {
            std::copy(colour.begin(), colour.end(), picture.At(x, y));
        }
    }
}

void Draw_Character(Picture& picture, const Rectangle& place, char character, const Colour& colour)
{
    for (int y = 0; y < place.height; y++) {
        for (int x = 0; x < place.width; x++) {
            if (Glyph_Has(character, x * Glyph_Width / place.width, y * Glyph_Height / place.height)) {
                std::copy(colour.begin(), colour.end(), picture.At(place.left + x, place.top + y));
            }
        }
    }
}

/// A line of text, as large as the height and the picture's width allow.
void Draw_Centred(Picture& picture, int top, int height, const std::string& text, const Colour& colour)
{
    const int characters = std::max(1, static_cast<int>(text.size()));
    const int width = std::min(height * Glyph_Width / Glyph_Height, picture.width * 9 / 10 / characters);
    if (width < Glyph_Width / 2) {
        return;
    }
    Rectangle place{(picture.width - width * characters) / 2, top, width, width * Glyph_Height / Glyph_Width};
    for (char character : text) {
        Draw_Character(picture, place, character, colour);
        place.left += width;
    }
}

Colour Hue(double turn)
{
    const auto channel = [turn](double offset) {
        const double t = std::fmod(turn + offset, 1.0) * 6;
        return static_cast<uint8_t>(30 + 205 * std::clamp(std::abs(t - 3) - 1, 0.0, 1.0));
    };
    return {channel(0), channel(2.0 / 3), channel(1.0 / 3)};
}

void Draw_Bars_And_Ramps(Picture& picture)
{
    const int bars_end = picture.height * 60 / 100, hues_end = picture.height * 67 / 100,
              greys_end = picture.height * 74 / 100;
    constexpr int Grey_Steps = 16;
    for (int x = 0; x < picture.width; x++) {
        const auto grey = static_cast<uint8_t>(8 + 240 * (x * Grey_Steps / picture.width) / (Grey_Steps - 1));
        Fill(picture, {x, 0, 1, bars_end}, Bars[x * int{std::size(Bars)} / picture.width]);
        Fill(picture, {x, bars_end, 1, hues_end - bars_end}, Hue(static_cast<double>(x) / picture.width));
        Fill(picture, {x, hues_end, 1, greys_end - hues_end}, {grey, grey, grey});
    }
    Fill(picture, {0, greys_end, picture.width, picture.height - greys_end}, Page_Ground);
}

}  // namespace

Card_Layout Lay_Out(int width, int height)
{
    Card_Layout layout;
    layout.width = width;
    layout.height = height;
    const int blocks = (width + Block_Width - 1) / Block_Width;
    layout.segment_width = blocks % 2 == 0 && width >= 256 ? 2 * Block_Width : Block_Width;
    layout.digit_width = std::max(layout.segment_width, Round_To(width / 16.0, layout.segment_width));
    layout.digit_height = Round_To(layout.digit_width * 5.0 / 3, Block_Height);
    layout.digits = std::min(6, (width - layout.segment_width) / layout.digit_width);
    layout.digit_y = Round_To(height * 0.30 - layout.digit_height / 2.0, Block_Height);
    if (layout.digits < 2 || layout.digit_y < Block_Height || layout.digit_y + layout.digit_height > height * 3 / 5) {
        layout.digits = 0;
    }
    layout.digit_x = Round_To((width - layout.digits * layout.digit_width) / 2.0, layout.segment_width);
    return layout;
}

Picture Draw_Card(const Card_Layout& layout, const std::string& name, const std::string& mode)
{
    Picture picture(layout.width, layout.height);
    Draw_Bars_And_Ramps(picture);
    if (layout.digits > 0) {
        const int digits_width = layout.digits * layout.digit_width;
        Fill(picture, {layout.digit_x, layout.digit_y, digits_width, layout.digit_height}, Number_Ground);
    }
    Draw_Centred(picture, layout.height * 78 / 100, layout.height * 9 / 100, name, Digit_Ink);
    Draw_Centred(picture, layout.height * 88 / 100, layout.height * 7 / 100, mode, Text_Ink);
    return picture;
}

Picture Draw_Digits(const Card_Layout& layout)
{
    Picture picture(10 * layout.digit_width, layout.digit_height);
    Fill(picture, {0, 0, picture.width, picture.height}, Number_Ground);
    for (int digit = 0; digit < 10; digit++) {
        Draw_Character(picture, {digit * layout.digit_width, 0, layout.digit_width, layout.digit_height},
                       static_cast<char>('0' + digit), Digit_Ink);
    }
    return picture;
}

}  // namespace virtual_camera
