// Keeps account of cameras, descriptors and mappings.
#include "calls/registry.h"

#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "calls/camera_calls.h"
#include "calls/device_tree.h"
#include "description/description_parts.h"
#include "script/request_log.h"

namespace virtual_camera {
namespace {

constexpr char Description_Variable[] = "WQZ_VIRTUAL_CAMERA";

uintptr_t Page_End(uintptr_t address)
{
    const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
    return (address + page - 1) / page * page;
}

void Count_Use(int change)
{
    __atomic_fetch_add(&calls::in_use, change, __ATOMIC_ACQ_REL);
}

}  // namespace

Registry& Registry::Instance()
{
    static auto* registry = new Registry;
    return *registry;
}

Registry::Registry()
{
    static Registry* self = nullptr;
    self = this;
    pthread_atfork([] { self->Lock_All(); }, [] { self->Unlock_All(false); }, [] { self->Unlock_All(true); });
    const char* text = std::getenv(Description_Variable);
    if (!text) {
        return;
    }
    try {
        for (Camera_Description& camera : Parse_Description(text)) {
            Add_Locked(std::move(camera));
        }
    } catch (const Description_Error& error) {
        std::fprintf(stderr, "virtual camera: %s: %s\n", Description_Variable, error.what());
    }
}

std::set<Camera*> Registry::Cameras() const
{
    std::set<Camera*> cameras;
    for (const auto& [path, node] : nodes) {
        cameras.insert(node.camera.get());
    }
    return cameras;
}

void Registry::Lock_All()
{
    mutex.lock();
    for (Camera* camera : Cameras()) {
        camera->Lock();
    }
}

void Registry::Unlock_All(bool in_child)
{
    for (Camera* camera : Cameras()) {
        if (in_child) {
            camera->Replace_Timers();
        }
        camera->Unlock();
    }
    mutex.unlock();
}

void Registry::Add_Locked(Camera_Description description)
{
    Complete(description, [this](const std::string& path) { return nodes.count(path) > 0; });
    const std::string node = description.capture_node;
    const auto camera = std::make_shared<Camera>(std::move(description), [this, node] { After_Unplug(node); });
    nodes[camera->Description().capture_node] = {camera, false};
    if (camera->Description().has_metadata) {
        nodes[camera->Description().metadata_node] = {camera, true};
    }
}

void Registry::Add(Camera_Description description)
{
    if (description.formats.empty()) {
        description.formats = Default_Formats();
    }
    const std::lock_guard lock(mutex);
    Add_Locked(std::move(description));
}

void Registry::Clear()
{
    std::map<std::string, Node> removed;
    {
        const std::lock_guard lock(mutex);
        removed.swap(nodes);
    }
    for (const auto& [path, node] : removed) {
        node.camera->Unplug();
    }
}

// Updates the device tree, and plugs the camera in again if so described. Clear has removed its cameras before: they do
// not come back.
void Registry::After_Unplug(const std::string& node)
{
    const std::shared_ptr<Camera> camera = Camera_At(node);
    if (!camera) {
        return;
    }
    Move_In_Tree(camera->Description(), true);
    if (camera->Description().replug_after_seconds > 0) {
        const std::chrono::duration<double> pause(camera->Description().replug_after_seconds);
        std::thread([this, node, pause, gone = std::weak_ptr(camera)] {
            std::this_thread::sleep_for(pause);
            if (Camera_At(node) == gone.lock()) {
                Replug(node);
            }
        }).detach();
    }
}

void Registry::Replug(const std::string& node)
{
    const std::shared_ptr<Camera> gone = Camera_At(node);
    if (!gone || !gone->Is_Unplugged()) {
        return;
    }
    Camera_Description description = gone->Description();
    description.unplug_after_frames = 0;
    description.unplug_after_seconds = 0;
    {
        const std::lock_guard lock(mutex);
        Add_Locked(description);
    }
    Move_In_Tree(description, false);
}

std::shared_ptr<Camera> Registry::Camera_At(const std::string& node)
{
    const std::lock_guard lock(mutex);
    const auto found = nodes.find(node);
    return found == nodes.end() ? nullptr : found->second.camera;
}

bool Registry::Open(const char* path, int flags, Answer& answer)
{
    auto file = std::make_shared<Open_File>();
    const std::string node = Linked_Node(path);
    {
        const std::lock_guard lock(mutex);
        const auto found = nodes.find(node);
        if (found == nodes.end()) {
            return false;
        }
        file->camera = found->second.camera;
        file->is_metadata = found->second.is_metadata;
        file->node = node;
    }
    const auto fault = file->camera->Scripted().faults.Take(Call_Open);
    if (fault && !fault->perform) {
        answer = {fault->result, fault->error};
    } else {
        const int fd = file->camera->Open(file, flags);
        answer = {fd < 0 ? -1 : fd, fd < 0 ? -fd : 0};
        if (fd >= 0) {
            const std::lock_guard lock(mutex);
            files[fd] = file;
            Count_Use(1);
        }
    }
    if (Is_Logging()) {
        Log_Entry entry = Call_Entry(Call_Open, path, answer.result, answer.result, answer.error);
        entry.value = flags;
        Append_To_Log(std::move(entry));
    }
    return true;
}

std::shared_ptr<Open_File> Registry::File_Of(int fd)
{
    const std::lock_guard lock(mutex);
    const auto found = files.find(fd);
    return found == files.end() ? nullptr : found->second;
}

void Registry::Close(int fd)
{
    std::shared_ptr<Open_File> file;
    {
        const std::lock_guard lock(mutex);
        const auto found = files.find(fd);
        if (found == files.end()) {
            return;
        }
        file = std::move(found->second);
        files.erase(found);
        Count_Use(-1);
    }
    if (Is_Logging()) {
        Append_To_Log(Call_Entry(Call_Close, file->node, fd, 0, 0));
    }
    file->camera->Remove_Descriptor(file, fd);
}

void Registry::Duplicate(int original, int copy)
{
    if (original == copy) {
        return;
    }
    Close(copy);
    const std::shared_ptr<Open_File> file = File_Of(original);
    if (!file) {
        return;
    }
    file->camera->Add_Descriptor(*file, copy);
    const std::lock_guard lock(mutex);
    files[copy] = file;
    Count_Use(1);
}

void* Registry::Map(const std::shared_ptr<Open_File>& file, int fd, void* address, size_t length, int protection,
                    int flags, int64_t offset)
{
    Mapping mapping;
    void* mapped = MAP_FAILED;
    if (const auto fault = file->camera->Scripted().faults.Take(Call_Mmap)) {
        errno = fault->error;
    } else {
        mapped = file->camera->Map(file, address, length, protection, flags, offset, mapping);
    }
    const int error = mapped == MAP_FAILED ? errno : 0;
    if (Is_Logging()) {
        Log_Entry entry = Call_Entry(Call_Mmap, file->node, fd, error ? -1 : 0, error);
        entry.length = length;
        entry.offset = static_cast<uint64_t>(offset);
        Append_To_Log(std::move(entry));
    }
    if (!error) {
        mapping.length = Page_End(length);
        const std::lock_guard lock(mutex);
        mappings[reinterpret_cast<uintptr_t>(mapped)] = std::move(mapping);
        Count_Use(1);
    }
    errno = error;
    return mapped;
}

// When only part of a mapping is unmapped, the rest stays registered.
bool Registry::Take_Mapping(uintptr_t from, uintptr_t to, Mapping& taken)
{
    const std::lock_guard lock(mutex);
    auto found = mappings.upper_bound(from);
    if (found != mappings.begin() && std::prev(found)->first + std::prev(found)->second.length > from) {
        --found;
    }
    if (found == mappings.end() || found->first >= to) {
        return false;
    }
    const uintptr_t start = found->first, end = start + found->second.length;
    taken = std::move(found->second);
    mappings.erase(found);
    if (start >= from && end <= to) {
        Count_Use(-1);
        return true;
    }
    const uintptr_t rest = start < from ? start : to;
    taken.length = start < from ? from - start : end - to;
    mappings[rest] = std::move(taken);
    return false;
}

void Registry::Unmap(void* address, size_t length)
{
    Mapping taken;
    const auto from = reinterpret_cast<uintptr_t>(address);
    while (Take_Mapping(from, Page_End(from + length), taken)) {
        if (Is_Logging()) {
            Log_Entry entry = Call_Entry(Call_Munmap, taken.file->node, -1, 0, 0);
            entry.length = length;
            Append_To_Log(std::move(entry));
        }
        taken.memory.reset();
        taken.file->camera->Unmap(taken.file);
        taken = Mapping{};
    }
}

}  // namespace virtual_camera
