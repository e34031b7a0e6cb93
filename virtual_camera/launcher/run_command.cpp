// Runs a command on a device tree of its own. umockdev makes the tree in a temporary folder, and its preloaded object
// lays it over /sys and /dev. Its own launcher is not used: that takes arguments in the locale's encoding only, and
// closes the descriptors that a command inherits.
#include "run_command.h"

#include <dlfcn.h>
#include <sys/wait.h>
#include <umockdev.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

constexpr char Umockdev_Object[] = "libumockdev-preload.so.0";
constexpr int Not_Found = 127;
constexpr int Signal_Status = 128;

[[noreturn]] void Fail(const std::string& message, const char* reason)
{
    throw std::runtime_error(message + ": " + reason);
}

/// umockdev's links name the files of its tree; in /dev they are relative. A link has the numbers of its node.
void Correct_Links(const fs::path& devices)
{
    for (const std::string kind : {"by-id", "by-path"}) {
        std::error_code none;
        for (const auto& link : fs::directory_iterator(devices / "v4l" / kind, none)) {
            const fs::path node = fs::read_symlink(link).filename();
            fs::remove(link);
            fs::create_symlink("../.." / node, link);
            fs::copy_symlink(devices / ".node" / node,
                             devices / ".node" / ("v4l_" + kind + "_" + link.path().filename().string()));
        }
    }
}

fs::path Make_Tree(const std::string& devices)
{
    if (access(g_get_tmp_dir(), W_OK | X_OK) != 0) {
        Fail(std::string("cannot write to ") + g_get_tmp_dir(), std::strerror(errno));
    }
    UMockdevTestbed* bed = umockdev_testbed_new();
    GError* error = nullptr;
    if (!umockdev_testbed_add_from_string(bed, devices.c_str(), &error)) {
        Fail("umockdev does not take the cameras", error->message);
    }
    const std::string root = umockdev_testbed_get_root_dir(bed);
    Correct_Links(root + "/dev");
    return root;
}

void Set_Preloaded(const fs::path& root, fs::path object)
{
    void* umockdev = dlopen(Umockdev_Object, RTLD_LAZY);
    if (!umockdev) {
        Fail("umockdev is missing; on Debian, install the package umockdev", dlerror());
    }
    dlclose(umockdev);
    if (object.string().find_first_of(": ") != std::string::npos) {  // the dynamic linker divides its list there
        fs::create_symlink(object, root / "virtual-camera.so");
        object = root / "virtual-camera.so";
    }
    const char* others = std::getenv("LD_PRELOAD");
    const std::string list = object.string() + ":" + (others ? others : "") + ":" + Umockdev_Object;
    setenv("LD_PRELOAD", list.c_str(), 1);
}

int Run_Child(char** command, const sigset_t& passed_on, const sigset_t& before)
{
    const pid_t child = fork();
    if (child == 0) {
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        execvp(command[0], command);
        const int error = errno;
        const bool missing = error == ENOENT && !std::strchr(command[0], '/');
        std::cerr << "with-virtual-camera: " << command[0] << ": "
                  << (missing ? "command not found" : std::strerror(error)) << "\n";
        _exit(error == ENOENT ? Not_Found : Cannot_Run);
    }
    if (child < 0) {
        std::cerr << "with-virtual-camera: cannot start " << command[0] << ": " << std::strerror(errno) << "\n";
        return Cannot_Run;
    }
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        siginfo_t info{};
        const int signal = sigwaitinfo(&passed_on, &info);
        if (signal > 0 && signal != SIGCHLD && info.si_code <= 0) {  // those of a terminal reach the command anyway
            kill(child, signal);
        }
    }
    return WIFSIGNALED(status) ? Signal_Status + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int Run_Command(char** command, const std::string& devices, const std::string& object)
{
    sigset_t passed_on, before;
    sigemptyset(&passed_on);
    for (const int signal : {SIGCHLD, SIGTERM, SIGINT, SIGQUIT, SIGHUP, SIGUSR1, SIGUSR2}) {
        sigaddset(&passed_on, signal);
    }
    std::signal(SIGCHLD, SIG_DFL);                    // a caller that ignores it would take the command's status away
    pthread_sigmask(SIG_BLOCK, &passed_on, &before);  // before umockdev starts a thread, which would take them
    const fs::path root = Make_Tree(devices);
    Set_Preloaded(root, object);
    const int status = Run_Child(command, passed_on, before);
    if (status != Cannot_Run && status != Not_Found && !fs::exists(root / "preloaded")) {
        std::cerr << "with-virtual-camera: " << command[0]
                  << " saw no camera, because nothing can be preloaded into it: it is statically linked, or built for "
                     "another kind of machine, or runs with more rights than its caller (set-user-id, set-group-id, "
                     "file capabilities)\n";
    }
    std::error_code ignored;  // umockdev's own removal aborts when a process that lives on adds a file meanwhile
    fs::remove_all(root, ignored);
    return status;
}
