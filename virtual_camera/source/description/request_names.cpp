// Converts between the codes and the names of requests and calls.
#include <strings.h>
#include <virtual_camera/description.h>
#include <array>
#include <cstdio>

namespace virtual_camera {
namespace {

struct Named_Request {
    uint32_t code;
    const char* name;
};

// clang-format off
#define REQUEST(name) Named_Request{static_cast<uint32_t>(name), #name}
constexpr std::array Requests{
    Named_Request{Call_Open, "open"}, Named_Request{Call_Close, "close"}, Named_Request{Call_Mmap, "mmap"},
    Named_Request{Call_Munmap, "munmap"}, Named_Request{Call_Select, "select"},
    REQUEST(VIDIOC_QUERYCAP), REQUEST(VIDIOC_ENUM_FMT), REQUEST(VIDIOC_ENUM_FRAMESIZES),
    REQUEST(VIDIOC_ENUM_FRAMEINTERVALS), REQUEST(VIDIOC_G_FMT), REQUEST(VIDIOC_S_FMT),
    REQUEST(VIDIOC_TRY_FMT), REQUEST(VIDIOC_G_PARM), REQUEST(VIDIOC_S_PARM),
    REQUEST(VIDIOC_REQBUFS), REQUEST(VIDIOC_CREATE_BUFS), REQUEST(VIDIOC_PREPARE_BUF),
    REQUEST(VIDIOC_EXPBUF), REQUEST(VIDIOC_QUERYBUF), REQUEST(VIDIOC_QBUF),
    REQUEST(VIDIOC_DQBUF), REQUEST(VIDIOC_STREAMON), REQUEST(VIDIOC_STREAMOFF),
    REQUEST(VIDIOC_QUERYCTRL), REQUEST(VIDIOC_QUERY_EXT_CTRL), REQUEST(VIDIOC_QUERYMENU),
    REQUEST(VIDIOC_G_CTRL), REQUEST(VIDIOC_S_CTRL), REQUEST(VIDIOC_G_EXT_CTRLS),
    REQUEST(VIDIOC_S_EXT_CTRLS), REQUEST(VIDIOC_TRY_EXT_CTRLS), REQUEST(VIDIOC_ENUMINPUT),
    REQUEST(VIDIOC_G_INPUT), REQUEST(VIDIOC_S_INPUT), REQUEST(VIDIOC_G_STD),
    REQUEST(VIDIOC_G_PRIORITY), REQUEST(VIDIOC_S_PRIORITY), REQUEST(VIDIOC_G_SELECTION),
    REQUEST(VIDIOC_CROPCAP), REQUEST(VIDIOC_SUBSCRIBE_EVENT), REQUEST(VIDIOC_UNSUBSCRIBE_EVENT),
    REQUEST(VIDIOC_DQEVENT),
};
#undef REQUEST
// clang-format on

}  // namespace

std::string Request_Name(uint32_t request)
{
    for (const Named_Request& known : Requests) {
        if (known.code == request) {
            return known.name;
        }
    }
    char number[16];
    std::snprintf(number, sizeof number, "0x%08x", request);
    return number;
}

uint32_t Request_Code(const std::string& name)
{
    for (const Named_Request& known : Requests) {
        if (strcasecmp(name.c_str(), known.name) == 0 || strcasecmp(("VIDIOC_" + name).c_str(), known.name) == 0) {
            return known.code;
        }
    }
    return 0;
}

std::string Fourcc_Text(uint32_t fourcc)
{
    std::string text;
    for (int shift = 0; shift < 32; shift += 8) {
        text += static_cast<char>((fourcc >> shift) & 0x7f);
    }
    return text;
}

}  // namespace virtual_camera
