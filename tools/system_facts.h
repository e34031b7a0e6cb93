// What the kernel tells about cameras, read from sysfs and procfs without opening any of them.
#ifndef WQZ_TOOL_SYSTEM_FACTS_H
#define WQZ_TOOL_SYSTEM_FACTS_H

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// A USB device that is a camera, or that has a video node.
struct Usb_Camera {
    std::string port;              ///< the kernel's name for its place: "1-2.3"
    std::string name;              ///< ids and product: "046d:0825 Webcam"
    uint32_t bus = 0;              ///< all devices of one number share their bandwidth
    uint32_t megabits = 0;         ///< per second, as it is connected now; 0 when unknown
    bool is_super_speed = false;   ///< it could be faster than USB 2
    bool has_bulk_frames = false;  ///< frames come by bulk transfers, which have a limit of their own
    bool has_driver = false;       ///< some driver takes its video interface, or it has a video node
};

/// A video node that the kernel has made.
struct Video_Node {
    std::string node;      ///< "/dev/video0"
    std::string name;      ///< the driver's name for the camera
    std::string usb_port;  ///< of its Usb_Camera; empty when it is not on USB
    bool exists = false;   ///< whether /dev has it
};

enum class Module { Loaded, Not_Loaded, Missing, Unknown };

struct System_Facts {
    std::string kernel;                 ///< its release
    Module uvcvideo = Module::Unknown;  ///< the driver of USB cameras; Unknown where the modules cannot be seen
    bool in_container = false;
    std::vector<Video_Node> nodes;  ///< by number
    std::vector<Usb_Camera> usb;    ///< by port

    /// @return the USB device of a node, or null
    const Usb_Camera* Usb_Of(const std::string& node) const;
};

/// @param root  the folder with sys, proc, dev and the other folders of the system
System_Facts Look_At_System(const std::filesystem::path& root = "/");

#endif  // WQZ_TOOL_SYSTEM_FACTS_H
