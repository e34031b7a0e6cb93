// with-virtual-camera: runs a command that sees virtual cameras.
//
// sysfs and /dev come from umockdev, as a tree in a temporary folder that its preloaded object lays over them. The
// driver comes from our own preloaded object, which reads the cameras' description from the environment.
#include <unistd.h>
#include <virtual_camera/description.h>
#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "run_command.h"

namespace {

constexpr int Wrong_Usage = 2;

constexpr char Usage[] = R"(usage: with-virtual-camera [OPTION...] COMMAND [ARGUMENT...]

Runs COMMAND with virtual cameras at /dev/video0 and up. Its exit status is returned, 128 and more after a signal.

  --cameras N             that many USB cameras of one model (default 1)
  --no-metadata           cameras without a metadata node beside the capture node
  --metadata              with it (the default)
  --non-usb               one more camera that is no USB device
  --description FILE      the cameras that FILE describes; '-' reads standard input
  --max-rate              frames as fast as they are asked for
  --jpeg-padding BYTES    Motion-JPEG frames filled with zeros to a multiple of BYTES, or 'full'
  --unplug-after N|Ns     every camera vanishes after N frames, or N seconds after streaming began
  --replug-after Ns       and comes back N seconds later
  --pause-after N Ts      every camera falls silent for T seconds after N frames
  --damage-every N        every Nth frame lacks its end
  --refuse REQUEST=ERRNO  a request or call always fails, as in VIDIOC_S_FMT=EBUSY or open=EACCES
  --print-description     prints what umockdev would get, and runs nothing
  --help                  this text

A description is lines of keyword and values; docs/virtual-camera.md, installed as documentation, lists them.
)";

[[noreturn]] void Give_Up(int status, const std::string& message)
{
    std::cerr << "with-virtual-camera: " << message << "\n";
    std::exit(status);
}

struct Options {
    unsigned cameras = 0;  // 0: one, or those of a file
    bool non_usb = false;
    std::string file;    // of a description
    std::string common;  // description lines that hold for every camera
    bool print = false;
};

/// Options that are lines of a description, with as many values behind them.
struct Line_Option {
    const char* name;
    const char* line;
    int values;
};
constexpr Line_Option Line_Options[] = {
    {"--no-metadata", "metadata none", 0},
    {"--metadata", "metadata automatic", 0},
    {"--max-rate", "rate max", 0},
    {"--jpeg-padding", "jpeg-padding", 1},
    {"--unplug-after", "unplug-after", 1},
    {"--replug-after", "replug-after", 1},
    {"--pause-after", "pause-after", 2},
    {"--damage-every", "damage-every", 1},
    {"--refuse", "refuse", 1},
};

std::string Value(char**& next, const std::string& option)
{
    if (!*next) {
        Give_Up(Wrong_Usage, option + " needs a value");
    }
    return *next++;
}

unsigned Camera_Count(const std::string& text)
{
    constexpr unsigned Most = 64;
    unsigned count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc{} || *end != '\0' || count == 0 || count > Most) {
        Give_Up(Wrong_Usage, "--cameras takes a number from 1 to 64, not '" + text + "'");
    }
    return count;
}

void Take_Line_Option(const std::string& option, char**& next, Options& options)
{
    const auto* found =
        std::find_if(std::begin(Line_Options), std::end(Line_Options), [&](const auto& o) { return option == o.name; });
    if (found == std::end(Line_Options)) {
        Give_Up(Wrong_Usage, "unknown option " + option + " (--help lists them)");
    }
    std::string line = found->line;
    for (int i = 0; i < found->values; i++) {
        line.append(" ").append(Value(next, option));
    }
    if (option == "--refuse") {
        std::replace(line.begin(), line.end(), '=', ' ');
    }
    options.common += line + "\n";
}

/// Takes the options away from the beginning of the arguments.
Options Parse(char**& next)
{
    Options options;
    while (*next && (*next)[0] == '-' && (*next)[1] != '\0') {
        const std::string option = *next++;
        if (option == "--") {
            break;
        } else if (option == "--help" || option == "-h") {
            std::cout << Usage;
            std::exit(0);
        } else if (option == "--cameras") {
            options.cameras = Camera_Count(Value(next, option));
        } else if (option == "--non-usb") {
            options.non_usb = true;
        } else if (option == "--description") {
            options.file = Value(next, option);
        } else if (option == "--print-description") {
            options.print = true;
        } else {
            Take_Line_Option(option, next, options);
        }
    }
    if (!*next && !options.print) {
        Give_Up(Wrong_Usage, "no command given (--help shows how)");
    }
    if (options.cameras > 0 && !options.file.empty()) {
        Give_Up(Wrong_Usage, "--cameras and --description exclude each other");
    }
    return options;
}

std::string Read_File(const std::string& name)
{
    std::ifstream file;
    if (name != "-") {
        file.open(name);
        if (!file) {
            Give_Up(Wrong_Usage, "cannot read " + name + ": " + std::strerror(errno));
        }
    }
    std::istream& input = name == "-" ? std::cin : file;
    return {std::istreambuf_iterator<char>(input), {}};
}

std::vector<virtual_camera::Camera_Description> Checked(const std::string& text, const std::string& source)
{
    try {
        return virtual_camera::Parse_Description(text);
    } catch (const virtual_camera::Description_Error& error) {
        Give_Up(Wrong_Usage, source + ": " + error.what());
    }
}

/// Options first, as lines before the first camera. They are checked apart, so that line numbers are the file's own.
std::string Description(const Options& options)
{
    (void)Checked(options.common + "camera\n", "options");
    std::string cameras = options.file.empty() ? "camera\n" : Read_File(options.file) + "\n";
    if (!options.file.empty()) {
        (void)Checked(cameras, options.file);
    }
    for (unsigned i = 1; i < options.cameras; i++) {
        cameras += "camera\n";
    }
    if (options.non_usb) {
        cameras += "camera Virtual Platform Camera\nusb none\ndriver platform-camera\n";
    }
    return options.common + cameras;
}

/// The object to preload: beside the program that was built, or where it was installed.
std::string Object_Path()
{
    const std::string folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const std::string& path :
         {folder + "/" WQZ_VIRTUAL_CAMERA_FILE, folder + "/../" WQZ_VIRTUAL_CAMERA_LIBDIR "/" WQZ_VIRTUAL_CAMERA_FILE,
          std::string(WQZ_VIRTUAL_CAMERA_BUILT)}) {
        if (access(path.c_str(), R_OK) == 0) {
            return path;
        }
    }
    Give_Up(Cannot_Run, "cannot find " WQZ_VIRTUAL_CAMERA_FILE " beside this program or in its library folder");
}

}  // namespace

int main(int, char** argv)
{
    char** command = argv + 1;
    const Options options = Parse(command);
    const std::string description = Description(options);
    const auto cameras = Checked(description, options.file.empty() ? "cameras" : options.file + " with the options");
    const std::string devices = virtual_camera::Umockdev_Description(cameras);
    if (options.print) {
        std::cout << devices;
        return 0;
    }
    setenv("WQZ_VIRTUAL_CAMERA", description.c_str(), 1);
    try {
        return Run_Command(command, devices, Object_Path());
    } catch (const std::runtime_error& error) {
        Give_Up(Cannot_Run, error.what());
    }
}
