// Opens, maps, closes and unplugs a camera, and keeps its timers set.
#include "driver/camera.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <utility>

#include "script/request_log.h"
#include "system/real_calls.h"

namespace virtual_camera {
Camera::Visit::~Visit()
{
    camera.Arm_Timers();
    const bool tells = camera.unplugged && !std::exchange(camera.unplugging_told, camera.unplugged);
    lock.unlock();
    if (tells) {
        camera.on_unplugged();
    }
}

Camera::Camera(Camera_Description described, std::function<void()> unplugged_hook)
    : description(std::move(described)),
      on_unplugged(std::move(unplugged_hook)),
      controls(description.controls),
      video(V4L2_BUF_TYPE_VIDEO_CAPTURE, description.orphans_buffers),
      metadata(V4L2_BUF_TYPE_META_CAPTURE, description.orphans_buffers),
      schedule(description, video, metadata),
      frames(description, script),
      mode(Nearest_Mode(description.formats, description.formats.front().fourcc,
                        description.formats.front().sizes.front().width,
                        description.formats.front().sizes.front().height))
{
    for (const Refusal& refusal : description.refusals) {
        script.faults.Add(refusal.request, {.error = refusal.error}, refusal.times);
    }
}

int Camera::Open(const std::shared_ptr<Open_File>& file, int flags)
{
    const Visit visit(*this);
    if (unplugged) {
        return -ENOENT;
    }
    const int fd = file->ready.Open(flags, script.descriptor_minimum);
    if (fd < 0) {
        return fd;
    }
    file->armed = At_Once;
    file->descriptors.push_back(fd);
    file->references = 1;
    files.push_back(file);
    return fd;
}

void Camera::Add_Descriptor(Open_File& file, int fd)
{
    const Visit visit(*this);
    file.descriptors.push_back(fd);
    file.references++;
}

void Camera::Remove_Descriptor(const std::shared_ptr<Open_File>& file, int fd)
{
    const Visit visit(*this);
    std::erase(file->descriptors, fd);
    Release(*file);
}

// When the last reference goes, a file that owns the buffers stops the stream and frees them.
void Camera::Release(Open_File& file)
{
    if (--file.references > 0) {
        return;
    }
    if (Owner_Of(file) == &file) {
        Queue_Of(file).Free();
        Owner_Of(file) = nullptr;
    }
    files.remove_if([&file](const auto& other) { return other.get() == &file; });
}

bool Camera::Acquire(Open_File& file)
{
    Open_File*& present = Owner_Of(file);
    present = present ? present : &file;
    return present == &file;
}

void Camera::Pass_Time()
{
    if (unplugged) {
        return;
    }
    schedule.Advance(Now());
    if (schedule.Is_Lost()) {
        Set_Unplugged();
    }
}

void Camera::Set_Unplugged()
{
    unplugged = true;
    video.Abort();
    metadata.Abort();
}

Time Camera::Ready_At(const Open_File& file)
{
    const Buffer_Queue& queue = Queue_Of(file);
    if (unplugged || queue.Readiness() != 0) {
        return At_Once;
    }
    return file.is_metadata && !queue.Has_Queued() ? Never : schedule.Next_Event();
}

void Camera::Arm_Timers()
{
    for (const auto& file : files) {
        file->ready.Signal(unplugged || file->events.Has_Pending());
        const Time wanted = Ready_At(*file);
        const bool fired = wanted == At_Once && file->armed != Never && file->armed <= Now();
        if (file->armed != wanted && !fired && !file->descriptors.empty()) {
            file->ready.Arm(wanted, !Queue_Of(*file).waits_in_dequeue);
            file->armed = wanted;
        }
    }
}

Answer Camera::Answer_Request(Open_File& file, int fd, uint32_t request, void* argument)
{
    const auto fault = script.faults.Take(request);
    int result = 0;
    if (!fault || fault->perform) {
        Visit visit(*this);
        Call call{visit, file, fd, request, argument};
        result = unplugged ? -ENODEV : Perform(call);
    }
    Answer answer{result < 0 ? -1 : result, result < 0 ? -result : 0};
    if (fault) {
        answer = {fault->result, fault->error};
    } else if (result >= 0) {
        if (const auto change = script.alterations.Take(request)) {
            (*change)(argument);
        }
    }
    if (Is_Logging()) {
        Log_Entry entry = Call_Entry(request, file.node, fd, answer.result, answer.error);
        if (argument && Rule_Of(request)) {
            std::copy_n(static_cast<const uint8_t*>(argument), _IOC_SIZE(request), entry.argument.begin());
        }
        Append_To_Log(std::move(entry));
    }
    return answer;
}

short Camera::Poll(Open_File& file, short events)
{
    const Visit visit(*this);
    int ready = unplugged ? POLLERR | POLLHUP | POLLPRI : 0;
    if (!unplugged && file.events.Has_Pending()) {
        ready |= POLLPRI;
    }
    if (!unplugged && (events & (POLLIN | POLLRDNORM)) != 0) {
        ready |= Queue_Of(file).Readiness();
    }
    return static_cast<short>(ready & (events | POLLERR | POLLHUP));
}

int Camera::Event_Descriptor(Open_File& file)
{
    const Visit visit(*this);
    return file.ready.Signal_Descriptor();
}

void* Camera::Map(const std::shared_ptr<Open_File>& file, void* address, size_t length, int protection, int flags,
                  int64_t offset, Mapping& mapping)
{
    const Visit visit(*this);
    const Buffer_Queue& queue = Queue_Of(*file);
    const bool shared = (flags & MAP_TYPE) == MAP_SHARED || (flags & MAP_TYPE) == MAP_SHARED_VALIDATE;
    const int found = offset < 0 ? -1 : queue.Index_At(static_cast<uint64_t>(offset));
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE)), index = static_cast<size_t>(found);
    errno = unplugged ? ENODEV : EINVAL;
    if (unplugged || !shared || (protection & PROT_READ) == 0 || found < 0 ||
        length > (queue.At(index).length + page - 1) / page * page) {
        return MAP_FAILED;
    }
    mapping = {file, queue.At(index).memory, 0};
    void* mapped = real::Mmap(address, length, protection, flags, mapping.memory->Descriptor(), 0);
    file->references += mapped == MAP_FAILED ? 0 : 1;
    return mapped;
}

void Camera::Unmap(const std::shared_ptr<Open_File>& file)
{
    const Visit visit(*this);
    Release(*file);
}

void Camera::Unplug()
{
    const Visit visit(*this);
    Set_Unplugged();
}

bool Camera::Is_Unplugged()
{
    const Visit visit(*this);
    return unplugged;
}

void Camera::Direct(const std::function<void(Frame_Schedule&)>& change)
{
    const Visit visit(*this);
    change(schedule);
    Pass_Time();
}

std::vector<uint8_t> Camera::Frame_Bytes(uint32_t sequence)
{
    const Visit visit(*this);
    frames.Set_Mode(mode);
    return frames.Frame_Bytes(sequence);
}

// The child's new descriptors replace the inherited ones under the same numbers.
void Camera::Replace_Timers()
{
    for (const auto& file : files) {
        if (file->descriptors.empty()) {
            continue;
        }
        const int own = file->ready.Open(fcntl(file->descriptors.front(), F_GETFL), 0);
        for (size_t i = 0; own >= 0 && i < file->descriptors.size(); i++) {
            const int descriptor_flags = fcntl(file->descriptors[i], F_GETFD);
            (void)real::Dup3(own, file->descriptors[i], (descriptor_flags & FD_CLOEXEC) != 0 ? O_CLOEXEC : 0);
        }
        real::Close(own);
        file->armed = At_Once;
    }
    Arm_Timers();
}

}  // namespace virtual_camera
