// Failures of the library as Python exceptions.
#ifndef WQZ_PYTHON_FAILURES_H
#define WQZ_PYTHON_FAILURES_H

#include <pybind11/pybind11.h>

/// A text of a device or of the library. Devices do not always keep to UTF-8, so wrong bytes are replaced.
pybind11::str Text(const char* text);

/// Adds the exception types to the module, and turns each wqz::Camera_Error into the one that fits.
void Define_Failures(pybind11::module_& module);

#endif  // WQZ_PYTHON_FAILURES_H
