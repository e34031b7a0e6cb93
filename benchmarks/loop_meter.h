// Measures where a capture loop spends its time, and counts copied bytes.
#ifndef WQZ_BENCHMARKS_LOOP_METER_H
#define WQZ_BENCHMARKS_LOOP_METER_H

#include <atomic>
#include <cstdint>

/// @return the bytes that the calling thread has copied with memcpy and memmove. Counts the calls of objects linked
/// into the program. Leaves out other libraries and copies that the compiler makes without a call.
uint64_t Bytes_Copied();

/// Measures a session's capture loop while it is awake. Each of the two buffer requests of a frame ends with a sleep,
/// so two sleeps make one frame. This program replaces usleep, and its usleep tells the meter of the thread.
class Loop_Meter {
public:
    struct Totals {
        double awake_wall = 0;  ///< seconds
        double awake_cpu = 0;
        double asleep_wall = 0;
        double asleep_cpu = 0;  ///< the cost of going to sleep and of waking up
        int64_t page_faults = 0;
        uint64_t bytes_copied = 0;
    };

    Loop_Meter(int warm_up_frames, int frames);

    /// Makes this the meter of the calling thread.
    void Attach();
    bool Is_Done() const { return done; }

    /// @return the sums over all measured frames, once Is_Done
    const Totals& Result() const { return totals; }

    void Sleep_Begins();
    void Sleep_Ends();

private:
    struct Moment {
        double wall = 0;
        double cpu = 0;
    };
    static Moment Now();
    void Mark(int sign);

    int first_sleep;
    int last_sleep;
    int sleeps = 0;
    Moment fell_asleep;
    Moment woke_up;
    Totals totals;
    std::atomic<bool> done = false;
};

#endif  // WQZ_BENCHMARKS_LOOP_METER_H
