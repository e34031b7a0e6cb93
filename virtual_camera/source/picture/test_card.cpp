// Drawing of the card: colour bars, a run of hues, grey steps, two lines of text, the field of the number.
#include "picture/test_card.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

#include "picture/font.h"

namespace virtual_camera {
namespace {

struct Colour {
    double r, g, b;
};

constexpr Colour Number_Ground{16, 18, 26};
constexpr Colour Page_Ground{26, 30, 42};
constexpr Colour Digit_Ink{255, 255, 255};
constexpr Colour Text_Ink{206, 214, 232};

constexpr std::array<Colour, 8> Bars{{{235, 235, 235},
                                      {226, 214, 40},
                                      {36, 206, 214},
                                      {40, 196, 62},
                                      {204, 48, 196},
                                      {210, 44, 46},
                                      {44, 60, 206},
                                      {20, 22, 28}}};

struct Rectangle {
    int left, top, width, height;
};

int Round_To(double value, int step)
{
    return static_cast<int>(std::lround(value / step)) * step;
}

void Blend(uint8_t* pixel, const Colour& colour, double share)
{
    const double part = std::clamp(share, 0.0, 1.0);
    const double ink[3] = {colour.r, colour.g, colour.b};
    for (int i = 0; i < 3; i++) {
        const double rounded_up = pixel[i] + (ink[i] - pixel[i]) * part + 0.5;  // lround takes thrice as long
        pixel[i] = static_cast<uint8_t>(rounded_up);
    }
}

void Fill(Picture& picture, const Rectangle& area, const Colour& colour)
{
    for (int y = area.top; y < area.top + area.height; y++) {
        for (int x = area.left; x < area.left + area.width; x++) {
            Blend(picture.At(x, y), colour, 1);
        }
    }
}

// Enlarged glyphs get smooth outlines: the bitmap is interpolated and cut at one half.
double Cover(char character, double u, double v, double scale)
{
    const int u0 = static_cast<int>(std::floor(u)), v0 = static_cast<int>(std::floor(v));
    const double fu = u - u0, fv = v - v0;
    const auto pixel = [character](int x, int y) { return Glyph_Has(character, x, y) ? 1.0 : 0.0; };
    const double above = pixel(u0, v0) * (1 - fu) + pixel(u0 + 1, v0) * fu;
    const double below = pixel(u0, v0 + 1) * (1 - fu) + pixel(u0 + 1, v0 + 1) * fu;
    return (above * (1 - fv) + below * fv - 0.5) * std::max(1.0, scale) + 0.5;
}

void Draw_Character(Picture& picture, const Rectangle& place, char character, const Colour& colour)
{
    const double step_u = double{Glyph_Width} / place.width, step_v = double{Glyph_Height} / place.height;
    for (int y = 0; y < place.height; y++) {
        for (int x = 0; x < place.width; x++) {
            const double cover = Cover(character, (x + 0.5) * step_u - 0.5, (y + 0.5) * step_v - 0.5, 1 / step_u);
            Blend(picture.At(place.left + x, place.top + y), colour, cover);
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
        return 30 + 205 * std::clamp(std::abs(t - 3) - 1, 0.0, 1.0);
    };
    return {channel(0), channel(2.0 / 3), channel(1.0 / 3)};
}

void Draw_Bars_And_Ramps(Picture& picture)
{
    const int bars_end = picture.height * 60 / 100, hues_end = picture.height * 67 / 100,
              greys_end = picture.height * 74 / 100;
    constexpr int Grey_Steps = 16;
    for (int x = 0; x < picture.width; x++) {
        const double grey = 8 + 240.0 * (x * Grey_Steps / picture.width) / (Grey_Steps - 1);
        Fill(picture, {x, 0, 1, bars_end}, Bars[static_cast<size_t>(x * int{Bars.size()} / picture.width)]);
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
