// Knows all cameras of the process, their descriptors and their mappings, and passes intercepted calls to them.
#ifndef WQZ_VIRTUAL_CAMERA_REGISTRY_H
#define WQZ_VIRTUAL_CAMERA_REGISTRY_H

#include <map>
#include <set>
#include <unordered_map>

#include "driver/camera.h"

namespace virtual_camera {

class Registry {
public:
    /// The registry of this process. It is made on first use with the cameras of the environment, and never destroyed.
    static Registry& Instance();

    void Add(Camera_Description description);
    void Clear();
    std::shared_ptr<Camera> Camera_At(const std::string& node);

    /// Replaces an unplugged camera by a new one of the same description, without the described unplugging.
    void Replug(const std::string& node);

    /// @return false when no camera has the path; else `answer` is the descriptor or an error
    bool Open(const char* path, int flags, Answer& answer);

    std::shared_ptr<Open_File> File_Of(int fd);

    /// Forgets a camera's descriptor, before the caller closes it. Other descriptors are ignored.
    void Close(int fd);

    /// Registers a copy of a descriptor. `copy` may have been open for something else before.
    void Duplicate(int original, int copy);

    /// @return MAP_FAILED with errno set on failure
    void* Map(const std::shared_ptr<Open_File>& file, int fd, void* address, size_t length, int protection, int flags,
              int64_t offset);

    /// Called after memory was unmapped.
    void Unmap(void* address, size_t length);

private:
    struct Node {
        std::shared_ptr<Camera> camera;
        bool is_metadata;
    };

    Registry();
    void Add_Locked(Camera_Description description);
    void After_Unplug(const std::string& node);
    bool Take_Mapping(uintptr_t from, uintptr_t to, Mapping& taken);
    std::set<Camera*> Cameras() const;
    void Lock_All();
    void Unlock_All(bool in_child);

    std::mutex mutex;
    std::map<std::string, Node> nodes;
    std::unordered_map<int, std::shared_ptr<Open_File>> files;
    std::map<uintptr_t, Mapping> mappings;
};

}  // namespace virtual_camera

#endif  // WQZ_VIRTUAL_CAMERA_REGISTRY_H
