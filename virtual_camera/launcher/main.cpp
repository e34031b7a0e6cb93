// with-virtual-camera: runs a command that sees virtual cameras.
//
// sysfs and /dev come from umockdev, as a tree in a temporary folder that its preloaded object lays over them. The
// driver comes from our own preloaded object, which reads the cameras' description from the environment.
#include <unistd.h>
#include <virtual_camera/description.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "run_command.h"

namespace {

constexpr int Wrong_Usage = 2;
constexpr int Cannot_Run = 126;

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
    unsigned cameras = 1;
    bool cameras_given = false;
    bool non_usb = false;
    std::string file;    // of a description
    std::string common;  // description lines that hold for every camera
    bool print = false;
    char** command = nullptr;
};

/// Walks over the arguments; values of options are taken from it.
class Arguments {
public:
    Arguments(char** begin, char** end) : next_(begin), end_(end) {}

    bool At_Option() const { return next_ != end_ && (*next_)[0] == '-' && (*next_)[1] != '\0'; }
    bool At_End() const { return next_ == end_; }
    char** Rest() const { return next_; }
    std::string Take() { return *next_++; }

    std::string Value(const std::string& option)
    {
        if (At_End()) {
            Give_Up(Wrong_Usage, option + " needs a value");
        }
        return Take();
    }

private:
    char** next_;
    char** end_;
};

unsigned Camera_Count(const std::string& text)
{
    constexpr unsigned long Most = 64;
    char* end = nullptr;
    const unsigned long count = std::strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || count == 0 || count > Most) {
        Give_Up(Wrong_Usage, "--cameras takes a number from 1 to 64, not '" + text + "'");
    }
    return unsigned(count);
}

std::string Refusal_Line(const std::string& text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos) {
        Give_Up(Wrong_Usage, "--refuse takes REQUEST=ERRNO, not '" + text + "'");
    }
    return "refuse " + text.substr(0, equals) + " " + text.substr(equals + 1) + "\n";
}

bool Take_Camera_Option(const std::string& option, Arguments& arguments, Options& options)
{
    if (option == "--cameras") {
        options.cameras = Camera_Count(arguments.Value(option));
        options.cameras_given = true;
    } else if (option == "--non-usb") {
        options.non_usb = true;
    } else if (option == "--description") {
        options.file = arguments.Value(option);
    } else if (option == "--print-description") {
        options.print = true;
    } else {
        return false;
    }
    return true;
}

bool Take_Common_Option(const std::string& option, Arguments& arguments, Options& options)
{
    if (option == "--no-metadata") {
        options.common += "metadata none\n";
    } else if (option == "--metadata") {
        options.common += "metadata automatic\n";
    } else if (option == "--max-rate") {
        options.common += "rate max\n";
    } else if (option == "--refuse") {
        options.common += Refusal_Line(arguments.Value(option));
    } else if (option == "--pause-after") {
        const std::string frames = arguments.Value(option);
        options.common += "pause-after " + frames + " " + arguments.Value(option) + "\n";
    } else if (option == "--jpeg-padding" || option == "--unplug-after" || option == "--damage-every") {
        options.common += option.substr(2) + " " + arguments.Value(option) + "\n";
    } else {
        return false;
    }
    return true;
}

Options Parse(int count, char** values)
{
    Options options;
    Arguments arguments(values + 1, values + count);
    while (arguments.At_Option()) {
        const std::string option = arguments.Take();
        if (option == "--") {
            break;
        }
        if (option == "--help" || option == "-h") {
            std::cout << Usage;
            std::exit(0);
        }
        if (!Take_Camera_Option(option, arguments, options) && !Take_Common_Option(option, arguments, options)) {
            Give_Up(Wrong_Usage, "unknown option " + option + " (--help lists them)");
        }
    }
    if (arguments.At_End() && !options.print) {
        Give_Up(Wrong_Usage, "no command given (--help shows how)");
    }
    if (options.cameras_given && !options.file.empty()) {
        Give_Up(Wrong_Usage, "--cameras and --description exclude each other");
    }
    options.command = arguments.Rest();
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

std::string Camera_Lines(const Options& options)
{
    std::string text;
    for (unsigned i = 0; i < options.cameras; i++) {
        text += "camera\n";
    }
    if (options.non_usb) {
        text += "camera Virtual Platform Camera\nusb none\ndriver platform-camera\n";
    }
    return text;
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
    if (!options.common.empty()) {
        (void)Checked(options.common + "camera\n", "options");
    }
    if (options.file.empty()) {
        return options.common + Camera_Lines(options);
    }
    std::string text = Read_File(options.file);
    (void)Checked(text, options.file);
    if (options.non_usb) {
        Options platform = options;
        platform.cameras = 0;
        text.append("\n").append(Camera_Lines(platform));
    }
    return options.common + text;
}

/// The object to preload: beside the program that was built, or where it was installed.
std::string Object_Path()
{
    char buffer[4096];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
    const std::string self(buffer, length > 0 ? size_t(length) : 0);
    const std::string folder = self.substr(0, self.rfind('/'));
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

int main(int argc, char** argv)
{
    const Options options = Parse(argc, argv);
    const std::string description = Description(options);
    const auto cameras = Checked(description, options.file.empty() ? "cameras" : options.file + " with the options");
    const std::string tree = virtual_camera::Umockdev_Description(cameras);
    if (options.print) {
        std::cout << tree;
        return 0;
    }
    setenv("WQZ_VIRTUAL_CAMERA", description.c_str(), 1);
    try {
        return Run_Command(options.command, tree, Object_Path());
    } catch (const std::runtime_error& error) {
        Give_Up(Cannot_Run, error.what());
    }
}
