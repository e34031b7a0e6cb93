// Answers the requests of a node by the rules of the kernel's UVC driver. One table lists them all.
#include <fcntl.h>
#include <algorithm>
#include <array>
#include <cerrno>

#include "driver/camera.h"

namespace virtual_camera {

template <typename Argument, int (*Ask)(const std::vector<Pixel_Format>&, Argument&)>
int Camera::Of_Formats(Call& call)
{
    return Ask(description.formats, call.As<Argument>());
}

template <typename Argument, int (Control_Set::*Ask)(Argument&) const>
int Camera::Of_Controls(Call& call)
{
    return (controls.*Ask)(call.As<Argument>());
}

const Camera::Rule* Camera::Rule_Of(uint32_t request)
{
    static constexpr std::array Rules{
        Rule{VIDIOC_QUERYCAP, &Camera::Query_Capability, &Camera::Query_Capability},
        Rule{VIDIOC_G_PRIORITY, &Camera::Priority, &Camera::Priority},
        Rule{VIDIOC_S_PRIORITY, &Camera::Priority, &Camera::Priority, true},
        Rule{VIDIOC_ENUM_FMT, &Camera::Of_Formats<v4l2_fmtdesc, Enumerate_Format>, &Camera::Metadata_Format},
        Rule{VIDIOC_ENUM_FRAMESIZES, &Camera::Of_Formats<v4l2_frmsizeenum, Enumerate_Size>, nullptr},
        Rule{VIDIOC_ENUM_FRAMEINTERVALS, &Camera::Of_Formats<v4l2_frmivalenum, Enumerate_Interval>, nullptr},
        Rule{VIDIOC_G_FMT, &Camera::Format, &Camera::Metadata_Format},
        Rule{VIDIOC_S_FMT, &Camera::Format, &Camera::Metadata_Format, true},
        Rule{VIDIOC_TRY_FMT, &Camera::Format, &Camera::Metadata_Format},
        Rule{VIDIOC_G_PARM, &Camera::Parameters, nullptr},
        Rule{VIDIOC_S_PARM, &Camera::Parameters, nullptr, true},
        Rule{VIDIOC_ENUMINPUT, &Camera::Input, nullptr},
        Rule{VIDIOC_G_INPUT, &Camera::Input, nullptr},
        Rule{VIDIOC_S_INPUT, &Camera::Input, nullptr, true},
        Rule{VIDIOC_CROPCAP, &Camera::Crop, nullptr},
        Rule{VIDIOC_G_SELECTION, &Camera::Crop, nullptr},
        Rule{VIDIOC_QUERYCTRL, &Camera::Of_Controls<v4l2_queryctrl, &Control_Set::Query>, nullptr},
        Rule{VIDIOC_QUERY_EXT_CTRL, &Camera::Of_Controls<v4l2_query_ext_ctrl, &Control_Set::Query_Extended>, nullptr},
        Rule{VIDIOC_QUERYMENU, &Camera::Of_Controls<v4l2_querymenu, &Control_Set::Query_Menu>, nullptr},
        Rule{VIDIOC_G_CTRL, &Camera::Of_Controls<v4l2_control, &Control_Set::Get>, nullptr},
        Rule{VIDIOC_S_CTRL, &Camera::Set_Control, nullptr, true},
        Rule{VIDIOC_G_EXT_CTRLS, &Camera::Control_List, nullptr},
        Rule{VIDIOC_S_EXT_CTRLS, &Camera::Control_List, nullptr, true},
        Rule{VIDIOC_TRY_EXT_CTRLS, &Camera::Control_List, nullptr},
        Rule{VIDIOC_SUBSCRIBE_EVENT, &Camera::Subscribe, nullptr},
        Rule{VIDIOC_UNSUBSCRIBE_EVENT, &Camera::Subscribe, nullptr},
        Rule{VIDIOC_DQEVENT, &Camera::Dequeue_Event, nullptr},
        Rule{VIDIOC_REQBUFS, &Camera::Request_Buffers, &Camera::Request_Buffers, true},
        Rule{VIDIOC_CREATE_BUFS, &Camera::Request_Buffers, &Camera::Request_Buffers, true},
        Rule{VIDIOC_QUERYBUF, &Camera::Use_Buffers, &Camera::Use_Buffers},
        Rule{VIDIOC_QBUF, &Camera::Use_Buffers, &Camera::Use_Buffers},
        Rule{VIDIOC_DQBUF, &Camera::Use_Buffers, &Camera::Use_Buffers},
        Rule{VIDIOC_EXPBUF, &Camera::Use_Buffers, nullptr},
        Rule{VIDIOC_STREAMON, &Camera::Use_Buffers, &Camera::Use_Buffers, true},
        Rule{VIDIOC_STREAMOFF, &Camera::Use_Buffers, &Camera::Use_Buffers, true},
    };
    const auto found =
        std::find_if(Rules.begin(), Rules.end(), [request](const Rule& rule) { return rule.request == request; });
    return found == Rules.end() ? nullptr : &*found;
}

// The kernel reads the argument before it looks the request up, and writes it only after a known request.
int Camera::Perform(Call& call)
{
    if (!call.argument && (_IOC_DIR(call.request) & _IOC_WRITE) != 0) {
        return -EFAULT;
    }
    const Rule* rule = Rule_Of(call.request);
    const auto handler = !rule ? nullptr : call.file.is_metadata ? rule->on_metadata : rule->on_capture;
    if (!handler) {
        return -ENOTTY;
    }
    if (!call.argument) {
        return -EFAULT;
    }
    if (rule->needs_priority && call.file.priority < Highest_Priority()) {
        return -EBUSY;
    }
    return (this->*handler)(call);
}

int Camera::Query_Capability(Call& call)
{
    constexpr uint32_t Driver_Version = 6 << 16 | 1 << 8;
    constexpr uint32_t Common = V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
    auto& capability = call.As<v4l2_capability>();
    capability = v4l2_capability{};
    Copy_Text(capability.driver, description.driver);
    Copy_Text(capability.card, description.card);
    Copy_Text(capability.bus_info, description.bus_info);
    capability.version = Driver_Version;
    const uint32_t all = V4L2_CAP_VIDEO_CAPTURE | (description.has_metadata ? V4L2_CAP_META_CAPTURE : 0U);
    capability.capabilities = all | Common | V4L2_CAP_DEVICE_CAPS;
    capability.device_caps = (call.file.is_metadata ? V4L2_CAP_META_CAPTURE : V4L2_CAP_VIDEO_CAPTURE) | Common;
    return 0;
}

uint32_t Camera::Highest_Priority() const
{
    uint32_t highest = V4L2_PRIORITY_UNSET;
    for (const auto& file : files) {
        highest = std::max(highest, file->priority);
    }
    return highest;
}

int Camera::Priority(Call& call)
{
    auto& priority = call.As<uint32_t>();
    if (call.request == VIDIOC_G_PRIORITY) {
        priority = Highest_Priority();
        return 0;
    }
    if (priority == V4L2_PRIORITY_UNSET || priority > V4L2_PRIORITY_RECORD) {
        return -EINVAL;
    }
    call.file.priority = priority;
    return 0;
}

int Camera::Format(Call& call)
{
    auto& format = call.As<v4l2_format>();
    if (format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
        return -EINVAL;
    }
    if (call.request == VIDIOC_G_FMT) {
        Fill_Format(mode, format.fmt.pix);
        return 0;
    }
    if (call.request == VIDIOC_S_FMT && (!Acquire(call.file) || video.Has_Buffers())) {
        return -EBUSY;
    }
    const v4l2_pix_format& wanted = format.fmt.pix;
    const Video_Mode nearest = Nearest_Mode(description.formats, wanted.pixelformat, wanted.width, wanted.height);
    Fill_Format(nearest, format.fmt.pix);
    if (call.request == VIDIOC_S_FMT) {
        mode = nearest;
    }
    return 0;
}

// There is one metadata format. Like uvcvideo, this refuses to set it while buffers exist.
int Camera::Metadata_Format(Call& call)
{
    if (call.request == VIDIOC_ENUM_FMT) {
        auto& entry = call.As<v4l2_fmtdesc>();
        if (entry.type != V4L2_BUF_TYPE_META_CAPTURE || entry.index > 0) {
            return -EINVAL;
        }
        entry = v4l2_fmtdesc{};
        entry.type = V4L2_BUF_TYPE_META_CAPTURE;
        entry.pixelformat = V4L2_META_FMT_UVC;
        Copy_Text(entry.description, "UVC Payload Header Metadata");
        return 0;
    }
    auto& format = call.As<v4l2_format>();
    if (format.type != V4L2_BUF_TYPE_META_CAPTURE) {
        return -EINVAL;
    }
    format.fmt.meta = {};
    format.fmt.meta.dataformat = V4L2_META_FMT_UVC;
    format.fmt.meta.buffersize = Metadata_Bytes;
    return call.request == VIDIOC_S_FMT && metadata.Has_Buffers() ? -EBUSY : 0;
}

int Camera::Parameters(Call& call)
{
    auto& parameters = call.As<v4l2_streamparm>();
    if (parameters.type != V4L2_BUF_TYPE_VIDEO_CAPTURE) {
        return -EINVAL;
    }
    if (call.request == VIDIOC_S_PARM) {
        if (!Acquire(call.file) || video.Is_Streaming()) {
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

int Camera::Input(Call& call)
{
    if (call.request == VIDIOC_G_INPUT) {
        call.As<int>() = 0;
        return 0;
    }
    if (call.request == VIDIOC_S_INPUT) {
        if (!Acquire(call.file)) {
            return -EBUSY;
        }
        return call.As<int>() == 0 ? 0 : -EINVAL;
    }
    auto& input = call.As<v4l2_input>();
    if (input.index != 0) {
        return -EINVAL;
    }
    input = v4l2_input{};
    input.type = V4L2_INPUT_TYPE_CAMERA;
    Copy_Text(input.name, "Camera 1");
    return 0;
}

// Here the kernel accepts the multi-planar buffer type as well.
int Camera::Crop(Call& call)
{
    const auto is_capture = [](uint32_t type) {
        return type == V4L2_BUF_TYPE_VIDEO_CAPTURE || type == V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE;
    };
    const v4l2_rect whole{0, 0, mode.width, mode.height};
    if (call.request == VIDIOC_CROPCAP) {
        auto& crop = call.As<v4l2_cropcap>();
        if (!is_capture(crop.type)) {
            return -EINVAL;
        }
        crop.bounds = crop.defrect = whole;
        crop.pixelaspect = {1, 1};
        return 0;
    }
    auto& selection = call.As<v4l2_selection>();
    constexpr std::array Targets{V4L2_SEL_TGT_CROP_DEFAULT, V4L2_SEL_TGT_CROP_BOUNDS, V4L2_SEL_TGT_COMPOSE_DEFAULT,
                                 V4L2_SEL_TGT_COMPOSE_BOUNDS};
    if (!is_capture(selection.type) || std::count(Targets.begin(), Targets.end(), selection.target) == 0) {
        return -EINVAL;
    }
    selection.r = whole;
    return 0;
}

// Sends events for changed controls, and for controls that these make active or inactive.
void Camera::Announce(const Open_File& origin, std::span<const v4l2_ext_control> changed)
{
    const auto tell = [this, &origin](uint32_t id, uint32_t changes) {
        const auto event = controls.Event(id, changes);
        for (const auto& file : files) {
            if (event && file->events.Wants(id, file.get() == &origin)) {
                file->events.Push(*event);
            }
        }
    };
    const auto is_changed = [&changed](uint32_t id) {
        return std::any_of(changed.begin(), changed.end(), [id](const v4l2_ext_control& one) { return one.id == id; });
    };
    for (const v4l2_ext_control& one : changed) {
        for (uint32_t ruled : controls.Ruled_By(one.id)) {
            if (!is_changed(ruled)) {
                tell(ruled, V4L2_EVENT_CTRL_CH_FLAGS);
            }
        }
        tell(one.id, V4L2_EVENT_CTRL_CH_VALUE);
    }
}

int Camera::Set_Control(Call& call)
{
    auto& control = call.As<v4l2_control>();
    v4l2_ext_control entry{};
    entry.id = control.id;
    entry.value = control.value;
    v4l2_ext_controls list{};
    list.count = 1;
    list.controls = &entry;
    const int error = controls.Extended(VIDIOC_S_EXT_CTRLS, list);
    if (!error) {
        control.value = entry.value;
        Announce(call.file, {&entry, 1});
    }
    return error;
}

int Camera::Control_List(Call& call)
{
    auto& list = call.As<v4l2_ext_controls>();
    const int error = controls.Extended(call.request, list);
    if (!error && call.request == VIDIOC_S_EXT_CTRLS) {
        Announce(call.file, {list.controls, list.count});
    }
    return error;
}

int Camera::Subscribe(Call& call)
{
    const auto& wish = call.As<v4l2_event_subscription>();
    Event_Queue& events = call.file.events;
    if (call.request == VIDIOC_UNSUBSCRIBE_EVENT) {
        if (wish.type == V4L2_EVENT_ALL) {
            events.Unsubscribe_All();
        } else if (wish.type == V4L2_EVENT_CTRL) {
            events.Unsubscribe(wish.id);
        }
        return 0;
    }
    if (wish.type != V4L2_EVENT_CTRL || !controls.Has(wish.id)) {
        return -EINVAL;
    }
    const auto state = controls.Event(wish.id, V4L2_EVENT_CTRL_CH_VALUE | V4L2_EVENT_CTRL_CH_FLAGS);
    if (events.Subscribe(wish.id, wish.flags) && state && (wish.flags & V4L2_EVENT_SUB_FL_SEND_INITIAL) != 0) {
        events.Push(*state);
    }
    return 0;
}

// Waits without the lock. The reference keeps the file alive when another thread closes it meanwhile.
int Camera::Block(Call& call, int (Node_Descriptor::*wait)() const)
{
    call.file.references++;
    call.visit.Leave();
    const int error = (call.file.ready.*wait)();
    call.visit.Return();
    Release(call.file);
    return error;
}

int Camera::Dequeue_Event(Call& call)
{
    while (!call.file.events.Has_Pending()) {
        if (unplugged) {
            return -ENODEV;
        }
        if ((fcntl(call.fd, F_GETFL) & O_NONBLOCK) != 0) {
            return -ENOENT;
        }
        (void)call.file.ready.Signal_Descriptor();
        if (const int error = Block(call, &Node_Descriptor::Wait_For_Signal)) {
            return error;
        }
    }
    call.As<v4l2_event>() = call.file.events.Pop();
    return 0;
}

int Camera::Request_Buffers(Call& call)
{
    Buffer_Queue& queue = Queue_Of(call.file);
    const uint32_t length = call.file.is_metadata ? Metadata_Bytes : Image_Size(mode);
    const bool had_owner = Owner_Of(call.file) != nullptr;
    if (!Acquire(call.file)) {
        return -EBUSY;
    }
    const int error = call.request == VIDIOC_REQBUFS ? queue.Request(call.As<v4l2_requestbuffers>(), length)
                                                     : queue.Create(call.As<v4l2_create_buffers>(), length);
    const bool given_back = call.request == VIDIOC_REQBUFS && !error && !queue.Has_Buffers();
    if (given_back || (call.file.is_metadata && error && !had_owner)) {
        Owner_Of(call.file) = nullptr;
    }
    return error;
}

int Camera::Use_Buffers(Call& call)
{
    Buffer_Queue& queue = Queue_Of(call.file);
    const Open_File* present = Owner_Of(call.file);
    if (present != &call.file && (present || !call.file.is_metadata)) {
        return -EBUSY;
    }
    int error = 0;
    switch (call.request) {
        case VIDIOC_QUERYBUF:
            return queue.Query(call.As<v4l2_buffer>());
        case VIDIOC_DQBUF:
            return Dequeue(call);
        case VIDIOC_EXPBUF:
            return queue.Export(call.As<v4l2_exportbuffer>());
        case VIDIOC_STREAMOFF:
            return queue.Stop(call.As<uint32_t>());
        case VIDIOC_QBUF:
            error = queue.Queue(call.As<v4l2_buffer>());
            break;
        default:
            const bool starts = !queue.Is_Streaming();
            error = queue.Start(call.As<uint32_t>());
            if (!error && starts && !call.file.is_metadata) {
                frames.Set_Mode(mode);
                schedule.Start(mode.interval, &frames, Now());
            }
    }
    Pass_Time();
    return error;
}

int Camera::Dequeue(Call& call)
{
    auto& buffer = call.As<v4l2_buffer>();
    const bool is_ours =
        buffer.type == (call.file.is_metadata ? V4L2_BUF_TYPE_META_CAPTURE : V4L2_BUF_TYPE_VIDEO_CAPTURE);
    const int error = is_ours ? Wait_For_Frame(call) : -EINVAL;
    if (!error) {
        Queue_Of(call.file).Dequeue(buffer);
    }
    return error;
}

int Camera::Wait_For_Frame(Call& call)
{
    Buffer_Queue& queue = Queue_Of(call.file);
    if (queue.waits_in_dequeue) {
        return -EBUSY;
    }
    while (!queue.Is_Done()) {
        if (unplugged) {
            return -ENODEV;
        }
        if (!queue.Is_Streaming()) {
            return -EINVAL;
        }
        if ((fcntl(call.fd, F_GETFL) & O_NONBLOCK) != 0) {
            return -EAGAIN;
        }
        // Before the first QBUF, select reports an error state as ready. The timer must be off here, or this would
        // spin.
        const Time due = Ready_At(call.file);
        const Time wanted = due == At_Once ? Never : due;
        if (call.file.armed != wanted) {
            call.file.ready.Arm(wanted, false);
            call.file.armed = wanted;
        }
        queue.waits_in_dequeue = true;
        const int error = Block(call, &Node_Descriptor::Wait);
        queue.waits_in_dequeue = false;
        call.file.armed = Never;  // reading a timer switches it off
        if (error) {
            return error;
        }
    }
    return 0;
}

}  // namespace virtual_camera
