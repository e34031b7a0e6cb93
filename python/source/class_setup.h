// What the classes of the module have in common.
#ifndef WQZ_PYTHON_CLASS_SETUP_H
#define WQZ_PYTHON_CLASS_SETUP_H

#include <pybind11/pybind11.h>

/// Makes a class whose objects come from functions only. Without this, `type.__new__(type)` and copy.copy would make
/// objects without the C++ object behind them.
inline void Forbid_Creation(PyHeapTypeObject* type)
{
    type->ht_type.tp_new = [](PyTypeObject* self, PyObject*, PyObject*) -> PyObject* {
        PyErr_Format(PyExc_TypeError, "objects of the class %s cannot be created or copied this way", self->tp_name);
        return nullptr;
    };
}

#endif  // WQZ_PYTHON_CLASS_SETUP_H
