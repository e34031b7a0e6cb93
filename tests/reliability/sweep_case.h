// One run of the library with planned failures, in a child process that reports what went wrong.
#ifndef WQZ_TESTS_RELIABILITY_SWEEP_CASE_H
#define WQZ_TESTS_RELIABILITY_SWEEP_CASE_H

#include <string>
#include <vector>

#include "reliability/fault_injection.h"

/// The node of the virtual camera in every run.
constexpr const char* Swept_Node = "/dev/video0";

/// What a run found wrong.
class Report {
public:
    void Expect(bool holds, const std::string& what);
    const std::vector<std::string>& Complaints() const { return complaints; }

    /// Says that a thread of the run goes on.
    void Note_Running_Thread() { thread_runs = true; }
    bool Thread_Runs() const { return thread_runs; }

    /// Says that the interface keeps memory by its contract.
    void Excuse_Memory() { memory_excused = true; }
    bool Memory_Is_Excused() const { return memory_excused || thread_runs; }

private:
    bool thread_runs = false;
    bool memory_excused = false;
    std::vector<std::string> complaints;
};

/// Uses the whole interface once. `failures` are planned already.
using Scenario = void (*)(Report& report, const std::vector<faults::Fault>& failures);

/// List, open, catalogue, controls, start, read, stop, recover and close through the camera interface. Every call ends
/// in time with a result that its description names, every frame is right or marked, nothing stays behind, and a fresh
/// open captures.
void Sweep_Camera(Report& report, const std::vector<faults::Fault>& failures);

/// The same through the session interface, whose capture may wait for ever after some failures.
void Sweep_Session(Report& report, const std::vector<faults::Fault>& failures);

/// The process's open descriptors and the camera buffers that it maps.
std::string Held_Resources();

struct Run_Result {
    std::vector<std::string> complaints;
    std::map<faults::Site, int> counts;
};

/// Runs a scenario in a child process. A crash and a run of more than a minute are complaints, too.
Run_Result Run_In_Child(Scenario scenario, const std::vector<faults::Fault>& failures);

#endif  // WQZ_TESTS_RELIABILITY_SWEEP_CASE_H
