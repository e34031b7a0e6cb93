// Writes the sentences of findings.
#include "advice.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>

#include "bandwidth.h"
#include "modes.h"
#include "text.h"

namespace {

constexpr const char* Kernel_Log = "'sudo dmesg' shows what the kernel says about it.";
constexpr uint32_t Least_Usb_3 = 5000;  // Mbit/s
constexpr uint32_t Owner_May_Use = 0600;
constexpr uint32_t Group_May_Use = 0060;
constexpr uint32_t Others_May_Use = 0006;

std::string Device_Option(const std::string& node)
{
    return "Start the container with the camera: '--device " + node + "' of docker and podman.";
}

std::string Joined(const std::vector<std::string>& words)
{
    std::string list;
    std::ranges::for_each(words, [&](const std::string& word) { Append_Item(list, ", ", word); });
    return list;
}

std::string Octal(uint32_t mode)
{
    std::array<char, 16> text{};
    (void)std::snprintf(text.data(), text.size(), "%04o", mode);
    return text.data();
}

std::string Decimal(double number)
{
    std::array<char, 32> text{};
    (void)std::snprintf(text.data(), text.size(), "%.1f", number);
    return text.data();
}

/// @return "1 frame", "3 frames"
std::string Count(uint64_t number, const char* word)
{
    return std::to_string(number) + " " + word + (number == 1 ? "" : "s");
}

std::string Rights(const Node_Access& access)
{
    return "it belongs to " + access.owner + " and the group " + access.group + ", its mode is " + Octal(access.mode);
}

std::string Udev_Rule_Remedy(const std::string& user)
{
    return "Write the line 'SUBSYSTEM==\"video4linux\", GROUP=\"video\", MODE=\"0660\"' to "
           "/etc/udev/rules.d/70-camera.rules, run 'sudo udevadm control --reload' and 'sudo udevadm trigger', then "
           "'sudo usermod -aG video " +
           user + "', and log in again.";
}

bool Lists_Motion_Jpeg(const std::vector<WQZ_Camera_Offer>& offers)
{
    return std::ranges::find(offers, Motion_Jpeg, &WQZ_Camera_Offer::fourcc) != offers.end();
}

std::string Port_Text(const std::string& node, const Usb_Camera& port)
{
    return "the port of " + node + " (" + Speed_Text(port.megabits) + ") carries " + Megabytes_Text(Port_Limit(port)) +
           " for a camera's frames: " + Limit_Reason(port);
}

}  // namespace

bool Motion_Jpeg_Helps(const std::vector<WQZ_Camera_Offer>& offers, uint32_t fourcc)
{
    return fourcc != Motion_Jpeg && Lists_Motion_Jpeg(offers);
}

Finding No_Camera(const System_Facts& facts)
{
    if (facts.in_container) {
        return {"no-camera", "", "No camera is here: this is a container, and the kernel shows it no video node.",
                "Plug a camera in, then start the container with it: '--device /dev/video0' of docker and podman."};
    }
    return {"no-camera", "", "No camera is connected: the kernel has no video node.",
            "Plug a camera in. If it is plugged in, try another cable or port. 'lsusb' lists what the USB buses see. " +
                std::string(Kernel_Log)};
}

Finding No_Uvc_Module(const System_Facts& facts)
{
    return {"no-driver", "",
            "The kernel " + facts.kernel + " has no module uvcvideo, which is the driver of USB cameras.",
            "Install the kernel package that has it, on Debian 'sudo apt install linux-image-amd64' instead of a cloud "
            "kernel, on Ubuntu 'sudo apt install linux-modules-extra-" +
                facts.kernel + "'. Then restart."};
}

Finding No_Driver(const Usb_Camera& camera, const System_Facts& facts)
{
    const std::string start = "The USB camera " + Printable(camera.name) + " at port " + camera.port + " has no driver";
    switch (facts.uvcvideo) {
        case Module::Missing:
            return {"no-driver", camera.port, start + ": the kernel " + facts.kernel + " has no module uvcvideo.",
                    No_Uvc_Module(facts).remedy};
        case Module::Not_Loaded:
            return {"no-driver", camera.port, start + ": the kernel module uvcvideo is not loaded.",
                    "Run 'sudo modprobe uvcvideo'. If that has no effect, look for uvcvideo in /etc/modprobe.d/."};
        case Module::Loaded:
            return {"no-driver", camera.port, start + ", although the kernel module uvcvideo is loaded.",
                    "Plug it in again. " + std::string(Kernel_Log)};
        default:
            return {"no-driver", camera.port, start + ", and the kernel's modules cannot be seen from here.",
                    std::string("Run 'sudo modprobe uvcvideo'") +
                        (facts.in_container ? " on the host of this container." : ".")};
    }
}

Finding No_Node(const Video_Node& node, const System_Facts& facts)
{
    const std::string start = "The kernel has " + node.node + " (" + Printable(node.name) + "), but /dev does not";
    if (facts.in_container) {
        return {"no-node", node.node, start + ": this container was not given the device.", Device_Option(node.node)};
    }
    return {"no-node", node.node, start + ".",
            "Run 'sudo udevadm trigger --action=add --subsystem-match=video4linux', which makes missing nodes."};
}

Finding Only_Metadata(const std::vector<std::string>& nodes)
{
    return {"only-metadata", nodes.front(),
            "No pictures come from " + Joined(nodes) + ": such nodes carry metadata, or do something else.",
            "Use the camera's capture node. If 'wqz-usbcam list' shows none, plug the camera in again. " +
                std::string(Kernel_Log)};
}

Finding No_Permission(const Node_Access& access, bool in_container)
{
    const std::string start = "This user (" + access.user + ") may not open " + access.node + ": ";
    const bool group_helps = (access.mode & Group_May_Use) == Group_May_Use && access.group != "root";
    const bool mode_allows = access.is_root || (access.is_owner && (access.mode & Owner_May_Use) == Owner_May_Use) ||
                             (access.in_group && (access.mode & Group_May_Use) == Group_May_Use) ||
                             (access.mode & Others_May_Use) == Others_May_Use;
    const std::string allowed = access.is_root ? "root may open any node" : Rights(access) + ", which would allow it";
    if (mode_allows && in_container) {
        return {"no-permission", access.node, start + allowed + ", but the container's device rules refuse it.",
                Device_Option(access.node)};
    }
    if (mode_allows) {
        return {"no-permission", access.node, start + allowed + ", but something else refuses it.",
                "Look for a sandbox (snap, Flatpak), AppArmor or SELinux; 'sudo dmesg' shows what was denied. A snap "
                "gets the camera by 'sudo snap connect NAME:camera'."};
    }
    if (group_helps && access.group_listed) {
        return {"no-permission", access.node,
                start + Rights(access) + ", and this login is older than the user's place in that group.",
                "Log out and in again, or run 'newgrp " + access.group + "' in this terminal."};
    }
    if (group_helps) {
        return {"no-permission", access.node, start + Rights(access) + ", and the user is not in that group.",
                "Run 'sudo usermod -aG " + access.group + " " + access.user + "', then log in again."};
    }
    return {"no-permission", access.node, start + Rights(access) + ".", Udev_Rule_Remedy(access.user)};
}

Finding Held(const std::string& node, const Holders& holders)
{
    const std::string start = node + " is busy: ";
    if (!holders.names.empty()) {
        const bool is_one = holders.names.size() == 1;
        std::string numbers;
        std::ranges::for_each(holders.numbers, [&](const std::string& number) { numbers += " " + number; });
        return {"held", node, start + Joined(holders.names) + (is_one ? " has" : " have") + " it open.",
                "End the capture there, or end the process" + std::string(is_one ? "" : "es") + " with 'kill" +
                    numbers + "'."};
    }
    if (!holders.all_seen) {
        return {"held", node,
                start + "another user's process has it. This user may not look at the processes of others.",
                "Run 'sudo fuser -v " + node + "', which names the process, and end the capture there."};
    }
    return {"held", node, start + "another program captures from it, but no process here has it open.",
            "Run 'sudo fuser -v " + node +
                "', on the host if this is a container. If it names no process, plug the camera in again."};
}

Finding No_Modes(const std::string& node)
{
    return {"no-modes", node, node + " lists no modes.", "Plug the camera in again. " + std::string(Kernel_Log)};
}

Finding Cannot_Open(const std::string& node, const std::string& reason)
{
    return {"cannot-open", node, Printable(reason), "Plug the camera in again. " + std::string(Kernel_Log)};
}

Finding Cannot_Start(const std::string& node, const wqz::Camera_Error& error, const Usb_Camera* port,
                     bool motion_jpeg_helps)
{
    const std::string lighter = std::string("Choose a smaller size") +
                                (motion_jpeg_helps ? ", a lower rate or Motion-JPEG" : " or a lower rate") +
                                ", or plug the camera into another port, without a hub.";
    switch (error.Code()) {
        case EBUSY:
            return Held(node, Holders_Of(node));
        case ENOSPC:
            return {"no-bandwidth", node, error.what(),
                    port == nullptr || Port_Limit(*port) == 0 ? lighter
                                                              : "At most, " + Port_Text(node, *port) + ". " + lighter};
        case EPROTO:
        case EPIPE:
        case EIO:
        case ETIMEDOUT:
            return {"no-bandwidth", node, error.what(),
                    "A USB bus that is full or has a bad cable answers so, too. " + lighter};
        default:
            return {"cannot-start", node, error.what(), Kernel_Log};
    }
}

Finding Mode_Too_Wide(const std::string& node, const Usb_Camera& port, const std::vector<WQZ_Camera_Offer>& offers)
{
    const double limit = Port_Limit(port);
    const auto widest = std::ranges::max_element(offers, {}, Needed);
    const auto too_wide =
        static_cast<uint64_t>(std::ranges::count_if(offers, [&](const auto& offer) { return Needed(offer) > limit; }));
    const std::string others = too_wide == 1 ? "" : ", the widest of " + Count(too_wide, "mode") + " that do not fit";
    const WQZ_Camera_Offer* fitting = Widest_Within(offers, limit);
    std::string choices = Lists_Motion_Jpeg(offers) ? "Motion-JPEG (--format mjpeg)" : "";
    if (fitting != nullptr) {
        Append_Item(choices, " or ", "a mode that fits, such as " + Largest_Mode_Text(*fitting));
    }
    std::string remedy = choices.empty() ? "Lower the rate with --fps." : "Choose " + choices + ".";
    if (port.is_super_speed && port.megabits < Least_Usb_3) {
        remedy += " A USB 3 port carries more.";
    }
    return {"mode-too-wide", node,
            Largest_Mode_Text(*widest) + " needs " + Megabytes_Text(Needed(*widest)) + others + "; " +
                Port_Text(node, port) + ".",
            remedy};
}

Finding Slow_Port(const std::string& node, const Usb_Camera& port)
{
    return {"slow-port", node,
            "The USB 3 camera " + Printable(port.name) + " is connected as " + Speed_Text(port.megabits) +
                ": the port, the cable or a hub between is no USB 3.",
            "Plug it into a USB 3 port, marked blue or SS, with a USB 3 cable and without a hub. 'lsusb -t' shows the "
            "speed of each port."};
}

Finding Shared_Bus(uint32_t bus, const std::vector<std::string>& needs, double sum, double limit)
{
    return {"shared-bus", "",
            "Cameras share USB bus " + std::to_string(bus) + ": " + Joined(needs) + ". Together they may need " +
                Megabytes_Text(sum) + ", and " + Megabytes_Text(limit) + " can be reserved (80 % of each microframe).",
            "Plug one of them into a port of another USB controller, or choose Motion-JPEG or smaller sizes when they "
            "capture at once. 'lsusb -t' shows which ports share a bus."};
}

Finding No_Frames(const std::string& node, const std::string& mode)
{
    return {"no-frames", node,
            node + ": no frame came" + (mode.empty() ? "" : " in " + mode) + ": the camera did not start.",
            "Its USB bus may have no room left for this mode: try another port, or a mode that needs less. "
            "'wqz-usbcam modes' lists the camera's modes."};
}

Finding Damaged_Frames(const std::string& node, const std::string& mode, uint64_t damaged, uint64_t frames)
{
    return {"damaged-frames", node,
            node + ": of " + Count(frames, "frame") + " in " + mode + ", " + std::to_string(damaged) +
                (damaged == 1 ? " is" : " are") + " damaged.",
            "Try another cable or port, without a hub or extension."};
}

Finding Lost_Frames(const std::string& node, const std::string& mode, uint64_t lost, uint64_t frames)
{
    return {"lost-frames", node,
            node + ": " + Count(lost, "frame") + " got lost beside " + std::to_string(frames) + " that came in " +
                mode + ".",
            "End programs that keep the processor busy, and try another port or a mode that needs less."};
}

Finding Slow_Rate(const std::string& node, const std::string& mode, double rate, const std::string& exposure_control)
{
    const std::string dim = "Dim light is the usual cause: the exposure takes longer than a frame lasts. ";
    return {"slow-rate", node, node + ": " + mode + " was asked for, but " + Decimal(rate) + " came.",
            dim + (exposure_control.empty()
                       ? "Give it more light, or choose a lower rate."
                       : "Give it more light, or keep the rate and get darker pictures by 'wqz-usbcam controls " +
                             node + " " + exposure_control + "=off'.")};
}

Finding Cannot_Use(const std::string& node, const wqz::Camera_Error& error, const System_Facts& facts)
{
    switch (error.Code()) {
        case EACCES:
        case EPERM:
            return No_Permission(Look_At_Node(node), facts.in_container);
        case EBUSY:
            return Held(node, Holders_Of(node));
        case ENOENT:
            return {"no-camera", node, error.what(), "'wqz-usbcam list' shows the cameras that are there."};
        case ENOTSUP:
            return Only_Metadata({node});
        default:
            return Cannot_Open(node, error.what());
    }
}
