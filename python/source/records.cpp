// Records of the library as dictionaries, from which the Python part makes its classes.
#include "records.h"

#include "failures.h"

namespace py = pybind11;
using py::literals::operator""_a;

namespace {

py::tuple Fraction(const WQZ_Camera_Fraction& fraction)
{
    return py::make_tuple(fraction.numerator, fraction.denominator);
}

}  // namespace

py::dict Info_Record(const WQZ_Camera_Info& info)
{
    return py::dict("node"_a = Text(info.node), "card"_a = Text(info.card), "identity"_a = Text(info.identity),
                    "driver"_a = Text(info.driver), "location"_a = Text(info.location), "vendor"_a = info.vendor,
                    "product"_a = info.product, "release"_a = info.release, "bus"_a = info.bus,
                    "manufacturer"_a = Text(info.manufacturer), "product_name"_a = Text(info.product_name),
                    "serial"_a = Text(info.serial), "index"_a = info.index, "error"_a = -info.error);
}

py::dict Offer_Record(const WQZ_Camera_Offer& offer)
{
    return py::dict("format"_a = Text(offer.format), "description"_a = Text(offer.description),
                    "compressed"_a = (offer.flags & WQZ_CAMERA_OFFER_COMPRESSED) != 0,
                    "emulated"_a = (offer.flags & WQZ_CAMERA_OFFER_EMULATED) != 0,
                    "width"_a = py::make_tuple(offer.width_min, offer.width_max, offer.width_step),
                    "height"_a = py::make_tuple(offer.height_min, offer.height_max, offer.height_step),
                    "interval"_a = py::make_tuple(Fraction(offer.interval_min), Fraction(offer.interval_max),
                                                  Fraction(offer.interval_step)));
}

py::dict Mode_Record(const wqz::Mode& mode)
{
    return py::dict("format"_a = Text(mode.format), "size"_a = py::make_tuple(mode.width, mode.height),
                    "interval"_a = Fraction(mode.interval), "bytes_per_line"_a = mode.bytes_per_line,
                    "image_size"_a = mode.image_size, "buffers"_a = mode.buffers);
}

py::dict Control_Record(const WQZ_Camera_Control& control)
{
    return py::dict("key"_a = Text(control.key), "name"_a = Text(control.name), "id"_a = control.id,
                    "type"_a = control.type, "flags"_a = control.flags, "minimum"_a = control.minimum,
                    "maximum"_a = control.maximum, "step"_a = control.step, "default"_a = control.default_value);
}

py::dict Counts_Record(const WQZ_Camera_Counts& counts)
{
    return py::dict("delivered"_a = counts.delivered, "lost"_a = counts.lost, "damaged"_a = counts.damaged,
                    "skipped"_a = counts.skipped);
}
