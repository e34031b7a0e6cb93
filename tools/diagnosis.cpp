// Finds what is wrong with drivers, nodes and USB connections.
#include "diagnosis.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <set>

#include "bandwidth.h"
#include "modes.h"
#include "text.h"

namespace {

constexpr double Short_Rate = 0.85;  // of the rate asked for; less is a finding

/// @return a node of each camera that the kernel knows and /dev lacks
std::vector<Video_Node> Missing_Nodes(const System_Facts& facts, const std::vector<WQZ_Camera_Info>& cameras)
{
    std::set<std::string> seen_ports;  // a camera that can be used may lack its metadata node
    for (const WQZ_Camera_Info& camera : cameras) {
        const Usb_Camera* port = facts.Usb_Of(camera.node);
        seen_ports.insert(port == nullptr ? "" : port->port);
    }
    std::vector<Video_Node> missing;
    for (const Video_Node& node : facts.nodes) {
        if (!node.exists && (seen_ports.insert(node.usb_port).second || node.usb_port.empty())) {
            missing.push_back(node);
        }
    }
    return missing;
}

Finding Nothing_Usable(const System_Facts& facts)
{
    std::vector<std::string> nodes;
    std::ranges::transform(facts.nodes, std::back_inserter(nodes), &Video_Node::node);
    if (!nodes.empty()) {
        return Only_Metadata(nodes);
    }
    return facts.uvcvideo == Module::Missing && !facts.in_container ? No_Uvc_Module(facts) : No_Camera(facts);
}

/// @return the node that a failure to open a name is about; empty when that is not known
std::string Node_Behind(const std::string& name, int error)
{
    if (name.starts_with('/')) {
        std::error_code ignored;
        const std::filesystem::path node = std::filesystem::canonical(name, ignored);
        return node.empty() ? name : node.string();
    }
    for (const WQZ_Camera_Info& camera : wqz::List_Cameras()) {
        if (camera.error == -error && Has_Name(camera, name)) {
            return camera.node;
        }
    }
    return "";
}

std::string Open_Failure(const std::string& name, const wqz::Camera_Error& error)
{
    const System_Facts facts = Look_At_System();
    if (error.Code() == ENOENT && wqz::List_Cameras().empty()) {
        const std::string finding = Check_Computer(facts, {}).front().Text();
        return name.empty() ? finding : error.what() + (" " + finding);
    }
    const std::string node =
        error.Code() == EACCES || error.Code() == EPERM || error.Code() == EBUSY ? Node_Behind(name, error.Code()) : "";
    return node.empty() ? error.what() : Cannot_Use(node, error, facts).Text();
}

// A camera that is leaving does not list its modes, and must not hide why it did not start.
bool Motion_Jpeg_Might_Help(wqz::Camera& camera, uint32_t fourcc)
{
    try {
        return Motion_Jpeg_Helps(camera.Modes(), fourcc);
    } catch (const wqz::Camera_Error&) {
        return false;
    }
}

}  // namespace

std::vector<Finding> Check_Computer(const System_Facts& facts, const std::vector<WQZ_Camera_Info>& cameras)
{
    std::vector<Finding> findings;
    for (const Usb_Camera& camera : facts.usb) {
        if (!camera.has_driver) {
            findings.push_back(No_Driver(camera, facts));
        }
    }
    for (const Video_Node& node : Missing_Nodes(facts, cameras)) {
        findings.push_back(No_Node(node, facts));
    }
    if (cameras.empty() && findings.empty()) {
        findings.push_back(Nothing_Usable(facts));
    }
    return findings;
}

std::vector<Finding> Check_Port(const std::string& node, const Usb_Camera& port,
                                const std::vector<WQZ_Camera_Offer>& offers)
{
    constexpr uint32_t Least_Usb_3 = 5000;  // Mbit/s
    std::vector<Finding> findings;
    const double limit = Port_Limit(port);
    if (limit > 0 && std::ranges::any_of(offers, [&](const auto& offer) { return Needed(offer) > limit; })) {
        findings.push_back(Mode_Too_Wide(node, port, offers));
    }
    if (port.megabits > 0 && port.megabits < Least_Usb_3 && port.is_super_speed) {
        findings.push_back(Slow_Port(node, port));
    }
    return findings;
}

std::vector<Finding> Check_Buses(const System_Facts& facts, const std::vector<Camera_Offers>& cameras)
{
    std::vector<Finding> findings;
    std::set<uint32_t> buses;
    std::ranges::for_each(facts.usb, [&](const Usb_Camera& camera) { buses.insert(camera.bus); });
    for (const uint32_t bus : buses) {
        double sum = 0;
        double limit = 0;
        std::vector<std::string> needs;
        for (const Camera_Offers& camera : cameras) {
            const Usb_Camera* port = facts.Usb_Of(camera.node);
            if (port == nullptr || port->bus != bus) {
                continue;
            }
            limit = std::max(limit, Bus_Limit(port->megabits));
            const WQZ_Camera_Offer* widest = Widest_Within(camera.offers, Port_Limit(*port));
            if (widest != nullptr) {
                sum += Needed(*widest);
                needs.push_back(camera.node + " up to " + Megabytes_Text(Needed(*widest)));
            }
        }
        if (needs.size() > 1 && limit > 0 && sum > limit) {
            findings.push_back(Shared_Bus(bus, needs, sum, limit));
        }
    }
    return findings;
}

std::vector<Finding> Check_Trial(const Trial& trial)
{
    const std::string mode = Mode_Text(trial.mode);
    std::vector<Finding> findings;
    if (trial.frames == 0) {
        return {No_Frames(trial.node, mode)};
    }
    if (trial.damaged > 0) {
        findings.push_back(Damaged_Frames(trial.node, mode, trial.damaged, trial.frames));
    }
    if (trial.lost > 0) {
        findings.push_back(Lost_Frames(trial.node, mode, trial.lost, trial.frames));
    }
    // Lost frames make the rate fall, too, but more light would not help then.
    const double came = trial.rate * static_cast<double>(trial.frames + trial.lost) / static_cast<double>(trial.frames);
    if (came < trial.mode.Rate() * Short_Rate) {
        findings.push_back(Slow_Rate(trial.node, mode, trial.rate, trial.exposure_control));
    }
    return findings;
}

std::string Refusal_Text(const WQZ_Camera_Info& camera)
{
    const wqz::Camera_Error error(-camera.error,
                                  std::string("It cannot be opened: ") + std::strerror(-camera.error) + ".");
    return Cannot_Use(camera.node, error, Look_At_System()).Text();
}

bool Has_Name(const WQZ_Camera_Info& camera, const std::string& name)
{
    std::error_code no_path;
    const bool is_path = name.starts_with('/');
    return name.empty() || name == camera.node || name == camera.serial || name == camera.identity ||
           Key(name) == Key(Id_Text(camera.vendor, camera.product)) || Whole_Number(name) == camera.index ||
           (is_path && std::filesystem::canonical(name, no_path) == camera.node);
}

wqz::Camera Open_Camera(const std::string& name)
{
    try {
        return wqz::Camera(name);
    } catch (const wqz::Camera_Error& error) {
        throw wqz::Camera_Error(error.Code(), Open_Failure(name, error));
    }
}

wqz::Mode Start_Camera(wqz::Camera& camera, const wqz::Request& request)
{
    try {
        return camera.Start(request);
    } catch (const wqz::Camera_Error& error) {
        const bool is_advised = error.Code() == EBUSY || error.Code() == ENOSPC || error.Code() == EPROTO ||
                                error.Code() == EIO || error.Code() == EPIPE || error.Code() == ETIMEDOUT;
        if (!is_advised) {
            throw;
        }
        const std::string node = camera.Info().node;
        const System_Facts facts = Look_At_System();
        const bool helps = Motion_Jpeg_Might_Help(camera, request.format.Code());
        throw wqz::Camera_Error(error.Code(), Cannot_Start(node, error, facts.Usb_Of(node), helps).Text());
    }
}
