// Declares what Ctrl-C does during a capture.
#ifndef WQZ_TOOL_INTERRUPT_H
#define WQZ_TOOL_INTERRUPT_H

#include "Camera/wqz_camera.h"

/// While it exists, SIGINT, SIGTERM and SIGHUP end the camera's waits. A second signal of the same kind ends the
/// process, should it hang elsewhere. There is one at a time.
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
