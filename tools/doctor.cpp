// The verb "doctor": examines the computer and its cameras, and prints what it found.
#include "doctor.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <vector>

#include "bandwidth.h"
#include "diagnosis.h"
#include "modes.h"
#include "output.h"
#include "text.h"
#include "trial_capture.h"

namespace {

using Json = nlohmann::ordered_json;

/// What was looked at, and what was found there.
struct Section {
    std::string title;
    std::string camera;  ///< its node; empty for the whole computer
    std::vector<std::string> notes = {};
    std::vector<Trial> trials = {};
    std::vector<Finding> findings = {};

    void Add(const std::vector<Finding>& more) { findings.insert(findings.end(), more.begin(), more.end()); }
};

std::string Module_Text(Module module)
{
    switch (module) {
        case Module::Loaded:
            return "uvcvideo is loaded";
        case Module::Not_Loaded:
            return "uvcvideo is not loaded";
        case Module::Missing:
            return "uvcvideo is missing";
        default:
            return "its modules cannot be seen from here";
    }
}

Section Examine_Computer(const System_Facts& facts, const std::vector<WQZ_Camera_Info>& cameras)
{
    Section section{"This computer", ""};
    section.notes.push_back("Kernel " + facts.kernel + "; " + Module_Text(facts.uvcvideo) + ".");
    if (facts.in_container) {
        section.notes.emplace_back("This is a container: it has only the devices that it was given.");
    }
    std::string nodes;
    std::ranges::for_each(facts.nodes, [&](const Video_Node& node) { Append_Item(nodes, ", ", node.node); });
    if (!nodes.empty()) {
        section.notes.push_back("Video nodes: " + nodes + ".");
    }
    section.findings = Check_Computer(facts, cameras);
    return section;
}

std::string Formats_Text(const std::vector<WQZ_Camera_Offer>& offers)
{
    std::vector<std::string> formats;
    std::string text;
    for (const WQZ_Camera_Offer& offer : offers) {
        if (std::ranges::find(formats, offer.format) == formats.end()) {
            formats.emplace_back(offer.format);
            Append_Item(text, ", ", Printable(offer.format));
        }
    }
    return text;
}

std::string Port_Note(const Usb_Camera* port, const std::vector<WQZ_Camera_Offer>& offers)
{
    if (port == nullptr) {
        return "It is not on USB.";
    }
    const double limit = Port_Limit(*port);
    const WQZ_Camera_Offer* widest = Widest_Within(offers, limit);
    std::string text = "It is connected as " + Speed_Text(port->megabits) + ", at port " + port->port;
    if (widest != nullptr) {
        text += "; the widest uncompressed mode that fits, " + Largest_Mode_Text(*widest) + ", needs " +
                Megabytes_Text(Needed(*widest)) + " of " + Megabytes_Text(limit);
    }
    return text + ".";
}

/// Starts the camera for a moment.
void Examine_Start(wqz::Camera& camera, const std::vector<WQZ_Camera_Offer>& offers, const Usb_Camera* port,
                   Section& section)
{
    const wqz::Request request = Choose_Mode(offers, {}, {Motion_Jpeg, Yuyv});
    try {
        const wqz::Mode mode = camera.Start(request);
        (void)camera.Stop();  // no frame is held
        section.notes.push_back("It starts, in " + Mode_Text(mode) + ". No other program captures from it.");
    } catch (const wqz::Camera_Error& error) {
        const bool helps = Motion_Jpeg_Helps(offers, request.format.Code());
        section.findings.push_back(Cannot_Start(section.camera, error, port, helps));
    }
}

void Examine_Frames(wqz::Camera& camera, const std::vector<WQZ_Camera_Offer>& offers, const Usb_Camera* port,
                    Section& section)
{
    std::vector<uint32_t> tried;
    for (const WQZ_Camera_Offer& offer : offers) {
        if (std::ranges::find(tried, offer.fourcc) != tried.end()) {
            continue;
        }
        tried.push_back(offer.fourcc);
        Mode_Wish wish;
        wish.format = offer.format;
        try {
            const Trial trial = Try_Capture(camera, Choose_Mode(offers, wish, {}));
            section.notes.push_back(Trial_Text(trial) + ".");
            section.Add(Check_Trial(trial));
            section.trials.push_back(trial);
        } catch (const wqz::Camera_Error& error) {
            const bool helps = Motion_Jpeg_Helps(offers, offer.fourcc);
            section.findings.push_back(Cannot_Start(section.camera, error, port, helps));
            if (error.Code() == EBUSY || error.Code() == ENODEV) {
                return;  // so would all other formats
            }
        }
    }
}

void Examine_Capture(wqz::Camera& camera, const std::vector<WQZ_Camera_Offer>& offers, const Usb_Camera* port,
                     bool with_frames, Section& section)
{
    if (offers.empty()) {
        section.findings.push_back(No_Modes(section.camera));
    } else if (with_frames) {
        Examine_Frames(camera, offers, port, section);
    } else {
        Examine_Start(camera, offers, port, section);
    }
}

Section Examine_Camera(const WQZ_Camera_Info& info, const System_Facts& facts, bool with_frames,
                       std::vector<Camera_Offers>& all_offers)
{
    Section section{info.node + ("  " + Printable(info.card)), info.node};
    try {
        wqz::Camera camera(info.node);
        const std::vector<WQZ_Camera_Offer> offers = camera.Modes();
        const Usb_Camera* port = facts.Usb_Of(info.node);
        section.notes.push_back("This user may open it. It offers " +
                                (offers.empty() ? "no modes" : Formats_Text(offers)) + ".");
        section.notes.push_back(Port_Note(port, offers));
        if (port != nullptr) {
            section.Add(Check_Port(info.node, *port, offers));
        }
        Examine_Capture(camera, offers, port, with_frames, section);
        all_offers.push_back({info.node, offers});
    } catch (const wqz::Camera_Error& error) {
        section.findings.push_back(Cannot_Use(info.node, error, facts));
    }
    return section;
}

/// @return a section about a name that fits no listed camera
Section Examine_Name(const std::string& name, const System_Facts& facts)
{
    Section section{Printable(name), name};
    try {
        (void)wqz::Camera(name);
        section.notes.emplace_back("This camera has just been plugged in; try again.");
    } catch (const wqz::Camera_Error& error) {
        section.findings.push_back(Cannot_Use(name, error, facts));
    }
    return section;
}

std::vector<Section> Examine(const Doctor_Options& options)
{
    const System_Facts facts = Look_At_System();
    std::vector<WQZ_Camera_Info> cameras = wqz::List_Cameras();
    std::vector<Section> sections{Examine_Computer(facts, cameras)};
    const bool any_camera = !cameras.empty();
    std::erase_if(cameras, [&](const auto& camera) { return !Has_Name(camera, options.camera); });
    if (!options.camera.empty() && !cameras.empty()) {
        sections.front().findings.clear();  // they are about other cameras
    }
    if (any_camera && cameras.empty()) {
        sections.push_back(Examine_Name(options.camera, facts));
    }
    std::vector<Camera_Offers> offers;
    for (const WQZ_Camera_Info& camera : cameras) {
        sections.push_back(Examine_Camera(camera, facts, options.capture, offers));
    }
    Section together{"All cameras together", ""};
    together.findings = Check_Buses(facts, offers);
    if (!together.findings.empty()) {
        sections.push_back(together);
    }
    return sections;
}

/// Prints a label and a text, in lines of a width that terminals have.
void Print_Paragraph(const std::string& label, const std::string& text)
{
    constexpr size_t Most_Columns = 100;
    constexpr size_t Label_Columns = 10;
    std::string line = label + std::string(Label_Columns - label.size(), ' ');
    bool is_begun = false;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (is_begun && line.size() + 1 + word.size() > Most_Columns) {
            std::cout << line << '\n';
            line = std::string(Label_Columns, ' ');
            is_begun = false;
        }
        line += (is_begun ? " " : "") + word;
        is_begun = true;
    }
    std::cout << line << '\n';
}

void Print_Text(const std::vector<Section>& sections, size_t findings)
{
    for (const Section& section : sections) {
        std::cout << section.title << '\n';
        for (const std::string& note : section.notes) {
            Print_Paragraph("  note", note);
        }
        for (const Finding& finding : section.findings) {
            Print_Paragraph("  wrong", finding.sentence + " [" + finding.id + "]");
            Print_Paragraph("  remedy", finding.remedy);
        }
    }
    const std::string count = std::to_string(findings) + (findings == 1 ? " finding" : " findings");
    std::cout << (findings == 0 ? "Nothing is wrong." : count) << '\n';
}

Json Trial_Json(const Trial& trial)
{
    return {{"camera", trial.node},
            {"format", trial.mode.format},
            {"width", trial.mode.width},
            {"height", trial.mode.height},
            {"asked_frames_per_second", trial.mode.Rate()},
            {"frames_per_second", trial.rate},
            {"jitter_ms", trial.jitter_ms},
            {"frames", trial.frames},
            {"lost", trial.lost},
            {"damaged", trial.damaged}};
}

void Print_Json(const std::vector<Section>& sections)
{
    const auto or_null = [](const std::string& camera) { return camera.empty() ? Json(nullptr) : Json(camera); };
    Json json{{"findings", Json::array()}, {"notes", Json::array()}, {"captures", Json::array()}};
    for (const Section& section : sections) {
        for (const Finding& finding : section.findings) {
            json["findings"].push_back({{"id", finding.id},
                                        {"camera", or_null(finding.camera)},
                                        {"sentence", finding.sentence},
                                        {"remedy", finding.remedy}});
        }
        for (const std::string& note : section.notes) {
            json["notes"].push_back({{"camera", or_null(section.camera)}, {"sentence", note}});
        }
        std::ranges::transform(section.trials, std::back_inserter(json["captures"]), Trial_Json);
    }
    std::cout << Json_Text(json) << '\n';
}

}  // namespace

int Run_Doctor(const Doctor_Options& options)
{
    const std::vector<Section> sections = Examine(options);
    size_t findings = 0;
    std::ranges::for_each(sections, [&](const Section& section) { findings += section.findings.size(); });
    if (options.json) {
        Print_Json(sections);
    } else {
        Print_Text(sections, findings);
    }
    return findings == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
