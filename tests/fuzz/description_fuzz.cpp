// Camera descriptions of any text: refused with a message, or turned into cameras that can be plugged in.
#include <virtual_camera/virtual_camera.h>

#include "fuzz/fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<virtual_camera::Camera_Description> cameras;
    try {
        cameras = virtual_camera::Parse_Description(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const virtual_camera::Description_Error& error) {
        Require(error.what()[0] != '\0');
        return 0;
    }
    (void)virtual_camera::Umockdev_Description(cameras);
    virtual_camera::Reset();
    try {
        for (const virtual_camera::Camera_Description& camera : cameras) {
            virtual_camera::Add_Camera(camera);
        }
    } catch (const std::invalid_argument&) {  // two cameras with one node
    }
    virtual_camera::Reset();
    return 0;
}
