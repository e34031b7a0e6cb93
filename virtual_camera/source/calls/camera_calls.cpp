// The intercepted calls, handed to the registry of cameras.
#include "calls/camera_calls.h"

#include <sys/mman.h>
#include <unistd.h>
#include <cerrno>

#include "calls/registry.h"

namespace virtual_camera::calls {

int in_use = 0;

bool Open(const char* path, int flags, int* result)
{
    Errno_Keeper keeper;
    Answer answer;
    if (!Registry::Instance().Open(path, flags, answer)) {
        return false;
    }
    keeper.Set(answer.error);
    *result = answer.result;
    return true;
}

bool Ioctl(int fd, uint32_t request, void* argument, int* result)
{
    Errno_Keeper keeper;
    const auto file = Registry::Instance().File_Of(fd);
    if (!file) {
        return false;
    }
    const Answer answer = file->camera->Request(*file, fd, request, argument);
    keeper.Set(answer.error);
    *result = answer.result;
    return true;
}

bool Mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset, void** result)
{
    Errno_Keeper keeper;
    const auto file = Registry::Instance().File_Of(fd);
    if (!file) {
        return false;
    }
    *result = Registry::Instance().Map(file, fd, address, length, protection, flags, offset);
    keeper.Set(*result == MAP_FAILED ? errno : 0);
    return true;
}

void Munmap(void* address, size_t length)
{
    const Errno_Keeper keeper;
    if (length > 0 && reinterpret_cast<uintptr_t>(address) % static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)) == 0) {
        Registry::Instance().Unmap(address, length);
    }
}

void Close(int fd)
{
    const Errno_Keeper keeper;
    Registry::Instance().Close(fd);
}

void Duplicate(int original, int copy)
{
    const Errno_Keeper keeper;
    Registry::Instance().Duplicate(original, copy);
}

}  // namespace virtual_camera::calls
