#include <virtual_camera/description.h>
#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>

namespace virtual_camera {
namespace {

struct Named_Request {
    uint32_t code;
    const char* name;
};

#define REQUEST(name)                      \
    {                                      \
        static_cast<uint32_t>(name), #name \
    }
constexpr std::array Requests{
    Named_Request{Call_Open, "open"},
    Named_Request{Call_Close, "close"},
    Named_Request{Call_Mmap, "mmap"},
    Named_Request{Call_Munmap, "munmap"},
    Named_Request{Call_Select, "select"},
    Named_Request REQUEST(VIDIOC_QUERYCAP),
    Named_Request REQUEST(VIDIOC_ENUM_FMT),
    Named_Request REQUEST(VIDIOC_ENUM_FRAMESIZES),
    Named_Request REQUEST(VIDIOC_ENUM_FRAMEINTERVALS),
    Named_Request REQUEST(VIDIOC_G_FMT),
    Named_Request REQUEST(VIDIOC_S_FMT),
    Named_Request REQUEST(VIDIOC_TRY_FMT),
    Named_Request REQUEST(VIDIOC_G_PARM),
    Named_Request REQUEST(VIDIOC_S_PARM),
    Named_Request REQUEST(VIDIOC_REQBUFS),
    Named_Request REQUEST(VIDIOC_CREATE_BUFS),
    Named_Request REQUEST(VIDIOC_PREPARE_BUF),
    Named_Request REQUEST(VIDIOC_EXPBUF),
    Named_Request REQUEST(VIDIOC_QUERYBUF),
    Named_Request REQUEST(VIDIOC_QBUF),
    Named_Request REQUEST(VIDIOC_DQBUF),
    Named_Request REQUEST(VIDIOC_STREAMON),
    Named_Request REQUEST(VIDIOC_STREAMOFF),
    Named_Request REQUEST(VIDIOC_QUERYCTRL),
    Named_Request REQUEST(VIDIOC_QUERY_EXT_CTRL),
    Named_Request REQUEST(VIDIOC_QUERYMENU),
    Named_Request REQUEST(VIDIOC_G_CTRL),
    Named_Request REQUEST(VIDIOC_S_CTRL),
    Named_Request REQUEST(VIDIOC_G_EXT_CTRLS),
    Named_Request REQUEST(VIDIOC_S_EXT_CTRLS),
    Named_Request REQUEST(VIDIOC_TRY_EXT_CTRLS),
    Named_Request REQUEST(VIDIOC_ENUMINPUT),
    Named_Request REQUEST(VIDIOC_G_INPUT),
    Named_Request REQUEST(VIDIOC_S_INPUT),
    Named_Request REQUEST(VIDIOC_G_STD),
    Named_Request REQUEST(VIDIOC_G_PRIORITY),
    Named_Request REQUEST(VIDIOC_S_PRIORITY),
    Named_Request REQUEST(VIDIOC_G_SELECTION),
    Named_Request REQUEST(VIDIOC_CROPCAP),
    Named_Request REQUEST(VIDIOC_SUBSCRIBE_EVENT),
    Named_Request REQUEST(VIDIOC_UNSUBSCRIBE_EVENT),
    Named_Request REQUEST(VIDIOC_DQEVENT),
};
#undef REQUEST

std::string Upper(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

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
    const std::string wanted = Upper(name);
    for (const Named_Request& known : Requests) {
        const std::string full = Upper(known.name);
        if (wanted == full || "VIDIOC_" + wanted == full) {
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
