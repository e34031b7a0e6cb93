// Failures of the library as Python exceptions.
#include "failures.h"

#include <cerrno>
#include <cstring>
#include <exception>
#include <string>
#include <utility>

#include "Camera/wqz_camera.hpp"

namespace py = pybind11;

namespace {

// They live as long as the interpreter, because an exception may be raised until its end.
PyObject* unplugged = nullptr;
PyObject* cancelled = nullptr;

PyObject* New_Failure(py::module_& module, const char* name, const char* documentation)
{
    const std::string full = std::string("wqz_camera.") + name;
    PyObject* type = PyErr_NewExceptionWithDoc(full.c_str(), documentation, PyExc_OSError, nullptr);
    if (type == nullptr) {
        throw py::error_already_set();
    }
    module.add_object(name, type);
    return type;
}

PyObject* Type_For(int code)
{
    switch (code) {
        case ENODEV:
            return unplugged;
        case ECANCELED:
            return cancelled;
        default:
            return PyExc_OSError;  // chooses its own subclass by the errno value: TimeoutError, PermissionError, ...
    }
}

void Raise(std::exception_ptr failure)
{
    try {
        if (failure) {
            std::rethrow_exception(std::move(failure));
        }
    } catch (const wqz::Camera_Error& error) {
        PyErr_SetObject(Type_For(error.Code()), py::make_tuple(error.Code(), Text(error.what())).ptr());
    }
}

}  // namespace

py::str Text(const char* text)
{
    PyObject* decoded = PyUnicode_DecodeUTF8(text, static_cast<Py_ssize_t>(std::strlen(text)), "replace");
    if (decoded == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::str>(decoded);
}

void Define_Failures(py::module_& module)
{
    unplugged = New_Failure(module, "Unplugged", "The camera was unplugged: recover it, or close it.");
    cancelled = New_Failure(module, "Cancelled", "The wait was ended by cancel, stop, start or close.");
    py::register_exception_translator(Raise);
}
