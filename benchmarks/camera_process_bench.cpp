// Measures the CPU time of a frame in processes of their own: the camera interface beside v4l2-ctl, all below the same
// launcher of the virtual camera.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A mode that the launcher's camera offers.
struct Process_Mode {
    std::string name;
    std::string fourcc;
};
constexpr char Node[] = "/dev/video0";
constexpr char Width[] = "640", Height[] = "480";

/// The command line that takes so many frames.
using Command = std::vector<std::string> (*)(const Process_Mode& mode, const std::string& frames);

std::vector<std::string> V4l2_Ctl(const Process_Mode& mode, const std::string& frames)
{
    return {"v4l2-ctl",
            "-d",
            Node,
            "-v",
            std::string("width=") + Width + ",height=" + Height + ",pixelformat=" + mode.fourcc,
            "--stream-mmap",
            "--stream-count=" + frames};
}

std::vector<std::string> By_Library(const Process_Mode& mode, const std::string& frames)
{
    return {TAKE_FRAMES, Node, mode.fourcc, Width, Height, frames, "library"};
}

std::vector<std::string> By_Poll_Loop(const Process_Mode& mode, const std::string& frames)
{
    return {TAKE_FRAMES, Node, mode.fourcc, Width, Height, frames, "loop"};
}

/// Runs a command that sees a virtual camera, without its output.
/// @return its CPU time in seconds
double Cpu_Of(const std::vector<std::string>& command)
{
    std::vector<std::string> words = {WITH_VIRTUAL_CAMERA, "--max-rate"};
    words.insert(words.end(), command.begin(), command.end());
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&quiet, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = 0;
    const int error = posix_spawn(&child, arguments[0], &quiet, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&quiet);
    int status = 0;
    rusage usage{};
    if (error != 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
        throw std::runtime_error(command[0] + " failed");
    }
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// Takes many frames and few. The difference is free of what it costs to begin and to end.
void Frame_Of_Process(benchmark::State& state, const Process_Mode& mode, Command command)
{
    constexpr int Few = 200, Many = 6200;
    try {
        for (auto _ : state) {
            const double begun_and_ended = Cpu_Of(command(mode, std::to_string(Few)));
            const double all = Cpu_Of(command(mode, std::to_string(Many)));
            state.SetIterationTime((all - begun_and_ended) / (Many - Few));
        }
    } catch (const std::exception& error) {
        state.SkipWithError(error.what());
    }
}

bool Register_All()
{
    const std::pair<const char*, Command> subjects[] = {
        {"library", By_Library}, {"poll loop", By_Poll_Loop}, {"v4l2-ctl", V4l2_Ctl}};
    for (const Process_Mode& mode : {Process_Mode{"640x480 YUYV", "YUYV"}, Process_Mode{"640x480 MJPEG", "MJPG"}}) {
        for (const auto& [subject, command] : subjects) {
            const std::string name = "camera-process/" + mode.name + "/" + subject;
            benchmark::RegisterBenchmark(name.c_str(), Frame_Of_Process, mode, command)->Iterations(1)->UseManualTime();
        }
    }
    return true;
}

[[maybe_unused]] const bool registered = Register_All();

}  // namespace
