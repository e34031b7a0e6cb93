// A descriptor that is closed with its owner.
#ifndef WQZ_CAMERA_OWNED_DESCRIPTOR_H
#define WQZ_CAMERA_OWNED_DESCRIPTOR_H

#include <unistd.h>

namespace wqz_camera {

/// Holds what a call returned that opens a descriptor; a negative number is none.
class Owned_Descriptor {
public:
    explicit Owned_Descriptor(int opened) : descriptor(opened) {}
    ~Owned_Descriptor()
    {
        if (descriptor >= 0) {
            (void)close(descriptor);
        }
    }
    Owned_Descriptor(const Owned_Descriptor&) = delete;
    Owned_Descriptor& operator=(const Owned_Descriptor&) = delete;

    operator int() const { return descriptor; }

private:
    int descriptor;
};

}  // namespace wqz_camera

#endif  // WQZ_CAMERA_OWNED_DESCRIPTOR_H
