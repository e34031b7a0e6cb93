// Measures discovery on mocked device trees and the listing of capture modes.

#include <benchmark/benchmark.h>
#include <libudev.h>
#include <umockdev.h>
#include <unistd.h>
#include <virtual_camera/virtual_camera.h>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "USBCam/USBCam.h"
#include "USBCam_API/USBCam_API.h"

namespace {

constexpr char Mocking_Object[] = "libumockdev-preload.so.0";

/// Cameras with one capture node each, in a mocked device tree.
class Mocked_Cameras {
public:
    explicit Mocked_Cameras(uint32_t count) : tree(umockdev_testbed_new())
    {
        std::vector<virtual_camera::Camera_Description> cameras;
        for (uint32_t i = 0; i < count; ++i) {
            cameras.push_back(virtual_camera::Usb_Camera(i));
            cameras.back().has_metadata = false;
            cameras.back().metadata_node.clear();
            cameras.back().capture_node = "/dev/video" + std::to_string(i);
            virtual_camera::Add_Camera(cameras.back());
        }
        GError* error = nullptr;
        if (!umockdev_testbed_add_from_string(tree, virtual_camera::Umockdev_Description(cameras).c_str(), &error)) {
            std::fprintf(stderr, "%s\n", error->message);
            g_error_free(error);
        }
    }
    ~Mocked_Cameras()
    {
        virtual_camera::Reset();
        g_object_unref(tree);
    }
    Mocked_Cameras(const Mocked_Cameras&) = delete;
    Mocked_Cameras& operator=(const Mocked_Cameras&) = delete;

private:
    UMockdevTestbed* tree;
};

uint32_t By_Library()
{
    v4l2_dev_sys_data_t* found = nullptr;
    const int32_t count = WQZ_USBCam_DEVICE_FIND_ID(&found, 0xFFFF, 0xFFFF);
    WQZ_USBCam_DEVICE_FREE(found, count);
    return static_cast<uint32_t>(count);
}

/// Only walks the tree. It opens no node and reads no attribute.
uint32_t By_Libudev_Alone()
{
    udev* const context = udev_new();
    udev_enumerate* const nodes = udev_enumerate_new(context);
    udev_enumerate_add_match_subsystem(nodes, "video4linux");
    udev_enumerate_scan_devices(nodes);
    uint32_t count = 0;
    udev_list_entry* entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(nodes))
    {
        udev_device* const device = udev_device_new_from_syspath(context, udev_list_entry_get_name(entry));
        count += udev_device_get_devnode(device) != nullptr;
        udev_device_unref(device);
    }
    udev_enumerate_unref(nodes);
    udev_unref(context);
    return count;
}

void Discover(benchmark::State& state, uint32_t (*find)(), uint32_t nodes)
{
    const Mocked_Cameras cameras(nodes);
    if (find() != nodes) {
        state.SkipWithError("cameras are missing");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(find());
    }
}

/// @return a session with as many modes as a camera with every format of the kernel could have
std::unique_ptr<USBCam> Session_With_Catalogue(uint32_t formats, uint32_t sizes, uint32_t intervals)
{
    v4l2_dev_sys_data_t device{};
    auto session = std::make_unique<USBCam>(&device);
    for (uint32_t f = 0; f < formats; ++f) {
        Format_Info& format = session->LC_Format_List.emplace_back();
        format.S_Format.pixelformat = v4l2_fourcc('F', 'M', '0' + f / 10, '0' + f % 10);
        for (uint32_t s = 0; s < sizes; ++s) {
            Resolution_Info& size = format.LC_Resolution_List.emplace_back();
            size.S_Resolution.pixel_format = format.S_Format.pixelformat;
            size.S_Resolution.discrete = {160 * (s + 1), 120 * (s + 1)};
            for (uint32_t i = 0; i < intervals; ++i) {
                size.LS_Frame_Rata.emplace_back().discrete = {1, 5 * (i + 1)};
            }
        }
    }
    return session;
}

void List_Modes(benchmark::State& state)
{
    const auto session = Session_With_Catalogue(83, 20, 6);
    const auto count = static_cast<size_t>(WQZ_USBCam_Get_Format_List_Size(session.get()));
    std::vector<Pix_Format> modes(count);
    for (auto _ : state) {
        WQZ_USBCam_Get_Format_List(session.get(), modes.data());
        benchmark::ClobberMemory();
    }
    if (count != size_t{83} * 20 * 6 || modes.back().u_Fps != 30 || modes.back().u_Width != 3200) {
        state.SkipWithError("wrong list");
    }
}
BENCHMARK(List_Modes)->Name("catalogue/83 formats, 20 sizes, 6 intervals/library");

void Register_All()
{
    for (const uint32_t nodes : {1U, 8U, 32U}) {
        // Every repetition builds a new tree, so there are few of them.
        const std::string row = "discovery/" + std::to_string(nodes) + (nodes == 1 ? " node/" : " nodes/");
        benchmark::RegisterBenchmark((row + "library").c_str(), Discover, By_Library, nodes)
            ->Iterations(10)
            ->Repetitions(5);
        benchmark::RegisterBenchmark((row + "libudev alone").c_str(), Discover, By_Libudev_Alone, nodes)
            ->Iterations(10)
            ->Repetitions(5);
    }
}

}  // namespace

int main(int argc, char** argv)
{
    // A preloaded object lays the mocked device trees over /sys.
    if (std::getenv("LD_PRELOAD") == nullptr) {
        setenv("LD_PRELOAD", Mocking_Object, 1);
        execv("/proc/self/exe", argv);
        std::perror(argv[0]);
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    Register_All();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
