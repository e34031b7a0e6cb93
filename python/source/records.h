// Records of the library as dictionaries, from which the Python part makes its classes.
#ifndef WQZ_PYTHON_RECORDS_H
#define WQZ_PYTHON_RECORDS_H

#include <pybind11/pybind11.h>

#include "Camera/wqz_camera.hpp"

pybind11::dict Info_Record(const WQZ_Camera_Info& info);
pybind11::dict Offer_Record(const WQZ_Camera_Offer& offer);
pybind11::dict Mode_Record(const wqz::Mode& mode);
pybind11::dict Control_Record(const WQZ_Camera_Control& control);
pybind11::dict Counts_Record(const WQZ_Camera_Counts& counts);

/// Makes a list of what `convert` makes of each record.
template <typename Record, typename Convert>
pybind11::list List_Of(const std::vector<Record>& records, Convert convert)
{
    pybind11::list list;
    for (const Record& record : records) {
        list.append(convert(record));
    }
    return list;
}

#endif  // WQZ_PYTHON_RECORDS_H
