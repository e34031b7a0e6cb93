// Declares what Ctrl-C does during a capture.
#ifndef WQZ_TOOL_INTERRUPT_H
#define WQZ_TOOL_INTERRUPT_H

#include "Camera/wqz_camera.h"

/// From its construction on, SIGINT, SIGTERM and SIGHUP do not end the process but the camera's waits, and a write that
/// has to wait. A repeated signal, as a launcher passes it on beside the terminal's own, changes nothing. The
/// destructor lets go of the camera. There is one guard at a time.
class Interrupt_Guard {
public:
    explicit Interrupt_Guard(WQZ_Camera* camera);
    ~Interrupt_Guard();
    Interrupt_Guard(const Interrupt_Guard&) = delete;
    Interrupt_Guard& operator=(const Interrupt_Guard&) = delete;
};

/// @return the signal that came, or 0
int Caught_Signal();

#endif  // WQZ_TOOL_INTERRUPT_H
