// One virtual camera: the state of its driver, and the answers to a program's calls.
#ifndef WQZ_VIRTUAL_CAMERA_CAMERA_H
#define WQZ_VIRTUAL_CAMERA_CAMERA_H

#include <functional>
#include <list>
#include <mutex>
#include <span>
#include <string>

#include "driver/buffer_queue.h"
#include "driver/control_set.h"
#include "driver/format_negotiation.h"
#include "driver/frame_maker.h"
#include "driver/frame_schedule.h"
#include "script/script.h"
#include "system/node_descriptor.h"

namespace virtual_camera {

class Camera;

constexpr uint32_t Metadata_Bytes = 10240;  // of a metadata buffer, as uvcvideo has it

/// One successful open, like the kernel's struct file. It lives as long as a descriptor or a mapping refers to it.
struct Open_File {
    std::shared_ptr<Camera> camera;
    std::string node;
    bool is_metadata = false;

    // Guarded by the camera's lock.
    uint32_t references = 0;       // descriptors, mappings and waits
    std::vector<int> descriptors;  // duplicates of each other
    Node_Descriptor ready;         // makes select and poll wait
    Time armed = Never;            // when `ready` is due
    uint32_t priority = V4L2_PRIORITY_DEFAULT;
    Event_Queue events;
};

/// A buffer in the program's address space.
struct Mapping {
    std::shared_ptr<Open_File> file;
    std::shared_ptr<Buffer_Memory> memory;
    size_t length = 0;
};

class Camera {
public:
    /// @param unplugged_hook  called once after the camera was unplugged, without a lock held
    Camera(Camera_Description described, std::function<void()> unplugged_hook);

    const Camera_Description& Description() const { return description; }
    Script& Scripted() { return script; }

    /// Opens a node of the camera. @return the descriptor, or a negative errno
    int Open(const std::shared_ptr<Open_File>& file, int flags);
    void Add_Descriptor(Open_File& file, int fd);

    /// Called before the descriptor is closed.
    void Remove_Descriptor(const std::shared_ptr<Open_File>& file, int fd);

    /// Answers a request, whichever width of time the program was built for.
    Answer Request(Open_File& file, int fd, uint32_t request, void* argument);

    /// What poll reports to a program that asks for `events`.
    short Poll(Open_File& file, short events);

    /// A descriptor that is readable while `file` has events to dequeue, and when the camera is unplugged.
    int Event_Descriptor(Open_File& file);

    /// Fills `mapping` except for its length. @return MAP_FAILED with errno set on failure
    void* Map(const std::shared_ptr<Open_File>& file, void* address, size_t length, int protection, int flags,
              int64_t offset, Mapping& mapping);
    void Unmap(const std::shared_ptr<Open_File>& file);

    void Unplug();
    bool Is_Unplugged();

    /// Lets a script change when frames arrive.
    void Direct(const std::function<void(Frame_Schedule&)>& change);
    std::vector<uint8_t> Frame_Bytes(uint32_t sequence);

    // For a fork. The child gets its own timers, because inherited ones would be armed for its parent, too.
    void Lock() { mutex.lock(); }
    void Unlock() { mutex.unlock(); }
    void Replace_Timers();

private:
    class Visit;
    struct Call;
    struct Rule;

    static const Rule* Rule_Of(uint32_t request);

    // These answer requests that only look something up.
    template <typename Argument, int (*Ask)(const std::vector<Pixel_Format>&, Argument&)>
    int Of_Formats(Call& call);
    template <typename Argument, int (Control_Set::*Ask)(Argument&) const>
    int Of_Controls(Call& call);

    /// The argument is in the driver's own layout of records.
    Answer Answer_Request(Open_File& file, int fd, uint32_t request, void* argument);
    template <template <typename> class Record>
    Answer Translated(Open_File& file, int fd, uint32_t request, void* argument);
    int Perform(Call& call);

    int Query_Capability(Call& call);
    int Priority(Call& call);
    int Format(Call& call);
    int Metadata_Format(Call& call);
    int Parameters(Call& call);
    int Input(Call& call);
    int Crop(Call& call);
    int Set_Control(Call& call);
    int Control_List(Call& call);
    int Subscribe(Call& call);
    int Dequeue_Event(Call& call);
    int Request_Buffers(Call& call);
    int Use_Buffers(Call& call);
    int Dequeue(Call& call);

    uint32_t Highest_Priority() const;
    void Announce(const Open_File& origin, std::span<const v4l2_ext_control> changed);
    int Wait_For_Frame(Call& call);
    int Block(Call& call, int (Node_Descriptor::*wait)() const);

    /// Only the owner may change what the camera delivers. The metadata node's buffers have a separate owner.
    Open_File*& Owner_Of(const Open_File& file) { return file.is_metadata ? metadata_owner : owner; }
    bool Acquire(Open_File& file);
    void Release(Open_File& file);

    Buffer_Queue& Queue_Of(const Open_File& file) { return file.is_metadata ? metadata : video; }
    Time Ready_At(const Open_File& file);
    void Pass_Time();
    void Set_Unplugged();
    void Arm_Timers();

    const Camera_Description description;
    const std::function<void()> on_unplugged;
    Script script;
    std::mutex mutex;
    Control_Set controls;
    Buffer_Queue video;
    Buffer_Queue metadata;
    Frame_Schedule schedule;
    Frame_Maker frames;
    Video_Mode mode;
    Open_File* owner = nullptr;
    Open_File* metadata_owner = nullptr;
    std::list<std::shared_ptr<Open_File>> files;
    bool unplugged = false;
    bool unplugging_told = false;
};

/// Every entry into a camera makes one. It takes the lock and catches up with time. Its destructor sets the timers,
/// releases the lock and reports an unplugging.
class Camera::Visit {
public:
    explicit Visit(Camera& visited) : camera(visited), lock(visited.mutex) { camera.Pass_Time(); }
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

    // Release the lock for a wait, and take it again.
    void Leave() { lock.unlock(); }
    void Return()
    {
        lock.lock();
        camera.Pass_Time();
    }

private:
    Camera& camera;
    std::unique_lock<std::mutex> lock;
};

/// One request and where it came from.
struct Camera::Call {
    Visit& visit;
    Open_File& file;
    int fd;
    uint32_t request;
    void* argument;

    template <typename Type>
    Type& As() const
    {
        return *static_cast<Type*>(argument);
    }
};

/// Says who answers a request. Handlers return 0 or a negative errno.
struct Camera::Rule {
    uint32_t request;
    int (Camera::*on_capture)(Call&);   // null: ENOTTY
    int (Camera::*on_metadata)(Call&);  // null: ENOTTY
    bool needs_priority = false;        // refused with EBUSY while another file has a higher priority
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_CAMERA_H
