// Makes Motion-JPEG frames without encoding each one. The card and the digits are encoded once and cut at their restart
// markers, and each frame is joined from these pieces. Decoding starts afresh after a restart marker, so a piece looks
// the same in any place; only the marker's number depends on the place.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <jpeglib.h>  // needs FILE and size_t declared

#include "picture/frame_painter.h"
#include "picture/test_card.h"

namespace virtual_camera {
namespace {

constexpr int Quality = 85;
constexpr uint8_t Marker = 0xff;
constexpr uint8_t First_Restart = 0xd0;
constexpr size_t Restarts = 8;

using Bytes = std::vector<uint8_t>;

Bytes Encode(const Picture& picture, int segment_width)
{
    jpeg_compress_struct encoder;
    jpeg_error_mgr errors;
    encoder.err = jpeg_std_error(&errors);
    jpeg_create_compress(&encoder);
    unsigned char* memory = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&encoder, &memory, &size);
    encoder.image_width = static_cast<JDIMENSION>(picture.width);
    encoder.image_height = static_cast<JDIMENSION>(picture.height);
    encoder.input_components = 3;
    encoder.in_color_space = JCS_RGB;
    jpeg_set_defaults(&encoder);
    jpeg_set_quality(&encoder, Quality, TRUE);
    encoder.comp_info[0].h_samp_factor = 2;  // 4:2:2, as cameras deliver it
    encoder.comp_info[0].v_samp_factor = 1;
    encoder.restart_interval = static_cast<unsigned>(segment_width / Block_Width);
    jpeg_start_compress(&encoder, TRUE);
    const std::string comment = Jpeg_Comment_Prefix + std::string(Jpeg_Comment_Digits, '0');
    jpeg_write_marker(&encoder, JPEG_COM, reinterpret_cast<const JOCTET*>(comment.data()),
                      static_cast<unsigned>(comment.size()));
    while (encoder.next_scanline < encoder.image_height) {
        auto* row = const_cast<JSAMPROW>(picture.At(0, static_cast<int>(encoder.next_scanline)));
        jpeg_write_scanlines(&encoder, &row, 1);
    }
    jpeg_finish_compress(&encoder);
    Bytes bytes(memory, memory + size);
    std::free(memory);
    jpeg_destroy_compress(&encoder);
    return bytes;
}

/// An encoded picture cut into header and segments, without the markers between them.
struct Cut_Picture {
    Bytes header;
    std::vector<Bytes> segments;
};

size_t Scan_Start(const Bytes& jpeg)
{
    constexpr uint8_t Start_Of_Scan = 0xda;
    size_t at = 2;
    for (bool last = false; !last; at += 2 + (static_cast<size_t>(jpeg[at + 2]) << 8 | jpeg[at + 3])) {
        last = jpeg[at + 1] == Start_Of_Scan;
    }
    return at;
}

Cut_Picture Cut(const Bytes& jpeg)
{
    Cut_Picture cut;
    size_t from = Scan_Start(jpeg);
    cut.header.assign(jpeg.begin(), jpeg.begin() + static_cast<long>(from));
    for (size_t at = from; at + 1 < jpeg.size(); at++) {
        if (jpeg[at] == Marker && jpeg[at + 1] != 0) {
            cut.segments.emplace_back(jpeg.begin() + static_cast<long>(from), jpeg.begin() + static_cast<long>(at));
            from = at + 2;
            at++;
        }
    }
    return cut;
}

class Jpeg_Painter : public Frame_Painter {
public:
    explicit Jpeg_Painter(const Paint_Mode& mode)
        : layout(Lay_Out(static_cast<int>(mode.width), static_cast<int>(mode.height)))
    {
        const Cut_Picture card = Cut(Encode(Draw_Card(layout, mode.name, mode.text), layout.segment_width));
        std::vector<Bytes> strip;
        if (layout.digits > 0) {
            strip = Cut(Encode(Draw_Digits(layout), layout.segment_width)).segments;
        }
        const char* prefix = Jpeg_Comment_Prefix;
        const auto comment = std::search(card.header.begin(), card.header.end(), prefix, prefix + std::strlen(prefix));
        comment_at = static_cast<size_t>(comment - card.header.begin()) + std::strlen(prefix);
        segments = card.segments.size();
        plan.emplace_back().still = card.header;
        for (size_t index = 0; index < segments; index++) {
            Plan_Segment(card.segments[index], index, strip);
        }
    }

    size_t Paint(uint8_t* target, size_t capacity, uint32_t sequence, std::optional<uint32_t>) override
    {
        char number[Jpeg_Comment_Digits + 1];
        std::snprintf(number, sizeof number, "%010u", sequence);
        frame.clear();
        for (const Piece& piece : plan) {
            const Bytes& bytes =
                piece.place == Still ? piece.still : piece.digits[static_cast<size_t>(number[piece.place] - '0')];
            frame.insert(frame.end(), bytes.begin(), bytes.end());
        }
        std::memcpy(&frame[comment_at], number, Jpeg_Comment_Digits);
        std::memcpy(target, frame.data(), std::min(capacity, frame.size()));
        return std::min(capacity, frame.size());
    }

private:
    static constexpr size_t Still = SIZE_MAX;

    /// Consecutive segments that never change, or one segment of a digit, each with its marker.
    struct Piece {
        size_t place = Still;  // in the number, from the left
        Bytes still;
        std::array<Bytes, 10> digits;
    };

    /// The end of the image follows the last segment; a restart marker follows each of the others.
    void Append_Segment(Bytes& bytes, const Bytes& segment, size_t index) const
    {
        constexpr uint8_t End_Of_Image = 0xd9;
        bytes.insert(bytes.end(), segment.begin(), segment.end());
        bytes.push_back(Marker);
        bytes.push_back(index + 1 == segments ? End_Of_Image : static_cast<uint8_t>(First_Restart + index % Restarts));
    }

    /// Adds a segment of the card, or the ten versions of it when it lies in a digit's field.
    void Plan_Segment(const Bytes& segment, size_t index, const std::vector<Bytes>& strip)
    {
        const auto columns = static_cast<size_t>((layout.width + layout.segment_width - 1) / layout.segment_width);
        const int x = static_cast<int>(index % columns) * layout.segment_width - layout.digit_x;
        const int y = static_cast<int>(index / columns) * Block_Height - layout.digit_y;
        if (x < 0 || y < 0 || x >= layout.digits * layout.digit_width || y >= layout.digit_height) {
            if (plan.empty() || plan.back().place != Still) {
                plan.emplace_back();
            }
            Append_Segment(plan.back().still, segment, index);
            return;
        }
        const auto width = static_cast<size_t>(layout.digit_width / layout.segment_width);
        const auto column = static_cast<size_t>(x % layout.digit_width / layout.segment_width);
        Piece& piece = plan.emplace_back();
        piece.place = Jpeg_Comment_Digits - static_cast<size_t>(layout.digits - x / layout.digit_width);
        for (size_t digit = 0; digit < piece.digits.size(); digit++) {
            const size_t row = static_cast<size_t>(y / Block_Height) * piece.digits.size();
            Append_Segment(piece.digits[digit], strip[(row + digit) * width + column], index);
        }
    }

    Card_Layout layout;
    size_t segments = 0;  // in the picture
    size_t comment_at = 0;
    std::vector<Piece> plan;
    Bytes frame;
};

}  // namespace

std::unique_ptr<Frame_Painter> Make_Jpeg_Painter(const Paint_Mode& mode)
{
    return std::make_unique<Jpeg_Painter>(mode);
}

}  // namespace virtual_camera
