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

constexpr Colour Panel_Ground{16, 18, 26};
constexpr Colour Page_Ground{26, 30, 42};
constexpr Colour Band_Ground{12, 14, 20};
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

int Round_To(double value, int step)
{
    return static_cast<int>(std::lround(value / step)) * step;
}

void Blend(uint8_t* pixel, const Colour& colour, double share)
{
    if (share <= 0) {
        return;
    }
    const double part = std::min(share, 1.0);
    const double ink[3] = {colour.r, colour.g, colour.b};
    for (int i = 0; i < 3; i++) {
        const double rounded_up = pixel[i] + (ink[i] - pixel[i]) * part + 0.5;  // lround takes thrice as long
        pixel[i] = static_cast<uint8_t>(rounded_up);
    }
}

void Fill_Rows(Picture& picture, int y0, int y1, const Colour& colour)
{
    for (int y = y0; y < y1; y++) {
        for (int x = 0; x < picture.width; x++) {
            Blend(picture.At(x, y), colour, 1);
        }
    }
}

void Repeat_Row(Picture& picture, int y0, int y1)
{
    for (int y = y0 + 1; y < y1; y++) {
        std::memcpy(picture.At(0, y), picture.At(0, y0), static_cast<size_t>(picture.width) * 3);
    }
}

void Fill_Rounded(Picture& picture, int x0, int y0, int x1, int y1, double radius, const Colour& colour)
{
    for (int y = std::max(y0, 0); y < std::min(y1, picture.height); y++) {
        for (int x = std::max(x0, 0); x < std::min(x1, picture.width); x++) {
            const double dx = std::max({x0 + radius - x - 0.5, x + 0.5 - (x1 - radius), 0.0});
            const double dy = std::max({y0 + radius - y - 0.5, y + 0.5 - (y1 - radius), 0.0});
            Blend(picture.At(x, y), colour, radius - std::hypot(dx, dy) + 0.5);
        }
    }
}

void Draw_Ring(Picture& picture, double centre_x, double centre_y, double radius, double thickness,
               const Colour& colour)
{
    for (int y = 0; y < picture.height; y++) {
        for (int x = 0; x < picture.width; x++) {
            const double dx = x + 0.5 - centre_x, dy = y + 0.5 - centre_y;
            const double distance = std::abs(std::sqrt(dx * dx + dy * dy) - radius);
            Blend(picture.At(x, y), colour, (thickness / 2 - distance + 0.5) * 0.85);
        }
    }
}

// Enlarged glyphs get smooth outlines: the bitmap is interpolated and cut at one half.
double Cover(const Glyph& glyph, double u, double v, double scale)
{
    const int u0 = static_cast<int>(std::floor(u)), v0 = static_cast<int>(std::floor(v));
    const double fu = u - u0, fv = v - v0;
    const auto pixel = [&glyph](int x, int y) { return glyph.Has(x, y) ? 1.0 : 0.0; };
    const double above = pixel(u0, v0) * (1 - fu) + pixel(u0 + 1, v0) * fu;
    const double below = pixel(u0, v0 + 1) * (1 - fu) + pixel(u0 + 1, v0 + 1) * fu;
    return (above * (1 - fv) + below * fv - 0.5) * std::max(1.0, scale) + 0.5;
}

void Draw_Glyph(Picture& picture, int left, int top, int width, int height, const Glyph& glyph, const Colour& colour)
{
    const double step_u = static_cast<double>(glyph.width) / width, step_v = static_cast<double>(glyph.height) / height;
    for (int y = std::max(0, -top); y < height && top + y < picture.height; y++) {
        for (int x = std::max(0, -left); x < width && left + x < picture.width; x++) {
            const double cover = Cover(glyph, (x + 0.5) * step_u - 0.5, (y + 0.5) * step_v - 0.5, 1 / step_u);
            Blend(picture.At(left + x, top + y), colour, cover);
        }
    }
}

void Draw_Centred(Picture& picture, int top, int height, const std::string& text, const Colour& colour)
{
    if (text.empty() || height < 8) {
        return;
    }
    const int fitting = static_cast<int>(picture.width * 0.92 / static_cast<double>(text.size()));
    const int width = std::min(height * Glyph_Width / Glyph_Height, fitting);
    if (width < 5) {
        return;
    }
    const int line = width * Glyph_Height / Glyph_Width;
    int x = (picture.width - width * static_cast<int>(text.size())) / 2;
    for (char character : text) {
        Draw_Glyph(picture, x, top + (height - line) / 2, width, line, Small_Glyph(character), colour);
        x += width;
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
        const int step = x * Grey_Steps / picture.width;
        const double grey = 8 + 240.0 * step / (Grey_Steps - 1);
        Blend(picture.At(x, 0), Bars[static_cast<size_t>(x) * Bars.size() / static_cast<size_t>(picture.width)], 1);
        Blend(picture.At(x, bars_end), Hue(static_cast<double>(x) / picture.width), 1);
        Blend(picture.At(x, hues_end), Colour{grey, grey, grey}, 1);
    }
    Repeat_Row(picture, 0, bars_end);
    Repeat_Row(picture, bars_end, hues_end);
    Repeat_Row(picture, hues_end, greys_end);
    Fill_Rows(picture, greys_end, picture.height, Page_Ground);
}

void Draw_Panel(Picture& picture, const Card_Layout& layout)
{
    const int margin = layout.digit_height / 4;
    Fill_Rounded(picture, layout.digit_x - margin, layout.digit_y - margin,
                 layout.digit_x + layout.digits * layout.digit_width + margin,
                 layout.digit_y + layout.digit_height + margin, margin, Panel_Ground);
}

}  // namespace

int Card_Layout::Ball_X(uint32_t phase) const
{
    constexpr double Turn = 2 * 3.14159265358979;
    const double share = 0.5 - 0.5 * std::cos(Turn * (phase % Ball_Phases) / Ball_Phases);
    const int way = width / 2 * 2 - band_height;
    return static_cast<int>(share * way) / 2 * 2;
}

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
    layout.band_height = std::max(2 * Block_Height, Round_To(height / 10.0, Block_Height));
    layout.band_y = (height - layout.band_height - height / 40) / Block_Height * Block_Height;
    if (layout.band_y < height * 3 / 4 || width < 2 * layout.band_height) {
        layout.band_height = 0;
    }
    return layout;
}

Picture Draw_Card(const Card_Layout& layout, const std::string& name, const std::string& mode)
{
    Picture picture(layout.width, layout.height);
    Draw_Bars_And_Ramps(picture);
    Draw_Ring(picture, layout.width / 2.0, layout.height * 0.37, layout.height * 0.33,
              std::max(1.5, layout.height / 160.0), Colour{255, 255, 255});
    if (layout.digits > 0) {
        Draw_Panel(picture, layout);
    }
    const int text_top = layout.height * 74 / 100;
    const int text_height = (layout.band_height > 0 ? layout.band_y : layout.height) - text_top;
    Draw_Centred(picture, text_top + text_height / 20, text_height / 2, name, Digit_Ink);
    Draw_Centred(picture, text_top + text_height / 2, text_height * 2 / 5, mode, Text_Ink);
    Fill_Rows(picture, layout.band_y, layout.band_y + layout.band_height, Band_Ground);
    return picture;
}

Picture Draw_Digits(const Card_Layout& layout)
{
    Picture picture(10 * layout.digit_width, layout.digit_height);
    Fill_Rows(picture, 0, picture.height, Panel_Ground);
    for (int digit = 0; digit < 10; digit++) {
        Draw_Glyph(picture, digit * layout.digit_width, 0, layout.digit_width, layout.digit_height, Large_Digit(digit),
                   Digit_Ink);
    }
    return picture;
}

Picture Draw_Ball(const Card_Layout& layout)
{
    Picture picture(layout.band_height, layout.band_height);
    Fill_Rows(picture, 0, picture.height, Band_Ground);
    const double centre = picture.width / 2.0, radius = picture.width * 0.36;
    for (int y = 0; y < picture.height; y++) {
        for (int x = 0; x < picture.width; x++) {
            const double dx = x + 0.5 - centre, dy = y + 0.5 - centre;
            const double light =
                std::clamp(1.15 - std::hypot(dx + radius / 3, dy + radius / 3) / (radius * 1.7), 0.0, 1.0);
            Blend(picture.At(x, y), Colour{255, 120 + 130 * light, 40 + 190 * light * light},
                  radius - std::hypot(dx, dy) + 0.5);
        }
    }
    return picture;
}

Picture Draw_Band(const Card_Layout& layout, const Picture& ball, uint32_t phase)
{
    Picture picture(layout.width, layout.band_height);
    Fill_Rows(picture, 0, picture.height, Band_Ground);
    for (int y = 0; y < ball.height; y++) {
        std::memcpy(picture.At(layout.Ball_X(phase), y), ball.At(0, y), static_cast<size_t>(ball.width) * 3);
    }
    return picture;
}

}  // namespace virtual_camera
