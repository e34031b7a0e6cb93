// The requests that allocate, pass and stream buffers, on the capture and on the metadata node.
#include <fcntl.h>
#include <cerrno>

#include "driver/camera.h"

namespace virtual_camera {

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
        // Ready for select does not mean that there is a frame: before the first QBUF the timer must not spin here.
        const Time due = Ready_At(call.file);
        const Time wanted = due == At_Once ? Never : due;
        if (call.file.armed != wanted) {
            call.file.ready.Arm(wanted, false);
            call.file.armed = wanted;
        }
        call.file.references++;
        queue.waits_in_dequeue = true;
        call.visit.Leave();
        const int error = call.file.ready.Wait();
        call.visit.Return();
        queue.waits_in_dequeue = false;
        Release(call.file);
        call.file.armed = Never;  // reading the timer has consumed its being due
        if (error) {
            return error;
        }
    }
    return 0;
}

}  // namespace virtual_camera
