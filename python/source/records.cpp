// Records of the library as dictionaries, from which the Python part makes its classes.
#include "records.h"

#include "failures.h"

namespace py = pybind11;
using py::arg;

namespace {

py::tuple Fraction(const WQZ_Camera_Fraction& fraction)
{
    return py::make_tuple(fraction.numerator, fraction.denominator);
}

}  // namespace

py::dict Info_Record(const WQZ_Camera_Info& info)
{
    return py::dict(arg("node") = Text(info.node), arg("card") = Text(info.card), arg("identity") = Text(info.identity),
                    arg("driver") = Text(info.driver), arg("location") = Text(info.location),
                    arg("vendor") = info.vendor, arg("product") = info.product, arg("release") = info.release,
                    arg("bus") = info.bus, arg("manufacturer") = Text(info.manufacturer),
                    arg("product_name") = Text(info.product_name), arg("serial") = Text(info.serial),
                    arg("index") = info.index, arg("error") = -info.error);
}

py::dict Offer_Record(const WQZ_Camera_Offer& offer)
{
    return py::dict(arg("format") = Text(offer.format), arg("description") = Text(offer.description),
                    arg("compressed") = (offer.flags & WQZ_CAMERA_OFFER_COMPRESSED) != 0,
                    arg("emulated") = (offer.flags & WQZ_CAMERA_OFFER_EMULATED) != 0,
                    arg("width") = py::make_tuple(offer.width_min, offer.width_max, offer.width_step),
                    arg("height") = py::make_tuple(offer.height_min, offer.height_max, offer.height_step),
                    arg("interval") = py::make_tuple(Fraction(offer.interval_min), Fraction(offer.interval_max),
                                                     Fraction(offer.interval_step)));
}

py::dict Mode_Record(const wqz::Mode& mode)
{
    return py::dict(arg("format") = Text(mode.format), arg("size") = py::make_tuple(mode.width, mode.height),
                    arg("interval") = Fraction(mode.interval), arg("bytes_per_line") = mode.bytes_per_line,
                    arg("image_size") = mode.image_size, arg("buffers") = mode.buffers);
}

py::dict Control_Record(const WQZ_Camera_Control& control)
{
    return py::dict(arg("key") = Text(control.key), arg("name") = Text(control.name), arg("id") = control.id,
                    arg("type") = control.type, arg("flags") = control.flags, arg("minimum") = control.minimum,
                    arg("maximum") = control.maximum, arg("step") = control.step,
                    arg("default") = control.default_value);
}

py::dict Counts_Record(const WQZ_Camera_Counts& counts)
{
    return py::dict(arg("delivered") = counts.delivered, arg("lost") = counts.lost, arg("damaged") = counts.damaged,
                    arg("skipped") = counts.skipped);
}
