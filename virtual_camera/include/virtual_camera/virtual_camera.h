// Scripting interface of the virtual camera, for programs that link it.
//
// Every function may be called from any thread at any time. A camera is named by the path of one of its nodes; a path
// that no camera has throws std::invalid_argument. Requests are named by their VIDIOC_ code or a Call_ code.
#ifndef WQZ_VIRTUAL_CAMERA_H
#define WQZ_VIRTUAL_CAMERA_H

#include <virtual_camera/description.h>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>

namespace virtual_camera {

/// Plugs a camera in. Empty node paths are numbered: the first free /dev/videoN.
void Add_Camera(Camera_Description description);

/// Unplugs a camera: from then on poll reports errors, requests fail with ENODEV, and open fails with ENOENT. Mapped
/// buffers stay readable. Under umockdev the camera leaves /sys and /dev, and udev's monitors are notified.
void Unplug(const std::string& node);

/// Plugs an unplugged camera in again with the same nodes, ids and serial number. Old descriptors keep failing. Scripts
/// for the old camera are gone, and the description's unplug-after does not happen again. Does nothing to a camera that
/// is plugged in.
void Replug(const std::string& node);

/// Unplugs every camera, forgets all scripts, and empties and stops the log.
void Reset();

constexpr int Always = -1;

struct Fault {
    int error = EIO;       ///< errno; 0 leaves it as it is
    int result = -1;       ///< what the call returns
    int times = 1;         ///< how many calls, or Always
    int skip = 0;          ///< calls answered normally before that
    bool perform = false;  ///< the driver performs the request, and only its result is replaced
};

/// Lets the next calls of `request` fail, or return an odd result. Faults of one request follow one another.
/// A failing Call_Mmap returns MAP_FAILED whatever `result` is. Call_Close and Call_Munmap never fail; for Call_Select
/// there is Script_Select.
void Fail(const std::string& node, uint32_t request, Fault fault);

/// Changes the driver's next answers: `change` gets the argument of a request that succeeded.
/// Example: Alter(node, VIDIOC_DQBUF, [](void* a) { static_cast<v4l2_buffer*>(a)->index = 9; }).
void Alter(const std::string& node, uint32_t request, std::function<void(void*)> change, int times = 1, int skip = 0);

/// The next select calls that wait for one of the camera's descriptors to become readable return at once:
/// `result` 0 is a time-out, -1 fails with `error`, 1 marks the descriptor as ready.
void Script_Select(const std::string& node, int result, int error = 0, int times = 1, int skip = 0);

/// Stops frames, and their numbering, until Deliver_Frames or Resume_Frames.
void Hold_Frames(const std::string& node);

/// While frames are held: the next `count` frames are due at once, each as soon as a buffer is queued for it.
void Deliver_Frames(const std::string& node, uint32_t count);

/// Ends Hold_Frames: the next frame is due one interval from now.
void Resume_Frames(const std::string& node);

/// The next frame carries these bytes, cut at the buffer's length. Further calls set the frames after it.
void Push_Frame(const std::string& node, std::vector<uint8_t> bytes);

/// Descriptors of the camera opened from now on are numbered `minimum` or higher.
void Set_Descriptor_Minimum(const std::string& node, int minimum);

/// The bytes that the camera delivers as frame `sequence` in its present mode.
std::vector<uint8_t> Frame_Bytes(const std::string& node, uint32_t sequence);

/// One call as the program made it and as it was answered.
struct Log_Entry {
    uint32_t request = 0;  ///< VIDIOC_ or Call_ code
    std::string name;      ///< "VIDIOC_QBUF", "open", ...
    std::string node;
    int fd = -1;
    int result = 0;
    int error = 0;                        ///< errno of a failed call, else 0
    std::array<uint8_t, 256> argument{};  ///< of a request that the driver knows, after the call
    int32_t value = 0;                    ///< flags of open, nfds of select
    uint64_t offset = 0;                  ///< of mmap
    uint64_t length = 0;                  ///< of mmap and munmap
    int64_t timeout_us = -1;              ///< of select; -1: none

    /// The argument as its record. Example: entry.As<v4l2_buffer>().index
    template <typename Record>
    Record As() const
    {
        Record record{};
        std::memcpy(&record, argument.data(), sizeof record);
        return record;
    }
};

/// Starts recording calls on all cameras, with an empty log.
void Start_Log();
std::vector<Log_Entry> Log();
void Clear_Log();

/// The names of the recorded calls in order, separated by blanks.
std::string Log_Names();

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_H
