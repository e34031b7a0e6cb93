// The command line of wqz-usbcam: parses it and runs one verb.
#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "capture.h"
#include "completion.h"
#include "controls.h"
#include "diagnosis.h"
#include "doctor.h"
#include "listing.h"
#include "modes.h"
#include "output.h"
#ifdef WQZ_WITH_PREVIEW
#include "preview/preview.h"
#endif
#include "text.h"

namespace {

constexpr int Usage_Error = 2;

constexpr const char* Camera_Help =
    "the camera's node, VID:PID, serial, identity or number in 'list'; not needed when there is one camera";

struct Arguments {
    bool json = false;
    List_Options list;
    std::string camera;
    std::vector<std::string> control_words;
    Capture_Options capture;
    Doctor_Options doctor;
#ifdef WQZ_WITH_PREVIEW
    Preview_Options preview;
#endif
};

std::pair<uint32_t, uint32_t> Parse_Size(const std::string& text)
{
    uint32_t width = 0;
    uint32_t height = 0;
    char rest = 0;
    if (text.find_first_not_of("0123456789x") != std::string::npos ||
        std::sscanf(text.c_str(), "%5ux%5u%c", &width, &height, &rest) != 2 || width == 0 || height == 0) {
        throw CLI::ValidationError("--size", "'" + text + "' is not a size; write WIDTHxHEIGHT, such as 640x480");
    }
    return {width, height};
}

WQZ_Camera_Fraction Parse_Rate(const std::string& text)
{
    const auto interval = Interval_Of_Rate(text);
    if (!interval) {
        throw CLI::ValidationError("--fps",
                                   "'" + text + "' is not a rate; write a number such as 30, 29.97 or 30000/1001");
    }
    return *interval;
}

uint64_t Parse_Count(const std::string& option, const std::string& text, int64_t least, int64_t most)
{
    const auto number = Whole_Number(text);
    if (!number || *number < least || *number > most) {
        throw CLI::ValidationError(option, "'" + text + "' is not a whole number from " + std::to_string(least) +
                                               " to " + std::to_string(most));
    }
    return static_cast<uint64_t>(*number);
}

double Parse_Seconds(const std::string& text)
{
    constexpr double Most = 1e9;  // more than thirty years; nanoseconds of that fit 64 bits
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != 0 || !(value > 0 && value <= Most)) {
        throw CLI::ValidationError("--seconds", "'" + text + "' is not a number above 0 and up to 1000000000");
    }
    return value;
}

uint16_t Parse_Id(const std::string& option, const std::string& text)
{
    const bool is_hexadecimal = text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    const auto number = is_hexadecimal ? Whole_Number("0x" + text) : std::nullopt;
    if (!number || *number > UINT16_MAX) {
        throw CLI::ValidationError(option, "'" + text + "' is not a USB id; write up to 4 hexadecimal digits");
    }
    return static_cast<uint16_t>(*number);
}

void Add_Capture(CLI::App& app, Arguments& arguments)
{
    constexpr int64_t Most_Frames = INT64_MAX;
    Capture_Options& options = arguments.capture;
    CLI::App& verb = *app.add_subcommand("capture", "capture frames into files or a stream");
    const auto add = [&verb](const char* name, const char* type, const char* help, auto parse) {
        return verb.add_option_function<std::string>(name, parse, help)->type_name(type);
    };
    verb.add_option("camera", arguments.camera, Camera_Help)->type_name("CAMERA");
    verb.add_option("--format", options.mode.format, "pixel format as 'modes' prints it, or mjpeg")
        ->type_name("FORMAT");
    add("--size", "WxH", "in pixels", [&options](const std::string& text) { options.mode.size = Parse_Size(text); });
    add("--fps", "N", "frames per second, such as 30, 29.97 or 30000/1001",
        [&options](const std::string& text) { options.mode.interval = Parse_Rate(text); });
    auto* frames = add("--frames", "N", "end after N frames", [&options](const std::string& text) {
        options.frames = Parse_Count("--frames", text, 1, Most_Frames);
    });
    add("--seconds", "S", "end S seconds after the first frame", [&options](const std::string& text) {
        options.seconds = Parse_Seconds(text);
    })->excludes(frames);
    add("--skip", "N", "leave out the first N frames, while the exposure settles", [&options](const std::string& text) {
        options.skip = static_cast<uint32_t>(Parse_Count("--skip", text, 0, UINT32_MAX));
    });
    verb.add_option("-o,--output", options.output,
                    "directory for the files, created if missing; or a file name with the ending .jpg, .bmp or .raw, "
                    "for one picture; or -, to write the bytes of all frames to standard output")
        ->type_name("PATH")
        ->capture_default_str();
    verb.add_flag("--raw", options.raw,
                  "write each frame's bytes as the camera sent them, into SECONDS_MICROSECONDS.raw");
    verb.add_flag("--reconnect", options.reconnect, "when the camera is unplugged, wait for it and go on");
    verb.add_flag("--json", options.json, "print the summary as JSON");
    verb.footer(
        "Motion-JPEG frames become .jpg files. YUYV and other frames that can be converted become .bmp files.\n"
        "Without --frames and --seconds, a capture into a directory or a stream goes on until Ctrl-C.");
}

void Add_Doctor(CLI::App& app, Doctor_Options& options)
{
    CLI::App& verb = *app.add_subcommand("doctor", "find out why a camera does not work, and what to do about it");
    verb.add_option("camera", options.camera, "only this camera; otherwise all are looked at")->type_name("CAMERA");
    verb.add_flag("--capture", options.capture,
                  "capture a few frames in each format; reports rate, jitter, lost and damaged frames");
    verb.add_flag("--json", options.json, "print JSON");
    verb.footer("Starts each camera for a moment. The exit status is 0 when nothing is wrong, and 1 with findings.");
}

#ifdef WQZ_WITH_PREVIEW
void Add_Preview(CLI::App& app, Arguments& arguments)
{
    constexpr int64_t Most_Port = UINT16_MAX;
    Preview_Options& options = arguments.preview;
    CLI::App& verb = *app.add_subcommand("preview", "show the live picture and all settings on a page in the browser");
    verb.add_option("camera", options.camera, std::string(Camera_Help) + "; without a name the page has them all")
        ->type_name("CAMERA");
    const auto parse_port = [&options](const std::string& text) {
        options.port = static_cast<int>(Parse_Count("--port", text, 0, Most_Port));
    };
    verb.add_option_function<std::string>("--port", parse_port, "serve on this port; 0 for any that is free")
        ->type_name("N")
        ->default_str("8080, or the next one that is free");
    verb.add_option("--listen", options.listen_address,
                    "serve on this IP address of the machine, 0.0.0.0 for all, instead of this machine only; the "
                    "printed address then has a random token that every request needs")
        ->type_name("ADDRESS");
    verb.add_flag("--json", options.json, "print the page's addresses as JSON");
    verb.footer("Prints the page's address. Other programs read the picture at /stream and /snapshot. Ctrl-C ends.");
}
#endif

void Add_Verbs(CLI::App& app, Arguments& arguments)
{
    app.require_subcommand(1);

    CLI::App& list = *app.add_subcommand("list", "list the cameras");
    for (const auto& [name, id] : {std::pair{"--vid", &arguments.list.vid}, std::pair{"--pid", &arguments.list.pid}}) {
        const auto parse = [option = std::string(name), target = id](const std::string& text) {
            *target = Parse_Id(option, text);
        };
        list.add_option_function<std::string>(name, parse, "only cameras with this USB id")->type_name("HEX");
    }
    list.add_flag("--json", arguments.list.json, "print JSON");
    list.add_flag("--watch", arguments.list.watch,
                  "go on with a line for each camera that comes or goes, until Ctrl-C");

    CLI::App& modes = *app.add_subcommand("modes", "list a camera's formats, sizes and rates");
    modes.add_option("camera", arguments.camera, Camera_Help)->type_name("CAMERA");
    modes.add_flag("--json", arguments.json, "print JSON");

    CLI::App& controls = *app.add_subcommand("controls", "list a camera's controls, or set some");
    controls
        .add_option("arguments", arguments.control_words,
                    std::string("CAMERA: ") + Camera_Help +
                        ". name: print a control. name=value: set one to a number (hexadecimal with 0x), the name of "
                        "a menu item, on, off or default. reset: set all to their defaults")
        ->type_name("[CAMERA] [name | name=value | reset]");
    controls.add_flag("--json", arguments.json, "print JSON");

    Add_Capture(app, arguments);
    Add_Doctor(app, arguments.doctor);
#ifdef WQZ_WITH_PREVIEW
    Add_Preview(app, arguments);
#endif
}

/// @return what is wrong with the first word that is no option, or an empty text
std::string Wrong_Verb(const CLI::App& app, int argc, char** argv)
{
    char** word = std::find_if(argv + std::min(argc, 1), argv + argc, [](const char* text) { return *text != '-'; });
    std::vector<std::string> verbs;
    for (const CLI::App* verb : app.get_subcommands([](const CLI::App*) { return true; })) {
        verbs.push_back(verb->get_name());
    }
    if (word == argv + argc || std::ranges::find(verbs, *word) != verbs.end()) {
        return "";
    }
    return "there is no verb '" + std::string(*word) + "'" + Suggestion(*word, verbs);
}

int Run(const CLI::App& app, const Arguments& arguments)
{
    if (app.got_subcommand("list")) {
        return Run_List(arguments.list);
    }
    if (app.got_subcommand("controls")) {
        return Run_Controls(arguments.control_words, arguments.json);
    }
    if (app.got_subcommand("capture")) {
        return Run_Capture(arguments.camera, arguments.capture);
    }
    if (app.got_subcommand("doctor")) {
        return Run_Doctor(arguments.doctor);
    }
#ifdef WQZ_WITH_PREVIEW
    if (app.got_subcommand("preview")) {
        return Run_Preview(arguments.preview);
    }
#endif
    Print_Modes(Open_Camera(arguments.camera).Modes(), arguments.json);
    return EXIT_SUCCESS;
}

int Parse_And_Run(int argc, char** argv)
{
    CLI::App app("Find cameras, look at what they offer and capture pictures from them.", "wqz-usbcam");
    app.set_version_flag("--version", WQZ_USBCAM_TOOL_VERSION);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return Message_Start + std::string(error.what()) + "\nRun with --help for more information.\n";
    });
    Arguments arguments;
    Add_Verbs(app, arguments);
    if (argc > 1 && argv[1] == std::string(Completion_Word)) {
        Print_Completions(app, std::vector<std::string>(argv + 2, argv + argc));
        Flush_Output();
        return EXIT_SUCCESS;
    }
    try {
        const std::string wrong_verb = Wrong_Verb(app, argc, argv);
        if (!wrong_verb.empty()) {
            throw CLI::ParseError(wrong_verb, Usage_Error);
        }
        app.parse(argc, argv);
        const std::string contradiction = app.got_subcommand("capture") ? Contradiction(arguments.capture) : "";
        if (!contradiction.empty()) {
            throw CLI::ParseError(contradiction, Usage_Error);
        }
    } catch (const CLI::ParseError& error) {
        const bool is_request = app.exit(error) == 0;  // for help or the version
        Flush_Output();
        return is_request ? EXIT_SUCCESS : Usage_Error;
    }
    const int status = Run(app, arguments);
    Flush_Output();
    return status;
}

}  // namespace

int main(int argc, char** argv)
{
    try {
        return Parse_And_Run(argc, argv);
    } catch (const std::exception& error) {
        Say(error.what());
        return EXIT_FAILURE;
    }
}
