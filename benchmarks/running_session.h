// A running session on a virtual camera.
#ifndef WQZ_BENCHMARKS_RUNNING_SESSION_H
#define WQZ_BENCHMARKS_RUNNING_SESSION_H

#include <thread>

#include "capture_setup.h"
#include "loop_meter.h"

/// A running session of the library with its capture loop on a thread of its own.
class Running_Session {
public:
    /// @param meter  measures the capture loop; may be null
    explicit Running_Session(const Bench_Camera& camera, Loop_Meter* meter = nullptr);
    ~Running_Session();
    Running_Session(const Running_Session&) = delete;
    Running_Session& operator=(const Running_Session&) = delete;

    /// Waits for a frame and gives it back.
    void Take_Frame();

private:
    void* handle;
    std::thread capture;
};

#endif  // WQZ_BENCHMARKS_RUNNING_SESSION_H
