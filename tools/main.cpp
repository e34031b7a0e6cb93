// The command line of wqz-usbcam: parses it and runs one verb.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "camera.h"
#include "camera_node.h"
#include "capture.h"
#include "controls.h"
#include "listing.h"
#include "modes.h"

namespace {

constexpr int Usage_Error = 2;

constexpr const char* Camera_Help = "node path, VID:PID or index of 'list'; not needed when there is one camera";

struct Arguments {
    bool verbose = false;
    bool json = false;
    std::optional<uint16_t> vid;
    std::optional<uint16_t> pid;
    std::string camera;
    std::vector<std::string> camera_and_settings;
    Capture_Options capture;
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

std::string Above_Zero(const std::string& text)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    return *end == 0 && value > 0 ? "" : "'" + text + "' is not a number above 0";
}

void Add_Id_Option(CLI::App& verb, const std::string& name, std::optional<uint16_t>& id)
{
    const auto parse = [&id, name](const std::string& text) {
        size_t used = 0;
        unsigned long value = ~0UL;
        try {
            value = std::stoul(text, &used, 16);
        } catch (const std::exception&) {
            used = 0;
        }
        if (used == 0 || used != text.size() || value > 0xFFFF) {
            throw CLI::ValidationError(name, "'" + text + "' is not a USB id; write up to 4 hexadecimal digits");
        }
        id = static_cast<uint16_t>(value);
    };
    verb.add_option_function<std::string>(name, parse, "only cameras with this USB id")->type_name("HEX");
}

void Add_Capture(CLI::App& app, Arguments& arguments)
{
    Capture_Options& options = arguments.capture;
    CLI::App& verb = *app.add_subcommand("capture", "capture frames into files");
    verb.add_option("camera", arguments.camera, Camera_Help)->type_name("CAMERA");
    const auto set_format = [&options](const std::string& name) {
        options.mode.pixel_format = name == "mjpeg" ? V4L2_PIX_FMT_MJPEG : V4L2_PIX_FMT_YUYV;
    };
    verb.add_option_function<std::string>("--format", set_format, "mjpeg makes .jpg files, yuyv makes .bmp files")
        ->type_name("mjpeg|yuyv")
        ->check(CLI::IsMember({"mjpeg", "yuyv"}));
    verb.add_option_function<std::string>(
            "--size", [&options](const std::string& text) { options.mode.size = Parse_Size(text); }, "in pixels")
        ->type_name("WxH");
    verb.add_option("--fps", options.mode.frames_per_second, "frames per second")
        ->type_name("N")
        ->check(CLI::Range(1U, 1000U));
    auto* frames = verb.add_option("--frames", options.limits.files, "end after this many frames")
                       ->type_name("N")
                       ->check(Above_Zero);
    verb.add_option("--seconds", options.limits.seconds, "end this long after the first frame")
        ->type_name("S")
        ->check(Above_Zero)
        ->excludes(frames);
    verb.add_option("-o,--output", options.directory, "directory for the files, created if missing")
        ->type_name("DIR")
        ->capture_default_str();
    verb.add_flag("--raw", options.raw,
                  "write each frame's bytes as the camera sent them, into SECONDS_MICROSECONDS.raw");
    verb.footer("With neither --frames nor --seconds the capture goes on until Ctrl-C.");
}

void Add_Verbs(CLI::App& app, Arguments& arguments)
{
    app.add_flag("-v,--verbose", arguments.verbose, "also show the library's own messages");
    app.require_subcommand(1);
    app.fallthrough();

    CLI::App& list = *app.add_subcommand("list", "list the cameras");
    Add_Id_Option(list, "--vid", arguments.vid);
    Add_Id_Option(list, "--pid", arguments.pid);
    list.add_flag("--json", arguments.json, "print JSON");

    CLI::App& modes = *app.add_subcommand("modes", "list a camera's formats, sizes and rates");
    modes.add_option("camera", arguments.camera, Camera_Help)->type_name("CAMERA");
    modes.add_flag("--json", arguments.json, "print JSON");

    CLI::App& controls = *app.add_subcommand("controls", "list a camera's controls, or set some");
    controls.add_option("arguments", arguments.camera_and_settings, std::string("CAMERA: ") + Camera_Help)
        ->type_name("[CAMERA] [name=value ...]");

    Add_Capture(app, arguments);
}

/// A first word without '=' names the camera; the other words are settings.
void Split_Settings(Arguments& arguments)
{
    auto& words = arguments.camera_and_settings;
    if (!words.empty() && words.front().find('=') == std::string::npos) {
        arguments.camera = words.front();
        words.erase(words.begin());
    }
}

/// Moves what the library prints out of the tool's output. The library prints to the C streams stdout and stderr; the
/// tool prints to std::cout and std::cerr, which keep the original descriptors.
void Separate_Library_Output(bool show)
{
    FILE* sink = show ? stderr : std::fopen("/dev/null", "w");
    if (sink != nullptr) {
        stdout = sink;
        stderr = sink;
    }
}

int Run(const CLI::App& app, Arguments& arguments)
{
    const Camera_List cameras;
    if (app.got_subcommand("list")) {
        Print_Cameras(cameras, arguments.vid, arguments.pid, arguments.json);
        return EXIT_SUCCESS;
    }
    Split_Settings(arguments);
    const v4l2_dev_sys_data_t camera = Select_Camera(cameras, arguments.camera);
    if (app.got_subcommand("capture")) {
        return Run_Capture(camera, arguments.capture);
    }
    if (app.got_subcommand("controls")) {
        Run_Controls(camera, arguments.camera_and_settings);
    } else {
        (void)Camera_Node(camera.Device_Path);  // throws with the reason when the camera cannot be opened
        Print_Modes(Read_Modes(Camera_Session(camera).Handle()), arguments.json);
    }
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app("Find USB cameras, look at what they offer and capture pictures from them.", "wqz-usbcam");
    app.set_version_flag("--version", WQZ_USBCAM_TOOL_VERSION);
    Arguments arguments;
    Add_Verbs(app, arguments);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_SUCCESS : Usage_Error;
    }
    Separate_Library_Output(arguments.verbose);
    try {
        return Run(app, arguments);
    } catch (const std::exception& error) {
        std::cerr << "wqz-usbcam: " << error.what() << '\n';
        return EXIT_FAILURE;
    }
}
