// Which cameras there are, which descriptors and mappings are theirs, and the intercepted calls in those terms.
#ifndef WQZ_VIRTUAL_CAMERA_REGISTRY_H
#define WQZ_VIRTUAL_CAMERA_REGISTRY_H

#include <map>
#include <set>
#include <unordered_map>

#include "driver/camera.h"

namespace virtual_camera {

class Registry {
public:
    /// The one of this process; made on first use, with the cameras of the environment, and never destroyed.
    static Registry& Instance();

    void Add(Camera_Description description);
    void Clear();
    std::shared_ptr<Camera> Camera_At(const std::string& node);

    /// Puts a new camera of the same description in the place of an unplugged one; it stays plugged in.
    void Replug(const std::string& node);

    /// @return false when the path is no camera's; else `answer` is the descriptor or an error
    bool Open(const char* path, int flags, Answer& answer);

    std::shared_ptr<Open_File> File_Of(int fd);

    /// Forgets a descriptor if it is a camera's; the caller closes it.
    void Close(int fd);

    /// A copy of a descriptor was made; `copy` may have been another one before.
    void Duplicate(int original, int copy);

    /// @return MAP_FAILED with errno set on failure
    void* Map(const std::shared_ptr<Open_File>& file, int fd, void* address, size_t length, int protection, int flags,
              off_t offset);

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
