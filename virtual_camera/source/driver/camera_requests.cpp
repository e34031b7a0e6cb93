// The requests of a node, by the rules of the kernel's UVC driver. Each answer is 0 or a negative errno.
#include <fcntl.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "driver/camera.h"
#include "system/node_timer.h"

namespace virtual_camera {
namespace {

constexpr uint32_t Metadata_Bytes = 10240;
constexpr uint32_t Most_Buffers = VIDEO_MAX_FRAME;

template <typename Type>
Type& As(void* argument)
{
    return *static_cast<Type*>(argument);
}

}  // namespace

int Camera::Perform(Guard& lock, Open_File& file, int fd, uint32_t request, void* argument)
{
    if (!argument) {
        return -EFAULT;
    }
    switch (request) {
        case VIDIOC_QUERYCAP:
            return Capability(file, As<v4l2_capability>(argument));
        case VIDIOC_G_PRIORITY:
            As<uint32_t>(argument) = priority;
            return 0;
        case VIDIOC_S_PRIORITY:
            if (As<uint32_t>(argument) > V4L2_PRIORITY_RECORD) {
                return -EINVAL;
            }
            priority = As<uint32_t>(argument);
            return 0;
        default:
            break;
    }
    if (file.is_metadata) {
        return Perform_On_Metadata(request, argument);
    }
    switch (request) {
        case VIDIOC_G_FMT:
        case VIDIOC_S_FMT:
        case VIDIOC_TRY_FMT:
            return Format_Request(file, request, As<v4l2_format>(argument));
        case VIDIOC_G_PARM:
        case VIDIOC_S_PARM:
            return Parameter_Request(file, request, As<v4l2_streamparm>(argument));
        case VIDIOC_REQBUFS:
        case VIDIOC_QUERYBUF:
        case VIDIOC_QBUF:
        case VIDIOC_DQBUF:
        case VIDIOC_STREAMON:
        case VIDIOC_STREAMOFF:
            return Buffer_Request(lock, file, fd, request, argument);
        case VIDIOC_ENUMINPUT:
        case VIDIOC_G_INPUT:
        case VIDIOC_S_INPUT:
            return Input_Request(file, request, argument);
        case VIDIOC_CROPCAP:
        case VIDIOC_G_SELECTION:
            return Crop_Request(request, argument);
        case VIDIOC_SUBSCRIBE_EVENT:
        case VIDIOC_UNSUBSCRIBE_EVENT:
        case VIDIOC_DQEVENT:
            return Event_Request(request, argument);
        default:
            return Enumerate(request, argument);
    }
}

int Camera::Enumerate(uint32_t request, void* argument)
{
    switch (request) {
        case VIDIOC_ENUM_FMT:
            return Enumerate_Format(description.formats, As<v4l2_fmtdesc>(argument));
        case VIDIOC_ENUM_FRAMESIZES:
            return Enumerate_Size(description.formats, As<v4l2_frmsizeenum>(argument));
        case VIDIOC_ENUM_FRAMEINTERVALS:
            return Enumerate_Interval(description.formats, As<v4l2_frmivalenum>(argument));
        default:
            return Control_Request(request, argument);
    }
}

int Camera::Control_Request(uint32_t request, void* argument)
{
    switch (request) {
        case VIDIOC_QUERYCTRL:
            return controls.Query(As<v4l2_queryctrl>(argument));
        case VIDIOC_QUERY_EXT_CTRL:
            return controls.Query_Extended(As<v4l2_query_ext_ctrl>(argument));
        case VIDIOC_QUERYMENU:
            return controls.Query_Menu(As<v4l2_querymenu>(argument));
        case VIDIOC_G_CTRL:
            return controls.Get(As<v4l2_control>(argument));
        case VIDIOC_S_CTRL:
            return controls.Set(As<v4l2_control>(argument));
        case VIDIOC_G_EXT_CTRLS:
        case VIDIOC_S_EXT_CTRLS:
        case VIDIOC_TRY_EXT_CTRLS:
            return controls.Extended(request, As<v4l2_ext_controls>(argument));
        default:
            return -ENOTTY;
    }
}

// The metadata node describes itself; it does not stream.
int Camera::Perform_On_Metadata(uint32_t request, void* argument)
{
    if (request == VIDIOC_ENUM_FMT) {
        auto& entry = As<v4l2_fmtdesc>(argument);
        if (entry.type != V4L2_BUF_TYPE_META_CAPTURE || entry.index > 0) {
            return -EINVAL;
        }
        entry = v4l2_fmtdesc{};
        entry.type = V4L2_BUF_TYPE_META_CAPTURE;
        entry.pixelformat = V4L2_META_FMT_UVC;
        std::snprintf(reinterpret_cast<char*>(entry.description), sizeof entry.description,
                      "UVC Payload Header Metadata");
        return 0;
    }
    if (request == VIDIOC_G_FMT || request == VIDIOC_S_FMT || request == VIDIOC_TRY_FMT) {
        auto& format = As<v4l2_format>(argument);
        if (format.type != V4L2_BUF_TYPE_META_CAPTURE) {
            return -EINVAL;
        }
        format.fmt.meta.dataformat = V4L2_META_FMT_UVC;
        format.fmt.meta.buffersize = Metadata_Bytes;
        return 0;
    }
    return -ENOTTY;
}

int Camera::Capability(const Open_File& file, v4l2_capability& capability) const
{
    constexpr uint32_t Driver_Version = 6 << 16 | 1 << 8;
    constexpr uint32_t Common = V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
    capability = v4l2_capability{};
    const auto copy = [](auto& target, const std::string& text) {
        std::snprintf(reinterpret_cast<char*>(target), sizeof target, "%s", text.c_str());
    };
    copy(capability.driver, description.driver);
    copy(capability.card, description.card);
    copy(capability.bus_info, description.bus_info);
    capability.version = Driver_Version;
    const uint32_t all = V4L2_CAP_VIDEO_CAPTURE | (description.has_metadata ? V4L2_CAP_META_CAPTURE : 0U);
    capability.capabilities = all | Common | V4L2_CAP_DEVICE_CAPS;
    capability.device_caps = (file.is_metadata ? V4L2_CAP_META_CAPTURE : V4L2_CAP_VIDEO_CAPTURE) | Common;
    return 0;
}

int Camera::Input_Request(Open_File& file, uint32_t request, void* argument)
{
    if (request == VIDIOC_G_INPUT) {
        As<int>(argument) = 0;
        return 0;
    }
    if (request == VIDIOC_S_INPUT) {
        if (!Acquire(file)) {
            return -EBUSY;
        }
        return As<int>(argument) == 0 ? 0 : -EINVAL;
    }
    auto& input = As<v4l2_input>(argument);
    if (input.index != 0) {
        return -EINVAL;
    }
    input = v4l2_input{};
    input.type = V4L2_INPUT_TYPE_CAMERA;
    std::snprintf(reinterpret_cast<char*>(input.name), sizeof input.name, "Camera 1");
    return 0;
}

int Camera::Crop_Request(uint32_t request, void* argument)
{
    const v4l2_rect whole{0, 0, mode.width, mode.height};
    if (request == VIDIOC_CROPCAP) {
        auto& crop = As<v4l2_cropcap>(argument);
        if (crop.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
            return -EINVAL;
        }
        crop.bounds = crop.defrect = whole;
        crop.pixelaspect = {1, 1};
        return 0;
    }
    auto& selection = As<v4l2_selection>(argument);
    const uint32_t target = selection.target;
    if (selection.type != V4L2_BUF_TYPE_VIDEO_CAPTURE ||
        (target != V4L2_SEL_TGT_CROP_DEFAULT && target != V4L2_SEL_TGT_CROP_BOUNDS &&
         target != V4L2_SEL_TGT_COMPOSE_DEFAULT && target != V4L2_SEL_TGT_COMPOSE_BOUNDS)) {
        return -EINVAL;
    }
    selection.r = whole;
    return 0;
}

// Only events of controls can be subscribed, and none ever comes.
int Camera::Event_Request(uint32_t request, const void* argument)
{
    if (request == VIDIOC_SUBSCRIBE_EVENT) {
        return static_cast<const v4l2_event_subscription*>(argument)->type == V4L2_EVENT_CTRL ? 0 : -EINVAL;
    }
    return request == VIDIOC_DQEVENT ? -ENOENT : 0;
}

int Camera::Format_Request(Open_File& file, uint32_t request, v4l2_format& format)
{
    if (format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
        return -EINVAL;
    }
    if (request == VIDIOC_G_FMT) {
        Fill_Format(mode, format.fmt.pix);
        return 0;
    }
    if (request == VIDIOC_S_FMT && (!Acquire(file) || queue.Has_Buffers())) {
        return -EBUSY;
    }
    const v4l2_pix_format& wanted = format.fmt.pix;
    const Video_Mode nearest = Nearest_Mode(description.formats, wanted.pixelformat, wanted.width, wanted.height);
    Fill_Format(nearest, format.fmt.pix);
    if (request == VIDIOC_S_FMT) {
        mode = nearest;
    }
    return 0;
}

int Camera::Parameter_Request(Open_File& file, uint32_t request, v4l2_streamparm& parameters)
{
    if (parameters.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
        return -EINVAL;
    }
    if (request == VIDIOC_S_PARM) {
        if (!Acquire(file) || queue.Is_Streaming()) {
            return -EBUSY;
        }
        mode.interval = Nearest_Interval(mode.size, parameters.parm.capture.timeperframe);
    }
    parameters = v4l2_streamparm{};
    parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    parameters.parm.capture.capability = V4L2_CAP_TIMEPERFRAME;
    parameters.parm.capture.timeperframe = mode.interval;
    return 0;
}

int Camera::Buffer_Request(Guard& lock, Open_File& file, int fd, uint32_t request, void* argument)
{
    if (request == VIDIOC_REQBUFS) {
        return Request_Buffers(file, As<v4l2_requestbuffers>(argument));
    }
    if (owner != &file) {
        return -EBUSY;
    }
    switch (request) {
        case VIDIOC_QUERYBUF:
            return queue.Query(As<v4l2_buffer>(argument));
        case VIDIOC_QBUF:
            return queue.Queue(As<v4l2_buffer>(argument), Now());
        case VIDIOC_DQBUF:
            return Dequeue(lock, file, fd, As<v4l2_buffer>(argument));
        case VIDIOC_STREAMON:
            return Start(As<int>(argument));
        default:
            if (As<int>(argument) == V4L2_BUF_TYPE_VIDEO_CAPTURE) {
                queue.Stop();
            }
            return As<int>(argument) == V4L2_BUF_TYPE_VIDEO_CAPTURE ? 0 : -EINVAL;
    }
}

int Camera::Request_Buffers(Open_File& file, v4l2_requestbuffers& buffers)
{
    if (buffers.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
        return -EINVAL;
    }
    if (!Acquire(file)) {
        return -EBUSY;
    }
    if (buffers.memory != V4L2_MEMORY_MMAP) {
        return -EINVAL;
    }
    if (queue.Is_Streaming() || (waits_in_dequeue && buffers.count > 0)) {
        return -EBUSY;
    }
    buffers.capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP | V4L2_BUF_CAP_SUPPORTS_ORPHANED_BUFS;
    buffers.flags = 0;
    if (buffers.count == 0) {
        queue.Free();
        owner = nullptr;
        return 0;
    }
    buffers.count = queue.Allocate(std::min(buffers.count, Most_Buffers), Image_Size(mode));
    return buffers.count == 0 ? -ENOMEM : 0;
}

int Camera::Start(int type)
{
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
        return -EINVAL;
    }
    if (!queue.Is_Streaming() && queue.Has_Buffers()) {
        frames.Set_Mode(mode);
    }
    return queue.Start(mode.interval, &frames, Now());
}

int Camera::Dequeue(Guard& lock, Open_File& file, int fd, v4l2_buffer& buffer)
{
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
        return -EINVAL;
    }
    if (const int error = Wait_For_Frame(lock, file, fd)) {
        return error;
    }
    queue.Dequeue(buffer);
    return 0;
}

int Camera::Wait_For_Frame(Guard& lock, Open_File& file, int fd)
{
    if (waits_in_dequeue) {
        return -EBUSY;
    }
    while (!queue.Is_Done()) {
        if (unplugged) {
            return -ENODEV;
        }
        if (!queue.Is_Streaming()) {
            return -EINVAL;
        }
        if ((fcntl(fd, F_GETFL) & O_NONBLOCK) != 0) {
            return -EAGAIN;
        }
        // Ready for select does not mean that there is a frame: before the first QBUF the timer must not spin here.
        const Time due = queue.Ready_At();
        const Time wanted = due == At_Once ? Never : due;
        if (file.armed != wanted) {
            Arm_Timer(fd, wanted, false);
            file.armed = wanted;
        }
        waits_in_dequeue = true;
        lock.unlock();
        const int error = Wait_For_Timer(fd);
        lock.lock();
        waits_in_dequeue = false;
        file.armed = Never;  // reading the timer has consumed its being due
        if (error) {
            return error;
        }
        Pass_Time();
    }
    return 0;
}

}  // namespace virtual_camera
