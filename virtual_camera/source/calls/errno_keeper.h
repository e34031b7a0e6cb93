// Keeps errno as the program knows it, across what the driver does inside.
#ifndef WQZ_VIRTUAL_CAMERA_ERRNO_KEEPER_H
#define WQZ_VIRTUAL_CAMERA_ERRNO_KEEPER_H

#include <cerrno>

namespace virtual_camera::calls {

class Errno_Keeper {
public:
    ~Errno_Keeper() { errno = value; }
    void Set(int error) { value = error != 0 ? error : value; }

private:
    int value = errno;
};

}  // namespace virtual_camera::calls

#endif  // WQZ_VIRTUAL_CAMERA_ERRNO_KEEPER_H
