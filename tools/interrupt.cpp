// Turns signals into the end of a capture.
#include "interrupt.h"

#include <atomic>
#include <csignal>
#include <initializer_list>

namespace {

std::atomic<int> Signal = 0;
std::atomic<WQZ_Camera*> Camera_To_Cancel = nullptr;
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<WQZ_Camera*>::is_always_lock_free);

extern "C" void Note_Signal(int signal)
{
    Signal.store(signal);
    (void)WQZ_Camera_Cancel(Camera_To_Cancel.load());
}

}  // namespace

Interrupt_Guard::Interrupt_Guard(WQZ_Camera* camera)
{
    Camera_To_Cancel.store(camera);
    struct sigaction action = {};
    action.sa_handler = Note_Signal;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        (void)sigaction(signal, &action, nullptr);
    }
    // A file at the size limit and a closed pipe make a write fail instead of ending the process.
    (void)std::signal(SIGXFSZ, SIG_IGN);
    (void)std::signal(SIGPIPE, SIG_IGN);
}

Interrupt_Guard::~Interrupt_Guard()
{
    Camera_To_Cancel.store(nullptr);
}

int Caught_Signal()
{
    return Signal.load();
}
