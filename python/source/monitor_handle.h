// A watch over the plugging of cameras, safe to close while another Python thread waits.
#ifndef WQZ_PYTHON_MONITOR_HANDLE_H
#define WQZ_PYTHON_MONITOR_HANDLE_H

#include <pybind11/pybind11.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include "Camera/wqz_camera.hpp"
#include "unlocked.h"
#include "waiting.h"

/// States: open, closed. The library allows one thread at a time, so others wait for the slice that runs.
class Monitor_Handle {
public:
    Monitor_Handle();
    ~Monitor_Handle();
    Monitor_Handle(const Monitor_Handle&) = delete;
    Monitor_Handle& operator=(const Monitor_Handle&) = delete;

    /// @return nothing when no camera came or went in time
    std::optional<WQZ_Camera_Event> Read(std::optional<double> timeout);
    int Descriptor();
    void Close();
    bool Is_Closed() const { return closed; }

private:
    template <typename Body>
    auto Call(Body body)
    {
        home.Check();
        const Unlocked unlocked;
        const std::lock_guard lock(mutex);
        if (!monitor) {
            throw pybind11::value_error("the monitor is closed");
        }
        return body(*monitor);
    }

    Home_Process home;
    std::atomic<bool> closed = false;
    std::mutex mutex;  // never awaited under the interpreter's lock
    std::unique_ptr<wqz::Monitor> monitor;
};

#endif  // WQZ_PYTHON_MONITOR_HANDLE_H
