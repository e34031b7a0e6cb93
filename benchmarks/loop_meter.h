#ifndef WQZ_BENCHMARKS_LOOP_METER_H
#define WQZ_BENCHMARKS_LOOP_METER_H

#include <atomic>
#include <cstdint>

/// Seconds of CPU time of the whole process.
double Process_Cpu();

/// Bytes that the calling thread has copied with memcpy and memmove: those of the linked objects, not of other
/// libraries, nor what the compiler copies by itself.
uint64_t Bytes_Copied();

/// Takes the time of a session's capture loop where it is awake. Every request for a buffer ends with a sleep, so that
/// two sleeps are one frame; this program's usleep tells the meter of its thread.
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
    bool Is_Done() const { return done_; }

    /// Of all frames together, when done.
    const Totals& Result() const { return totals_; }

    void Sleep_Begins();
    void Sleep_Ends();

private:
    struct Moment {
        double wall = 0;
        double cpu = 0;
    };
    static Moment Now();
    void Mark(int sign);

    int first_sleep_;
    int last_sleep_;
    int sleeps_ = 0;
    Moment fell_asleep_;
    Moment woke_up_;
    Totals totals_;
    std::atomic<bool> done_ = false;
};

#endif  // WQZ_BENCHMARKS_LOOP_METER_H
