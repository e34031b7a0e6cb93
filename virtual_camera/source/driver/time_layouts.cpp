// Serves programs whose time_t is not as wide as the driver's own. On 32-bit processors it has 32 or 64 bits, and the
// records that hold a time have two layouts with two request codes.
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "driver/camera.h"

namespace virtual_camera {
namespace {

using Own_Width = std::conditional_t<sizeof(time_t) == 8, int64_t, int32_t>;
using Other_Width = std::conditional_t<sizeof(time_t) == 8, int32_t, int64_t>;

/// v4l2_buffer with a time of some width.
template <typename Width>
struct Buffer {
    uint8_t head[offsetof(v4l2_buffer, field) + sizeof(uint32_t)];
    Width seconds, fraction;
    uint8_t tail[sizeof(v4l2_buffer) - offsetof(v4l2_buffer, timecode)];
};

/// v4l2_event with a time of some width.
template <typename Width>
struct Event {
    alignas(decltype(v4l2_event::u)) uint8_t head[offsetof(v4l2_event, sequence) + sizeof(uint32_t)];
    Width seconds, fraction;
    uint8_t tail[sizeof(v4l2_event) - offsetof(v4l2_event, id)];
};

static_assert(sizeof(Buffer<Own_Width>) == sizeof(v4l2_buffer) && sizeof(Event<Own_Width>) == sizeof(v4l2_event));

template <typename From, typename To>
void Copy(const From& from, To& to)
{
    std::memcpy(to.head, from.head, sizeof to.head);
    to.seconds = static_cast<decltype(to.seconds)>(from.seconds);
    to.fraction = static_cast<decltype(to.fraction)>(from.fraction);
    std::memcpy(to.tail, from.tail, sizeof to.tail);
}

/// Whether a program asks for `own` with a record of the other layout, whose size is part of the code.
template <template <typename> class Record>
bool Is_Other(uint32_t request, unsigned long own)
{
    return request == _IOC(_IOC_DIR(own), _IOC_TYPE(own), _IOC_NR(own), sizeof(Record<Other_Width>));
}

}  // namespace

/// Makes the request on a copy in the driver's own layout. What a failed request leaves in it is copied back as well.
template <template <typename> class Record>
Answer Camera::Translated(Open_File& file, int fd, uint32_t request, void* argument)
{
    if (!argument) {
        return Answer_Request(file, fd, request, nullptr);
    }
    auto& other = *static_cast<Record<Other_Width>*>(argument);
    Record<Own_Width> own{};
    Copy(other, own);
    const Answer answer = Answer_Request(file, fd, request, &own);
    Copy(own, other);
    return answer;
}

Answer Camera::Request(Open_File& file, int fd, uint32_t request, void* argument)
{
    if constexpr (sizeof(void*) == 4) {  // the kernel of a 64-bit processor knows only one layout
        for (const unsigned long own : {VIDIOC_QUERYBUF, VIDIOC_QBUF, VIDIOC_DQBUF}) {
            if (Is_Other<Buffer>(request, own)) {
                return Translated<Buffer>(file, fd, static_cast<uint32_t>(own), argument);
            }
        }
        if (Is_Other<Event>(request, VIDIOC_DQEVENT)) {
            return Translated<Event>(file, fd, VIDIOC_DQEVENT, argument);
        }
    }
    return Answer_Request(file, fd, request, argument);
}

}  // namespace virtual_camera
