// Pictures between the lines of a multipart stream, and their memory.
#include "picture.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <vector>

namespace {

constexpr size_t Head_Room = 256;  // the part's headers take up to 200 bytes
constexpr size_t Tail_Room = 32;
constexpr std::string_view Tail_Start = "\r\n--";
constexpr std::string_view Tail_End = "\r\n";
static_assert(Tail_Start.size() + Part_Boundary.size() + Tail_End.size() <= Tail_Room);

constexpr size_t Most_Spare = 3;  // one being written, one being sent, one for a slow viewer

}  // namespace

uint8_t* Picture::Room(size_t jpeg_bytes)
{
    const size_t needed = Head_Room + jpeg_bytes + Tail_Room;
    if (needed > capacity) {
        memory.reset();
        memory = std::make_unique_for_overwrite<uint8_t[]>(needed);
        capacity = needed;
    }
    return memory.get() + Head_Room;
}

void Picture::Finish(size_t jpeg_bytes)
{
    std::array<char, Head_Room> head{};
    const int length =
        std::snprintf(head.data(), head.size(),
                      "Content-Type: image/jpeg\r\nContent-Length: %zu\r\nX-Timestamp: %" PRId64 ".%06" PRId64
                      "\r\nX-Sequence: %" PRIu32 "\r\nX-Lost: %" PRIu32 "\r\n\r\n",
                      jpeg_bytes, time_ns / 1'000'000'000, time_ns / 1000 % 1'000'000, sequence, lost_before);
    const auto head_length = static_cast<size_t>(length);
    part_start = Head_Room - head_length;
    jpeg_length = jpeg_bytes;
    std::memcpy(memory.get() + part_start, head.data(), head_length);
    uint8_t* tail = memory.get() + Head_Room + jpeg_bytes;
    for (const std::string_view piece : {Tail_Start, Part_Boundary, Tail_End}) {
        std::memcpy(tail, piece.data(), piece.size());
        tail += piece.size();
    }
    part_length = static_cast<size_t>(tail - memory.get()) - part_start;
}

std::string_view Picture::Part() const
{
    return {reinterpret_cast<const char*>(memory.get()) + part_start, part_length};
}

std::string_view Picture::Jpeg() const
{
    return {reinterpret_cast<const char*>(memory.get()) + Head_Room, jpeg_length};
}

struct Picture_Pool::Spare {
    std::mutex mutex;
    std::vector<std::unique_ptr<Picture>> pictures;

    void Give_Back(std::unique_ptr<Picture> picture)
    {
        const std::lock_guard lock(mutex);
        if (pictures.size() < Most_Spare) {
            pictures.push_back(std::move(picture));
        }
    }
};

Picture_Pool::Picture_Pool() : spare(std::make_shared<Spare>())
{
}

std::shared_ptr<Picture> Picture_Pool::Take()
{
    std::unique_ptr<Picture> picture;
    {
        const std::lock_guard lock(spare->mutex);
        if (!spare->pictures.empty()) {
            picture = std::move(spare->pictures.back());
            spare->pictures.pop_back();
        }
    }
    if (!picture) {
        picture = std::make_unique<Picture>();
    }
    return {picture.release(), [owner = spare](Picture* used) { owner->Give_Back(std::unique_ptr<Picture>(used)); }};
}
