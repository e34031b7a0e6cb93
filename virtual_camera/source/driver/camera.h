// One virtual camera: what its driver would know, and the answers that it would give.
#ifndef WQZ_VIRTUAL_CAMERA_CAMERA_H
#define WQZ_VIRTUAL_CAMERA_CAMERA_H

#include <list>
#include <mutex>
#include <string>

#include "driver/capture_queue.h"
#include "driver/control_set.h"
#include "driver/format_negotiation.h"
#include "driver/frame_maker.h"
#include "script/script.h"

namespace virtual_camera {

class Camera;

/// One successful open, as the kernel's struct file: it lives as long as a descriptor or a mapping refers to it.
struct Open_File {
    std::shared_ptr<Camera> camera;
    std::string node;
    bool is_metadata = false;

    // Guarded by the camera's lock.
    bool privileged = false;       // may change what the camera delivers; one at a time
    uint32_t references = 0;       // descriptors and mappings
    std::vector<int> descriptors;  // timers that make select wait; duplicates of each other
    Time armed = Never;            // what the timer is set to
};

struct Answer {
    int result = 0;
    int error = 0;
};

class Camera {
public:
    explicit Camera(Camera_Description described);

    const Camera_Description& Description() const { return description; }
    Script& Scripted() { return script; }

    /// Opens a node of the camera. @return the descriptor, or a negative errno
    int Open(const std::shared_ptr<Open_File>& file, int flags);
    void Add_Descriptor(Open_File& file, int fd);

    /// Called before the descriptor is closed.
    void Remove_Descriptor(const std::shared_ptr<Open_File>& file, int fd);

    Answer Request(Open_File& file, int fd, uint32_t request, void* argument);

    /// A mapping of a buffer; `memory` and `index` are for Unmap.
    struct Mapped {
        void* address = nullptr;  // MAP_FAILED with errno in `error`
        int error = 0;
        std::shared_ptr<Buffer_Memory> memory;
        uint32_t index = 0;
    };
    Mapped Map(Open_File& file, void* address, size_t length, int protection, int flags, off_t offset);
    void Unmap(const std::shared_ptr<Open_File>& file, const Buffer_Memory* memory, uint32_t index);

    void Unplug();
    bool Is_Unplugged();

    void Hold_Frames();
    void Deliver_Frames(uint32_t count);
    void Resume_Frames();
    void Delay_Frames(Time time);
    std::vector<uint8_t> Frame_Bytes(uint32_t sequence);

    // Around a fork: the child gets timers of its own, so that it does not rearm its parent's.
    void Lock()
    {
        mutex.lock();
        script.Lock();
    }
    void Unlock()
    {
        script.Unlock();
        mutex.unlock();
    }
    void Replace_Timers();

private:
    using Guard = std::unique_lock<std::mutex>;

    int Perform(Guard& lock, Open_File& file, int fd, uint32_t request, void* argument);
    int Perform_On_Metadata(uint32_t request, void* argument);
    int Enumerate(uint32_t request, void* argument);
    int Control_Request(uint32_t request, void* argument);
    int Capability(const Open_File& file, v4l2_capability& capability) const;
    int Input_Request(Open_File& file, uint32_t request, void* argument);
    int Crop_Request(uint32_t request, void* argument);
    int Event_Request(uint32_t request, const void* argument);

    int Format_Request(Open_File& file, uint32_t request, v4l2_format& format);
    int Parameter_Request(Open_File& file, uint32_t request, v4l2_streamparm& parameters);

    int Buffer_Request(Guard& lock, Open_File& file, int fd, uint32_t request, void* argument);
    int Request_Buffers(Open_File& file, v4l2_requestbuffers& buffers);
    int Dequeue(Guard& lock, Open_File& file, int fd, v4l2_buffer& buffer);
    int Wait_For_Frame(Guard& lock, Open_File& file, int fd);
    int Start(int type);

    bool Acquire(Open_File& file);
    void Release(Open_File& file);
    void Pass_Time();
    void Set_Unplugged();
    void Arm_Timers();

    const Camera_Description description;
    Script script;
    std::mutex mutex;
    Control_Set controls;
    Capture_Queue queue;
    Frame_Maker frames;
    Video_Mode mode;
    Open_File* owner = nullptr;  // the privileged one
    std::list<std::shared_ptr<Open_File>> files;
    uint32_t priority = V4L2_PRIORITY_INTERACTIVE;
    bool unplugged = false;
    bool waits_in_dequeue = false;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_CAMERA_H
