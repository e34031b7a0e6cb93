// Keeps the log, and copies what tests read from the arguments of requests.
#include "script/request_log.h"

#include <atomic>
#include <mutex>

namespace virtual_camera {
namespace {

std::atomic<bool> logging{false};
std::mutex log_mutex;

std::vector<Log_Entry>& Entries()
{
    static auto* entries = new std::vector<Log_Entry>;  // outlives every user
    return *entries;
}

template <typename Type>
const Type& As(const void* argument)
{
    return *static_cast<const Type*>(argument);
}

bool Describe_Enumeration(uint32_t request, const void* argument, Log_Entry& entry)
{
    if (request == VIDIOC_ENUM_FMT) {
        entry.type = As<v4l2_fmtdesc>(argument).type;
        entry.index = As<v4l2_fmtdesc>(argument).index;
        entry.pixel_format = As<v4l2_fmtdesc>(argument).pixelformat;
    } else if (request == VIDIOC_ENUM_FRAMESIZES) {
        entry.index = As<v4l2_frmsizeenum>(argument).index;
        entry.pixel_format = As<v4l2_frmsizeenum>(argument).pixel_format;
    } else if (request == VIDIOC_ENUM_FRAMEINTERVALS) {
        const auto& interval = As<v4l2_frmivalenum>(argument);
        entry.index = interval.index;
        entry.pixel_format = interval.pixel_format;
        entry.width = interval.width;
        entry.height = interval.height;
    } else if (request == VIDIOC_G_CTRL || request == VIDIOC_S_CTRL) {
        entry.id = As<v4l2_control>(argument).id;
        entry.value = As<v4l2_control>(argument).value;
    } else if (request == VIDIOC_QUERYCTRL) {
        entry.id = As<v4l2_queryctrl>(argument).id;
    } else {
        return false;
    }
    return true;
}

}  // namespace

bool Is_Logging()
{
    return logging.load(std::memory_order_relaxed);
}

Log_Entry Call_Entry(uint32_t call, const std::string& node, int fd, int result, int error)
{
    Log_Entry entry;
    entry.request = call;
    entry.node = node;
    entry.fd = fd;
    entry.result = result;
    entry.error = error;
    return entry;
}

void Append_To_Log(Log_Entry entry)
{
    entry.name = Request_Name(entry.request);
    const std::lock_guard lock(log_mutex);
    Entries().push_back(std::move(entry));
}

void Describe_Argument(uint32_t request, const void* argument, Log_Entry& entry)
{
    if (!argument || Describe_Enumeration(request, argument, entry)) {
        return;
    }
    if (request == VIDIOC_QBUF || request == VIDIOC_DQBUF || request == VIDIOC_QUERYBUF) {
        const auto& buffer = As<v4l2_buffer>(argument);
        entry.type = buffer.type;
        entry.index = buffer.index;
        entry.memory = buffer.memory;
        entry.bytes_used = buffer.bytesused;
        entry.sequence = buffer.sequence;
        entry.offset = buffer.m.offset;
        entry.length = buffer.length;
    } else if (request == VIDIOC_S_FMT || request == VIDIOC_G_FMT || request == VIDIOC_TRY_FMT) {
        const auto& format = As<v4l2_format>(argument);
        entry.type = format.type;
        entry.pixel_format = format.fmt.pix.pixelformat;
        entry.width = format.fmt.pix.width;
        entry.height = format.fmt.pix.height;
        entry.length = format.fmt.pix.sizeimage;
    } else if (request == VIDIOC_S_PARM || request == VIDIOC_G_PARM) {
        entry.type = As<v4l2_streamparm>(argument).type;
        entry.interval = As<v4l2_streamparm>(argument).parm.capture.timeperframe;
    } else if (request == VIDIOC_REQBUFS) {
        entry.type = As<v4l2_requestbuffers>(argument).type;
        entry.count = As<v4l2_requestbuffers>(argument).count;
        entry.memory = As<v4l2_requestbuffers>(argument).memory;
    } else if (request == VIDIOC_STREAMON || request == VIDIOC_STREAMOFF) {
        entry.type = As<uint32_t>(argument);
    }
}

void Start_Log()
{
    Clear_Log();
    logging = true;
}

std::vector<Log_Entry> Log()
{
    const std::lock_guard lock(log_mutex);
    return Entries();
}

void Clear_Log()
{
    const std::lock_guard lock(log_mutex);
    Entries().clear();
}

void Stop_Log()
{
    logging = false;
    Clear_Log();
}

std::string Log_Names()
{
    std::string names;
    for (const Log_Entry& entry : Log()) {
        names += (names.empty() ? "" : " ") + entry.name;
    }
    return names;
}

}  // namespace virtual_camera
