// The compiled part of the Python package.
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <string>

#include "Camera/wqz_camera.hpp"
#include "camera_handle.h"
#include "class_setup.h"
#include "failures.h"
#include "lent_frame.h"
#include "monitor_handle.h"
#include "records.h"
#include "unlocked.h"

namespace py = pybind11;

namespace {

py::list Cameras()
{
    std::vector<WQZ_Camera_Info> cameras;
    {
        const Unlocked unlocked;
        cameras = wqz::List_Cameras();
    }
    return List_Of(cameras, Info_Record);
}

py::dict Info(Camera_Handle& handle)
{
    return Info_Record(handle.Call([](wqz::Camera& camera) { return camera.Info(); }));
}

py::list Modes(Camera_Handle& handle)
{
    return List_Of(handle.Call([](wqz::Camera& camera) { return camera.Modes(); }), Offer_Record);
}

py::list Controls(Camera_Handle& handle)
{
    return List_Of(handle.Call([](wqz::Camera& camera) { return camera.Controls(); }), Control_Record);
}

py::list Menu(Camera_Handle& handle, uint32_t id)
{
    const auto items = handle.Call([=](wqz::Camera& camera) { return camera.Menu(id); });
    return List_Of(items, [](const WQZ_Camera_Menu_Item& item) { return py::make_tuple(item.index, Text(item.name)); });
}

py::tuple Get_Control(Camera_Handle& handle, uint32_t id)
{
    const auto value = handle.Call([=](wqz::Camera& camera) { return camera.Get(id); });
    return py::make_tuple(value.number, Text(value.text.c_str()));
}

void Set_Control(Camera_Handle& handle, const wqz::Setting& setting)
{
    handle.Call([&](wqz::Camera& camera) { camera.Set(setting); });
}

void Set_Number(Camera_Handle& handle, uint32_t id, int64_t number)
{
    Set_Control(handle, wqz::Setting(id, number));
}

void Set_Text(Camera_Handle& handle, uint32_t id, const std::string& text)
{
    Set_Control(handle, wqz::Setting(id, text));
}

void Reset_Control(Camera_Handle& handle, uint32_t id)
{
    wqz::Setting setting(id, int64_t{0});
    setting.to_default = true;
    Set_Control(handle, setting);
}

py::dict Start(Camera_Handle& handle, const std::string& format, uint32_t width, uint32_t height, uint32_t numerator,
               uint32_t denominator, bool exact, uint32_t buffers, uint32_t skip)
{
    const wqz::Rate rate(WQZ_Camera_Fraction{numerator, denominator});
    return Mode_Record(handle.Start({format, width, height, rate, exact, buffers, skip}));
}

py::dict Counters(Camera_Handle& handle)
{
    return Counts_Record(handle.Call([](wqz::Camera& camera) { return camera.Counters(); }));
}

void Cancel(Camera_Handle& handle)
{
    handle.Call([](wqz::Camera& camera) { camera.Cancel(); });
}

int Descriptor(Camera_Handle& handle)
{
    return handle.Call([](wqz::Camera& camera) { return camera.Descriptor(); });
}

py::object Read_Event(Monitor_Handle& monitor, std::optional<double> timeout)
{
    const auto event = monitor.Read(timeout);
    if (!event) {
        return py::none();
    }
    return py::make_tuple(event->kind == WQZ_CAMERA_EVENT_PLUGGED, Info_Record(event->info));
}

void Define_Camera(py::module_& module)
{
    using py::arg;
    py::class_<Camera_Handle>(module, "Camera", py::is_final(), py::custom_type_setup(Forbid_Creation),
                              "An open camera, as wqz_camera.Camera uses it.")
        .def("info", Info)
        .def("modes", Modes)
        .def("controls", Controls)
        .def("menu", Menu, arg("id"))
        .def("get_control", Get_Control, arg("id"))
        .def("set_number", Set_Number, arg("id"), arg("number"))
        .def("set_text", Set_Text, arg("id"), arg("text"))
        .def("reset_control", Reset_Control, arg("id"))
        .def("start", Start, arg("format"), arg("width"), arg("height"), arg("numerator"), arg("denominator"),
             arg("exact"), arg("buffers"), arg("skip"))
        .def("read", &Camera_Handle::Read, arg("timeout"), arg("newest"), "Wait for a frame.")
        .def("take", &Camera_Handle::Take, arg("newest"), "Take a frame that is ready, or None.")
        .def("stop", &Camera_Handle::Stop)
        .def("recover", &Camera_Handle::Recover, arg("timeout"))
        .def("cancel", Cancel)
        .def("counters", Counters)
        .def("fileno", Descriptor)
        .def("close", &Camera_Handle::Close)
        .def_property_readonly("closed", &Camera_Handle::Is_Closed)
        .def_property_readonly("changes", &Camera_Handle::Changes,
                               "How many times the capture was started, stopped or closed.");
}

void Define_Monitor(py::module_& module)
{
    using py::arg;
    py::class_<Monitor_Handle>(module, "Monitor", py::is_final(), py::custom_type_setup(Forbid_Creation),
                               "A watch over plugging, as wqz_camera.Monitor uses it.")
        .def("read", Read_Event, arg("timeout"),
             "Wait for (is plugged, camera), or None when nothing happened in time.")
        .def("fileno", &Monitor_Handle::Descriptor)
        .def("close", &Monitor_Handle::Close)
        .def_property_readonly("closed", &Monitor_Handle::Is_Closed);
}

}  // namespace

PYBIND11_MODULE(_native, module)
{
    py::options options;
    options.disable_function_signatures();  // the stub file has them
    module.doc() = "The compiled part of wqz_camera, for that package only.";
    Define_Failures(module);
    Define_Frame(module);
    Define_Camera(module);
    Define_Monitor(module);
    module.attr("RELEASE_SECONDS") = Release_Seconds;
    module.def("cameras", Cameras, "Describe the cameras that are there.");
    module.def(
        "open_camera", [](const std::string& name) { return std::make_unique<Camera_Handle>(name); }, py::arg("name"));
    module.def("open_monitor", [] { return std::make_unique<Monitor_Handle>(); });
}
