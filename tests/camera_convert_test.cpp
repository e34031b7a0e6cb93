// The camera interface: frames as pixels. Blocks end where the data do, so that an access outside shows under the
// address sanitizer.
#include <gtest/gtest.h>
#include <linux/videodev2.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#ifdef WQZ_WITH_TURBOJPEG
#include <turbojpeg.h>
#endif

#include "Camera/wqz_camera.h"
#include "Stream/YUV/yuv_stream.h"

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Random_Bytes(size_t count)
{
    std::mt19937 random(7);
    Bytes bytes(count);
    for (uint8_t& byte : bytes) {
        byte = static_cast<uint8_t>(random());
    }
    bytes.shrink_to_fit();
    return bytes;
}

WQZ_Camera_Frame Frame(uint32_t fourcc, uint32_t width, uint32_t height, const Bytes& bytes, uint32_t bytes_per_line)
{
    WQZ_Camera_Frame frame{};
    frame.size = sizeof frame;
    frame.fourcc = fourcc;
    frame.width = width;
    frame.height = height;
    frame.data = bytes.data();
    frame.length = bytes.size();
    frame.bytes_per_line = bytes_per_line;
    return frame;
}

std::string Reason()
{
    char text[512] = "";
    (void)WQZ_Camera_Explain(nullptr, text, sizeof text);
    return text;
}

constexpr uint8_t Untouched = 0xA5;

// Rows of `stride`, the last one without a gap behind it.
Bytes Converted(const WQZ_Camera_Frame& frame, uint32_t layout, uint32_t stride = 0, int32_t expected = 0)
{
    const size_t step = stride == 0 ? frame.width * 3 : stride;
    Bytes pixels(step * (frame.height - 1) + frame.width * 3, Untouched);
    EXPECT_EQ(WQZ_Camera_Convert(&frame, layout, pixels.data(), pixels.size(), stride), expected) << Reason();
    return pixels;
}

// Whether two pictures agree, the second with gaps between its rows that must be untouched, perhaps red first.
void Expect_Same(const WQZ_Camera_Frame& frame, const Bytes& packed_bgr, const Bytes& other, size_t stride,
                 bool swapped)
{
    for (size_t i = 0; i < other.size(); ++i) {
        const size_t y = i / stride;
        const size_t x = i % stride;
        if (x >= frame.width * 3) {
            ASSERT_EQ(other[i], Untouched) << "gap behind row " << y;
        } else {
            const size_t colour = swapped ? 2 - x % 3 : x % 3;
            ASSERT_EQ(other[i], packed_bgr[y * frame.width * 3 + x / 3 * 3 + colour]) << "row " << y << " byte " << x;
        }
    }
}

Bytes By_Tables(Bytes yuyv, uint32_t width, uint32_t height, uint32_t stride)
{
    Bytes bgr;
    for (uint32_t y = 0; y < height; ++y) {
        Bytes row((width + 1) / 2 * 6);
        YUV_Stream::YUV_Decode_Table.YUYV_Decode(yuyv.data() + size_t{y} * stride, (width + 1) / 2 * 4, row.data(), 0);
        bgr.insert(bgr.end(), row.begin(), row.begin() + width * 3);
    }
    return bgr;
}

TEST(Convert, YuyvAndUyvyInEveryLayout)
{
    for (const uint32_t width : {1U, 2U, 7U, 64U, 1026U, 2051U}) {
        constexpr uint32_t Height = 3;
        const uint32_t row = (width + 1) / 2 * 4;
        for (const uint32_t line : {row, row + 12, row + row / 2}) {
            const Bytes yuyv = Random_Bytes(size_t{line} * (Height - 1) + row);
            Bytes uyvy = yuyv;
            for (size_t i = 0; i + 1 < uyvy.size(); i += 2) {
                std::swap(uyvy[i], uyvy[i + 1]);
            }
            const Bytes expected = By_Tables(yuyv, width, Height, line);
            const uint32_t told = line == row ? 0 : line;  // some drivers do not tell it where there is no gap
            for (const auto& frame : {Frame(V4L2_PIX_FMT_YUYV, width, Height, yuyv, line),
                                      Frame(V4L2_PIX_FMT_YUYV, width, Height, yuyv, told),
                                      Frame(V4L2_PIX_FMT_UYVY, width, Height, uyvy, told)}) {
                EXPECT_EQ(Converted(frame, WQZ_CAMERA_PIXELS_BGR), expected) << width;
                const uint32_t stride = width * 3 + 5;
                Expect_Same(frame, expected, Converted(frame, WQZ_CAMERA_PIXELS_BGR, stride), stride, false);
                Expect_Same(frame, expected, Converted(frame, WQZ_CAMERA_PIXELS_RGB), width * 3, true);
            }
        }
    }
}

TEST(Convert, MissingRowsAreBlackAndReported)
{
    const Bytes yuyv = Random_Bytes(64 * 2 * 3 + 5);
    const auto frame = Frame(V4L2_PIX_FMT_YUYV, 64, 8, yuyv, 128);
    const Bytes pixels = Converted(frame, WQZ_CAMERA_PIXELS_BGR, 0, -EBADMSG);
    const Bytes whole = By_Tables(yuyv, 64, 3, 128);
    EXPECT_TRUE(std::equal(whole.begin(), whole.end(), pixels.begin()));
    EXPECT_EQ(Bytes(pixels.begin() + static_cast<std::ptrdiff_t>(whole.size()), pixels.end()), Bytes(64 * 3 * 5));
    EXPECT_NE(Reason().find("3 came"), std::string::npos) << Reason();
    (void)Converted(Frame(V4L2_PIX_FMT_YUYV, 64, 8, Bytes(128 * 4 - 4), 128), WQZ_CAMERA_PIXELS_BGR, 0, -EBADMSG);
    EXPECT_NE(Reason().find("3 came"), std::string::npos) << "a row without its end: " << Reason();
    const auto empty = Frame(V4L2_PIX_FMT_SRGGB8, 64, 8, Bytes{1}, 64);
    EXPECT_EQ(Converted(empty, WQZ_CAMERA_PIXELS_BGR, 0, -EBADMSG), Bytes(64 * 3 * 8));
}

TEST(Convert, WrongCallsAreRefused)
{
    const Bytes yuyv(64 * 2 * 8);
    auto frame = Frame(V4L2_PIX_FMT_YUYV, 64, 8, yuyv, 128);
    Bytes pixels(64 * 3 * 8);
    EXPECT_EQ(WQZ_Camera_Convert(nullptr, WQZ_CAMERA_PIXELS_BGR, pixels.data(), pixels.size(), 0), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Convert(&frame, 9, pixels.data(), pixels.size(), 0), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, nullptr, pixels.size(), 0), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels.data(), pixels.size() - 1, 0), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels.data(), pixels.size(), 191), -EINVAL);
    EXPECT_EQ(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels.data(), pixels.size(), 193), -EINVAL);
    frame.fourcc = V4L2_PIX_FMT_GREY;
    EXPECT_EQ(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels.data(), pixels.size(), 0), -ENOTSUP);
    EXPECT_NE(Reason().find("GREY"), std::string::npos);
    frame.data = nullptr;
    EXPECT_EQ(WQZ_Camera_Convert(&frame, WQZ_CAMERA_PIXELS_BGR, pixels.data(), pixels.size(), 0), -EINVAL);
}

// Raw Bayer -----------------------------------------------------------------------------------------------------------

struct Mosaic {
    const char* colours;  // of the four samples of a square, row by row
    uint32_t bytes, tens, twelves, fourteens, sixteens, packed_ten, packed_twelve, packed_fourteen;
};

constexpr Mosaic Mosaics[] = {
    {"RGGB", V4L2_PIX_FMT_SRGGB8, V4L2_PIX_FMT_SRGGB10, V4L2_PIX_FMT_SRGGB12, V4L2_PIX_FMT_SRGGB14,
     V4L2_PIX_FMT_SRGGB16, V4L2_PIX_FMT_SRGGB10P, V4L2_PIX_FMT_SRGGB12P, V4L2_PIX_FMT_SRGGB14P},
    {"GRBG", V4L2_PIX_FMT_SGRBG8, V4L2_PIX_FMT_SGRBG10, V4L2_PIX_FMT_SGRBG12, V4L2_PIX_FMT_SGRBG14,
     V4L2_PIX_FMT_SGRBG16, V4L2_PIX_FMT_SGRBG10P, V4L2_PIX_FMT_SGRBG12P, V4L2_PIX_FMT_SGRBG14P},
    {"GBRG", V4L2_PIX_FMT_SGBRG8, V4L2_PIX_FMT_SGBRG10, V4L2_PIX_FMT_SGBRG12, V4L2_PIX_FMT_SGBRG14,
     V4L2_PIX_FMT_SGBRG16, V4L2_PIX_FMT_SGBRG10P, V4L2_PIX_FMT_SGBRG12P, V4L2_PIX_FMT_SGBRG14P},
    {"BGGR", V4L2_PIX_FMT_SBGGR8, V4L2_PIX_FMT_SBGGR10, V4L2_PIX_FMT_SBGGR12, V4L2_PIX_FMT_SBGGR14,
     V4L2_PIX_FMT_SBGGR16, V4L2_PIX_FMT_SBGGR10P, V4L2_PIX_FMT_SBGGR12P, V4L2_PIX_FMT_SBGGR14P}};

int Mirrored(int place, int size)
{
    const int inside = place < 0 ? 1 : place >= size ? size - 2 : place;
    return size == 1 ? 0 : inside;
}

// One colour of one pixel: its sample, or the rounded mean of those samples around it that have the colour.
uint8_t Plain_Colour(const Bytes& samples, int width, int height, const char* colours, int x, int y, char colour)
{
    int sum = 0;
    int count = 0;
    for (int dy = -1; dy <= 1; ++dy) {
        for (int dx = -1; dx <= 1; ++dx) {
            const char own = colours[(y + dy + 2) % 2 * 2 + (x + dx + 2) % 2];
            if (own != colour) {
                continue;
            }
            const uint8_t sample =
                samples[static_cast<size_t>(Mirrored(y + dy, height) * width + Mirrored(x + dx, width))];
            if (dx == 0 && dy == 0) {
                return sample;
            }
            // A green pixel's diagonal neighbours are green as well, but never asked for.
            sum += sample;
            ++count;
        }
    }
    return static_cast<uint8_t>((sum + count / 2) / count);
}

Bytes Plain_Demosaic(const Bytes& samples, uint32_t width, uint32_t height, const char* colours)
{
    Bytes bgr;
    for (uint32_t y = 0; y < height; ++y) {
        for (uint32_t x = 0; x < width; ++x) {
            for (const char colour : {'B', 'G', 'R'}) {
                bgr.push_back(Plain_Colour(samples, static_cast<int>(width), static_cast<int>(height), colours,
                                           static_cast<int>(x), static_cast<int>(y), colour));
            }
        }
    }
    return bgr;
}

// The samples in words with the given number of bits. The lower bits are noise that must not count.
Bytes In_Words(const Bytes& samples, unsigned bits)
{
    Bytes words;
    for (const uint8_t sample : samples) {
        const unsigned word = unsigned{sample} << (bits - 8) | (sample & ((1U << (bits - 8)) - 1));
        words.push_back(static_cast<uint8_t>(word));
        words.push_back(static_cast<uint8_t>(word >> 8));
    }
    return words;
}

// Each row in groups of upper bytes, with the bytes of low bits behind each group.
Bytes Packed(const Bytes& samples, uint32_t width, uint32_t group, uint32_t low_bytes)
{
    Bytes packed;
    for (size_t i = 0; i < samples.size(); ++i) {
        packed.push_back(samples[i]);
        const uint32_t x = static_cast<uint32_t>(i % width);
        if (x % group == group - 1) {
            packed.insert(packed.end(), low_bytes, 0xFF);
        }
    }
    return packed;
}

TEST(Convert, EveryBayerLayoutInterpolatesBilinearly)
{
    for (const Mosaic& mosaic : Mosaics) {
        for (const auto& [width, height] : {std::pair<uint32_t, uint32_t>{16, 6}, {4, 2}, {8, 5}}) {
            const Bytes samples = Random_Bytes(size_t{width} * height);
            const Bytes expected = Plain_Demosaic(samples, width, height, mosaic.colours);
            const auto check = [&, w = width, h = height](uint32_t fourcc, const Bytes& bytes) {
                const auto frame = Frame(fourcc, w, h, bytes, static_cast<uint32_t>(bytes.size() / h));
                EXPECT_EQ(Converted(frame, WQZ_CAMERA_PIXELS_BGR), expected) << mosaic.colours << " " << fourcc;
                Expect_Same(frame, expected, Converted(frame, WQZ_CAMERA_PIXELS_RGB, w * 3 + 1), w * 3 + 1, true);
            };
            check(mosaic.bytes, samples);
            check(mosaic.tens, In_Words(samples, 10));
            check(mosaic.twelves, In_Words(samples, 12));
            check(mosaic.fourteens, In_Words(samples, 14));
            check(mosaic.sixteens, In_Words(samples, 16));
            check(mosaic.packed_ten, Packed(samples, width, 4, 1));
            check(mosaic.packed_twelve, Packed(samples, width, 2, 1));
            check(mosaic.packed_fourteen, Packed(samples, width, 4, 3));
        }
    }
}

TEST(Convert, BayerPicturesOfOneRowOrColumnStayInside)
{
    for (const auto& [width, height] : {std::pair<uint32_t, uint32_t>{1, 1}, {5, 1}, {1, 5}}) {
        const Bytes samples(size_t{width} * height, 90);
        const auto frame = Frame(V4L2_PIX_FMT_SGRBG8, width, height, samples, width);
        EXPECT_EQ(Converted(frame, WQZ_CAMERA_PIXELS_BGR), Bytes(size_t{width} * height * 3, 90));
    }
}

// Motion-JPEG ---------------------------------------------------------------------------------------------------------

#ifdef WQZ_WITH_TURBOJPEG

constexpr uint32_t Jpeg_Width = 48;
constexpr uint32_t Jpeg_Height = 32;

// A smooth picture survives compression nearly unchanged.
Bytes Smooth_Picture()
{
    Bytes bgr;
    for (uint32_t y = 0; y < Jpeg_Height; ++y) {
        for (uint32_t x = 0; x < Jpeg_Width; ++x) {
            bgr.push_back(static_cast<uint8_t>(x * 4));
            bgr.push_back(static_cast<uint8_t>(100 + y));
            bgr.push_back(static_cast<uint8_t>(250 - x * 2 - y * 2));
        }
    }
    return bgr;
}

Bytes Compressed(const Bytes& bgr)
{
    tjhandle encoder = tjInitCompress();
    unsigned char* data = nullptr;
    unsigned long length = 0;
    EXPECT_EQ(tjCompress2(encoder, bgr.data(), Jpeg_Width, 0, Jpeg_Height, TJPF_BGR, &data, &length, TJSAMP_444, 95, 0),
              0);
    Bytes jpeg(data, data + length);
    tjFree(data);
    (void)tjDestroy(encoder);
    return jpeg;
}

TEST(Convert, MotionJpegIsDecoded)
{
    const Bytes picture = Smooth_Picture();
    const Bytes jpeg = Compressed(picture);
    const auto frame = Frame(V4L2_PIX_FMT_MJPEG, Jpeg_Width, Jpeg_Height, jpeg, 0);
    const Bytes bgr = Converted(frame, WQZ_CAMERA_PIXELS_BGR);
    for (size_t i = 0; i < picture.size(); ++i) {
        ASSERT_NEAR(bgr[i], picture[i], 6) << i;
    }
    Expect_Same(frame, bgr, Converted(frame, WQZ_CAMERA_PIXELS_RGB, 200), 200, true);
}

TEST(Convert, BrokenMotionJpegIsReported)
{
    const Bytes jpeg = Compressed(Smooth_Picture());
    Bytes shorter(jpeg.begin(), jpeg.begin() + static_cast<std::ptrdiff_t>(jpeg.size() * 3 / 4));
    const auto cut = Frame(V4L2_PIX_FMT_MJPEG, Jpeg_Width, Jpeg_Height, shorter, 0);
    const Bytes part = Converted(cut, WQZ_CAMERA_PIXELS_BGR, 0, -EBADMSG);
    const Bytes whole = Converted(Frame(V4L2_PIX_FMT_MJPEG, Jpeg_Width, Jpeg_Height, jpeg, 0), WQZ_CAMERA_PIXELS_BGR);
    EXPECT_TRUE(std::equal(part.begin(), part.begin() + Jpeg_Width * 3 * 8, whole.begin())) << "what came is there";
    (void)Converted(Frame(V4L2_PIX_FMT_MJPEG, Jpeg_Width / 2, Jpeg_Height, jpeg, 0), WQZ_CAMERA_PIXELS_BGR, 0,
                    -EBADMSG);
    EXPECT_NE(Reason().find("48x32"), std::string::npos) << Reason();
    (void)Converted(Frame(V4L2_PIX_FMT_MJPEG, Jpeg_Width, Jpeg_Height, Random_Bytes(500), 0), WQZ_CAMERA_PIXELS_BGR, 0,
                    -EBADMSG);
    Bytes without_tables = jpeg;
    without_tables.resize(30);
    (void)Converted(Frame(V4L2_PIX_FMT_MJPEG, Jpeg_Width, Jpeg_Height, without_tables, 0), WQZ_CAMERA_PIXELS_BGR, 0,
                    -EBADMSG);
}

#else

TEST(Convert, MotionJpegNeedsADecoder)
{
    (void)Converted(Frame(V4L2_PIX_FMT_MJPEG, 16, 16, Bytes(100), 0), WQZ_CAMERA_PIXELS_BGR, 0, -ENOTSUP);
    EXPECT_NE(Reason().find("TurboJPEG"), std::string::npos);
}

#endif

}  // namespace
