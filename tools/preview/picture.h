// A picture that is ready to be sent, and the pool whose memory serves one picture after the other.
#ifndef WQZ_TOOL_PREVIEW_PICTURE_H
#define WQZ_TOOL_PREVIEW_PICTURE_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

/// Separates the pictures of a stream.
constexpr std::string_view Part_Boundary = "wqz-frame";

/// A JPEG between the lines that a multipart stream has around it, so that one send does for every viewer.
class Picture {
public:
    /// Makes room for a JPEG. What the picture held is lost.
    /// @return where the JPEG goes
    uint8_t* Room(size_t jpeg_bytes);

    /// Writes the lines around the JPEG; the numbers below must be set.
    void Finish(size_t jpeg_bytes);

    /// @return the headers, the JPEG and the boundary behind it, so that viewers need not wait for the next part
    std::string_view Part() const;
    std::string_view Jpeg() const;

    uint64_t number = 0;  ///< counts the pictures of a camera, over restarts too
    uint32_t sequence = 0;
    uint32_t lost_before = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    int64_t time_ns = 0;  ///< CLOCK_MONOTONIC, by the driver

private:
    std::unique_ptr<uint8_t[]> memory;
    size_t capacity = 0;
    size_t part_start = 0;
    size_t jpeg_length = 0;
    size_t part_length = 0;
};

/// Hands out pictures. The last viewer that lets go of a picture gives its memory back.
class Picture_Pool {
public:
    Picture_Pool();

    std::shared_ptr<Picture> Take();

private:
    struct Spare;
    std::shared_ptr<Spare> spare;  // shared with the pictures, which may outlive the pool
};

#endif  // WQZ_TOOL_PREVIEW_PICTURE_H
