// The verb "capture": runs one capture from the choice of the mode to the summary.
#include "capture.h"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>

#include "camera.h"
#include "camera_node.h"
#include "capture_thread.h"

namespace {

using namespace std::chrono_literals;

// Covers one wait of the capture loop. Longer waiting would not help a loop that is stuck in the driver.
constexpr auto Dead_Camera_Patience = 1500ms;

std::atomic<int> Caught_Signal = 0;
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void Note_Signal(int signal)
{
    Caught_Signal.store(signal);
}

bool Is_Interrupted()
{
    return Caught_Signal.load() != 0;
}

void Catch_Signals()
{
    struct sigaction action = {};
    action.sa_handler = Note_Signal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        (void)sigaction(signal, &action, nullptr);
    }
    // A file that reaches the size limit makes its write fail instead of ending the process.
    (void)std::signal(SIGXFSZ, SIG_IGN);
}

Pix_Format Request(const Pix_Format& mode)
{
    Pix_Format request = mode;
    request.u_PixFormat = mode.u_PixFormat == V4L2_PIX_FMT_MJPEG ? 0 : 1;
    return request;
}

/// @return what went wrong, empty when nothing did
std::string Consume(Consumer& consumer, const Capture_Thread& loop, Picture_Folder& folder)
{
    try {
        consumer.Run(loop, folder, Is_Interrupted);
        return "";
    } catch (const std::exception& error) {
        return error.what();
    }
}

void Report(const Statistics& statistics, const Picture_Folder& folder, const std::string& failure)
{
    if (isatty(STDERR_FILENO) == 1) {
        std::cerr << "\r\x1b[K";
    }
    std::cout << statistics.Summary() << "saved     " << folder.Summary() << std::endl;
    if (!failure.empty()) {
        std::cerr << "wqz-usbcam: " << failure << '\n';
    }
}

}  // namespace

int Run_Capture(const v4l2_dev_sys_data_t& camera, const Capture_Options& options)
{
    const Camera_Session session(camera, options.raw ? Delivery::Unconverted : Delivery::Pictures);
    const Pix_Format mode = Choose_Mode(Read_Modes(session.Handle()), options.mode);
    Camera_Node(camera.Device_Path).Check_Format(mode);
    Picture_Folder folder(options.directory, options.raw ? Picture_Folder::Kind::Raw : Picture_Folder::Kind::Pictures);
    std::cout << camera.Device_Path << ": " << Mode_Text(mode) << std::endl;
    Catch_Signals();

    Capture_Thread loop(session.Handle(), Request(mode));
    Consumer consumer(session.Handle(), camera.Device_Path, mode.u_PixFormat, options.limits);
    const std::string failure = Consume(consumer, loop, folder);
    const bool has_limits = options.limits.files || options.limits.seconds;
    const bool ended_early = failure.empty() && has_limits && !consumer.Is_Complete();
    const bool stopped = loop.Stop(failure.empty() ? Capture_Thread::Usual_Patience : Dead_Camera_Patience);
    Report(consumer.Counts(), folder, failure);

    int status = failure.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
    if (ended_early) {
        status = 128 + Caught_Signal.load();
    }
    if (!stopped) {
        // The loop is stuck in the driver and still uses the session, so nothing can be released.
        std::_Exit(status);
    }
    return status;
}
