#include "driver/camera.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "script/request_log.h"
#include "system/node_timer.h"
#include "system/real_calls.h"

namespace virtual_camera {
namespace {

Delivery_Plan Plan_Of(const Camera_Description& description)
{
    Delivery_Plan plan;
    plan.max_rate = description.max_rate;
    plan.unplug_after_frames = description.unplug_after_frames;
    plan.unplug_after = static_cast<Time>(description.unplug_after_seconds * static_cast<double>(Second));
    plan.pause_after_frames = description.pause_after_frames;
    plan.pause = static_cast<Time>(description.pause_seconds * static_cast<double>(Second));
    return plan;
}

}  // namespace

Camera::Camera(Camera_Description described)
    : description(std::move(described)),
      controls(description.controls),
      queue(Plan_Of(description)),
      frames(description, script),
      mode(Nearest_Mode(description.formats, description.formats.front().fourcc,
                        description.formats.front().sizes.front().width,
                        description.formats.front().sizes.front().height))
{
    for (const Refusal& refusal : description.refusals) {
        script.Add_Fault(refusal.request, {refusal.error, -1, refusal.times, 0, false});
    }
}

int Camera::Open(const std::shared_ptr<Open_File>& file, int flags)
{
    const Guard lock(mutex);
    Pass_Time();
    if (unplugged) {
        return -ENOENT;
    }
    const int fd = Make_Timer(flags, script.Descriptor_Minimum());
    if (fd < 0) {
        return fd;
    }
    file->armed = At_Once;
    file->descriptors.push_back(fd);
    file->references = 1;
    files.push_back(file);
    Arm_Timers();
    return fd;
}

void Camera::Add_Descriptor(Open_File& file, int fd)
{
    const Guard lock(mutex);
    file.descriptors.push_back(fd);
    file.references++;
}

void Camera::Remove_Descriptor(const std::shared_ptr<Open_File>& file, int fd)
{
    const Guard lock(mutex);
    Pass_Time();
    std::erase(file->descriptors, fd);
    Release(*file);
    Arm_Timers();
}

// The last reference ends the stream and frees the buffers, if they are this file's.
void Camera::Release(Open_File& file)
{
    if (--file.references > 0) {
        return;
    }
    if (owner == &file) {
        queue.Free();
        owner = nullptr;
    }
    files.remove_if([&file](const auto& other) { return other.get() == &file; });
}

bool Camera::Acquire(Open_File& file)
{
    if (!owner) {
        owner = &file;
    }
    return owner == &file;
}

void Camera::Pass_Time()
{
    if (unplugged) {
        return;
    }
    queue.Advance(Now());
    if (queue.Is_Lost()) {
        Set_Unplugged();
    }
}

void Camera::Set_Unplugged()
{
    unplugged = true;
    queue.Abort();
}

void Camera::Arm_Timers()
{
    const Time ready = unplugged ? At_Once : queue.Ready_At();
    for (const auto& file : files) {
        const Time wanted = file->is_metadata && !unplugged ? At_Once : ready;
        const bool fired = wanted == At_Once && file->armed != Never && file->armed <= Now();
        if (file->armed != wanted && !fired && !file->descriptors.empty()) {
            Arm_Timer(file->descriptors.front(), wanted, !waits_in_dequeue);
            file->armed = wanted;
        }
    }
}

Answer Camera::Request(Open_File& file, int fd, uint32_t request, void* argument)
{
    const auto fault = script.Take_Fault(request);
    int result = 0;
    if (!fault || fault->perform) {
        Guard lock(mutex);
        Pass_Time();
        result = unplugged ? -ENODEV : Perform(lock, file, fd, request, argument);
        Arm_Timers();
    }
    Answer answer{result < 0 ? -1 : result, result < 0 ? -result : 0};
    if (fault) {
        answer = {fault->result, fault->error};
    } else if (result >= 0) {
        if (const auto change = script.Take_Alteration(request)) {
            change(argument);
        }
    }
    if (Is_Logging()) {
        Log_Entry entry;
        entry.request = request;
        entry.node = file.node;
        entry.fd = fd;
        entry.result = answer.result;
        entry.error = answer.error;
        Describe_Argument(request, argument, entry);
        Append_To_Log(std::move(entry));
    }
    return answer;
}

Camera::Mapped Camera::Map(Open_File& file, void* address, size_t length, int protection, int flags, off_t offset)
{
    const Guard lock(mutex);
    Pass_Time();
    if (unplugged) {
        return {MAP_FAILED, ENODEV, nullptr, 0};
    }
    const bool shared = (flags & MAP_TYPE) == MAP_SHARED || (flags & MAP_TYPE) == MAP_SHARED_VALIDATE;
    const int index = offset < 0 ? -1 : queue.Index_At(static_cast<uint64_t>(offset));
    const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    if (file.is_metadata || !shared || (protection & PROT_READ) == 0 || index < 0 ||
        length > (queue.Length() + page - 1) / page * page) {
        return {MAP_FAILED, EINVAL, nullptr, 0};
    }
    void* mapped = real::Mmap(address, length, protection, flags, queue.Memory()->Descriptor(), offset);
    if (mapped == MAP_FAILED) {
        return {MAP_FAILED, errno, nullptr, 0};
    }
    file.references++;
    queue.Add_Mapping(static_cast<uint32_t>(index));
    return {mapped, 0, queue.Memory(), static_cast<uint32_t>(index)};
}

void Camera::Unmap(const std::shared_ptr<Open_File>& file, const Buffer_Memory* memory, uint32_t index)
{
    const Guard lock(mutex);
    Pass_Time();
    queue.Remove_Mapping(memory, index);
    Release(*file);
    Arm_Timers();
}

void Camera::Unplug()
{
    const Guard lock(mutex);
    Pass_Time();
    Set_Unplugged();
    Arm_Timers();
}

bool Camera::Is_Unplugged()
{
    const Guard lock(mutex);
    return unplugged;
}

void Camera::Hold_Frames()
{
    const Guard lock(mutex);
    Pass_Time();
    queue.Hold();
    Arm_Timers();
}

void Camera::Deliver_Frames(uint32_t count)
{
    const Guard lock(mutex);
    Pass_Time();
    queue.Deliver(count);
    Pass_Time();
    Arm_Timers();
}

void Camera::Resume_Frames()
{
    const Guard lock(mutex);
    Pass_Time();
    queue.Resume(Now());
    Pass_Time();
    Arm_Timers();
}

void Camera::Delay_Frames(Time time)
{
    const Guard lock(mutex);
    Pass_Time();
    queue.Delay(time);
    Arm_Timers();
}

std::vector<uint8_t> Camera::Frame_Bytes(uint32_t sequence)
{
    const Guard lock(mutex);
    frames.Set_Mode(mode);
    return frames.Frame_Bytes(sequence);
}

// The child's timers take the numbers of the inherited ones, which belong to the parent.
void Camera::Replace_Timers()
{
    for (const auto& file : files) {
        if (file->descriptors.empty()) {
            continue;
        }
        const int own = Make_Timer(fcntl(file->descriptors.front(), F_GETFL), 0);
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
