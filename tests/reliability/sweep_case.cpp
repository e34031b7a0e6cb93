// The child process of a run: what it reports, and how the parent reads it.
#include "reliability/sweep_case.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace {

constexpr unsigned Most_Seconds = 60;  // of a run, also under a sanitizer on a busy machine

bool Memory_Leaked()
{
#if defined(__SANITIZE_ADDRESS__)
    return __lsan_do_recoverable_leak_check() != 0;
#else
    return false;
#endif
}

// Runs the scenario and ends the process. Each line of the report is a complaint, or "= SITE COUNT".
[[noreturn]] void Run_And_Report(Scenario scenario, const std::vector<faults::Fault>& failures, int report_descriptor)
{
    const int nowhere = open("/dev/null", O_WRONLY);
    (void)dup2(nowhere, STDOUT_FILENO);
    (void)dup2(nowhere, STDERR_FILENO);
    (void)alarm(Most_Seconds);
    faults::Plan(failures);
    Report report;
    scenario(report, failures);
    std::string text;
    for (const auto& [site, count] : faults::Counts()) {
        text += "= " + std::to_string(site) + " " + std::to_string(count) + "\n";
    }
    report.Expect(report.Memory_Is_Excused() || !Memory_Leaked(), "memory leaked");
    for (const std::string& complaint : report.Complaints()) {
        text += complaint + "\n";
    }
    const bool written = write(report_descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(written ? 0 : 1);
}

std::string Read_All(int descriptor)
{
    std::string text;
    char part[4096];
    for (ssize_t length = 0; (length = read(descriptor, part, sizeof part)) > 0;) {
        text.append(part, static_cast<size_t>(length));
    }
    return text;
}

Run_Result Parse(const std::string& text)
{
    Run_Result result;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        faults::Site site = 0;
        int count = 0;
        if (std::sscanf(line.c_str(), "= %u %d", &site, &count) == 2) {
            result.counts[site] = count;
        } else {
            result.complaints.push_back(line);
        }
    }
    return result;
}

}  // namespace

void Report::Expect(bool holds, const std::string& what)
{
    if (!holds) {
        complaints.push_back(what);
    }
}

std::string Held_Resources()
{
    std::string held;
    DIR* folder = opendir("/proc/self/fd");
    while (const dirent* entry = folder == nullptr ? nullptr : readdir(folder)) {
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != dirfd(folder)) {
            held += std::string(entry->d_name) + " ";
        }
    }
    (void)closedir(folder);
    std::ifstream maps("/proc/self/maps");
    int mapped = 0;
    for (std::string line; std::getline(maps, line);) {
        mapped += line.find("memfd:") != std::string::npos ? 1 : 0;
    }
    return "descriptors " + held + "and " + std::to_string(mapped) + " mapped buffers";
}

Run_Result Run_In_Child(Scenario scenario, const std::vector<faults::Fault>& failures)
{
    int ends[2] = {-1, -1};
    const pid_t child = pipe(ends) == 0 ? fork() : -1;
    if (child < 0) {
        return {{std::string("no child process: ") + std::strerror(errno)}, {}};
    }
    if (child == 0) {
        (void)close(ends[0]);
        Run_And_Report(scenario, failures, ends[1]);
    }
    (void)close(ends[1]);
    Run_Result result = Parse(Read_All(ends[0]));
    (void)close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        result.complaints.push_back(signal == SIGALRM ? "did not end" : std::string("crashed: ") + strsignal(signal));
    } else if (WEXITSTATUS(status) != 0) {
        result.complaints.push_back("ended with status " + std::to_string(WEXITSTATUS(status)));
    }
    return result;
}
