// Lets each call of the library fail in turn, and two at a time, and reports what then goes wrong.
//
// Usage: fault_sweep camera|session [EVERY [PAIRS [SEED]]]
//   EVERY  runs one of so many single failures, 1 for all
//   PAIRS  how many draws of two failures at a time follow
//   SEED   of the draws; one is made and printed without it
#include <umockdev.h>
#include <virtual_camera/virtual_camera.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>

#include "reliability/sweep_case.h"

namespace {

using Failures = std::vector<faults::Fault>;

constexpr int Errors[] = {EINTR, EAGAIN, EIO, ENODEV, EBUSY, EINVAL, ENOSPC, EACCES, EMFILE, ENOMEM};

struct Totals {
    int passed = 0;
    int failed = 0;
};

void Plug_In_A_Camera(UMockdevTestbed* bed)
{
    virtual_camera::Camera_Description camera = virtual_camera::Usb_Camera();
    camera.capture_node = Swept_Node;
    camera.has_metadata = false;
    virtual_camera::Frame_Size size;
    size.width = size.max_width = 320;
    size.height = size.max_height = 240;
    size.intervals = {{1, 500}};  // short waits
    camera.formats = {{V4L2_PIX_FMT_MJPEG, {size}}, {V4L2_PIX_FMT_YUYV, {size}}};
    if (umockdev_testbed_add_from_string(bed, virtual_camera::Umockdev_Description({camera}).c_str(), nullptr) ==
        FALSE) {
        std::fprintf(stderr, "fault_sweep: run it with libumockdev-preload.so.0 preloaded\n");
        std::exit(2);
    }
    virtual_camera::Add_Camera(camera);
}

// The first, second, middle and last call of each site, with each error; every allocation.
std::vector<faults::Fault> Single_Failures(const std::map<faults::Site, int>& counts)
{
    std::vector<faults::Fault> all;
    for (const auto& [site, count] : counts) {
        if (site == faults::Allocation) {
            for (int occurrence = 1; occurrence <= count; ++occurrence) {
                all.push_back({site, occurrence, ENOMEM});
            }
            continue;
        }
        for (const int occurrence : std::set<int>{1, std::min(2, count), (count + 1) / 2, count}) {
            for (const int error : Errors) {
                all.push_back({site, occurrence, error});
            }
        }
    }
    return all;
}

// Whether the only complaints are about time. A machine with much other work may cause them, but not twice.
bool Is_Only_Late(const Run_Result& result)
{
    return !result.complaints.empty() &&
           std::all_of(result.complaints.begin(), result.complaints.end(),
                       [](const std::string& complaint) { return complaint.find(" took ") != std::string::npos; });
}

void Run(Scenario scenario, const Failures& failures, Totals& totals)
{
    Run_Result result = Run_In_Child(scenario, failures);
    if (Is_Only_Late(result)) {
        result = Run_In_Child(scenario, failures);
    }
    (result.complaints.empty() ? totals.passed : totals.failed) += 1;
    for (const std::string& complaint : result.complaints) {
        std::string text;
        for (const faults::Fault& fault : failures) {
            text += (text.empty() ? "" : ", ") + faults::Text_Of(fault);
        }
        std::printf("FAILED: %s: %s\n", text.c_str(), complaint.c_str());
        (void)std::fflush(stdout);
    }
}

int Sweep(Scenario scenario, size_t every, int pairs, unsigned seed)
{
    const Run_Result faultless = Run_In_Child(scenario, {});
    for (const std::string& complaint : faultless.complaints) {
        std::printf("FAILED without a failure: %s\n", complaint.c_str());
    }
    const std::vector<faults::Fault> singles = Single_Failures(faultless.counts);
    if (!faultless.complaints.empty() || singles.empty()) {
        std::printf("0 passed, 1 failed\n");
        return 1;
    }
    for (const auto& [site, count] : faultless.counts) {
        std::printf("%6d  %s\n", count, faults::Name_Of(site).c_str());
    }
    std::printf("%zu single failures, one of %zu is run; %d pairs, seed %u\n", singles.size(), every, pairs, seed);
    Totals totals;
    for (size_t i = seed % every; i < singles.size(); i += every) {
        Run(scenario, {singles[i]}, totals);
    }
    std::mt19937 random(seed);
    for (int i = 0; i < pairs; ++i) {
        const size_t first = random() % singles.size();
        Run(scenario, {singles[first], singles[random() % singles.size()]}, totals);
    }
    std::printf("%d passed, %d failed\n", totals.passed, totals.failed);
    return totals.failed == 0 ? 0 : 1;
}

}  // namespace

// Leak suppressions match callers inside libudev, which only the slow unwinder finds.
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}

int main(int argc, char** argv)
{
    const std::string interface = argc > 1 ? argv[1] : "";
    if (interface != "camera" && interface != "session") {
        std::fprintf(stderr, "Usage: fault_sweep camera|session [EVERY [PAIRS [SEED]]]\n");
        return 2;
    }
    const auto number = [&](int place, unsigned otherwise) {
        return argc > place ? static_cast<unsigned>(std::strtoul(argv[place], nullptr, 10)) : otherwise;
    };
    UMockdevTestbed* bed = umockdev_testbed_new();
    Plug_In_A_Camera(bed);
    const int status = Sweep(interface == "camera" ? Sweep_Camera : Sweep_Session, std::max(1U, number(2, 1)),
                             static_cast<int>(number(3, 0)), number(4, std::random_device()()));
    g_object_unref(bed);
    return status;
}
