// Waits that give way to signals, and what is owned by the process that opened it.
#ifndef WQZ_PYTHON_WAITING_H
#define WQZ_PYTHON_WAITING_H

#include <chrono>
#include <cstdint>
#include <optional>

/// The end of a wait. The library waits in slices: between two of them the interpreter runs the handlers of signals
/// that came, so Ctrl-C ends a wait within one slice.
class Time_Limit {
public:
    /// @param seconds  0 does not wait, nothing waits without limit; negative times and NaN raise ValueError
    explicit Time_Limit(std::optional<double> seconds);

    bool Has_Passed() const;
    /// @return milliseconds that the library may wait now
    int32_t Slice() const;

private:
    using Clock = std::chrono::steady_clock;

    bool endless = false;
    Clock::time_point end;
};

/// Runs the handlers of signals that came. The exception of a handler is thrown, such as KeyboardInterrupt.
void Handle_Signals();

/// Remembers the process in which it was made. A forked child shares the camera with its parent: what it stopped or
/// released would be stopped and released for the parent.
class Home_Process {
public:
    Home_Process();
    bool Is_Here() const;
    /// Raises ValueError in a forked child.
    void Check() const;

private:
    unsigned forks;
};

#endif  // WQZ_PYTHON_WAITING_H
