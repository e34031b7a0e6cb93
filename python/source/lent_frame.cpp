// A frame that lends the driver's memory to Python objects.
#include "lent_frame.h"

#include <pybind11/numpy.h>

#include <new>
#include <string>
#include <utility>

#include "class_setup.h"
#include "frame_array.h"
#include "unlocked.h"

namespace py = pybind11;

namespace {

/// Keeps a frame from being released while it is converted without the interpreter's lock.
class Conversion_View {
public:
    explicit Conversion_View(Lent_Frame& converted) : frame(converted) { frame.Add_View(); }
    ~Conversion_View() { frame.Drop_View(); }
    Conversion_View(const Conversion_View&) = delete;
    Conversion_View& operator=(const Conversion_View&) = delete;

private:
    Lent_Frame& frame;
};

// Called by the interpreter, which expects -1 with an exception set on failure.
int Get_View(PyObject* self, Py_buffer* view, int flags)
{
    auto& frame = py::cast<Lent_Frame&>(py::handle(self));
    const WQZ_Camera_Frame& record = frame.Record();
    if (frame.Is_Released()) {
        view->obj = nullptr;
        PyErr_SetString(PyExc_ValueError, "the frame was released");
        return -1;
    }
    // The interpreter's records have no const. The view is read-only.
    void* data = const_cast<uint8_t*>(record.data);
    const int result = PyBuffer_FillInfo(view, self, data, static_cast<Py_ssize_t>(record.length), 1, flags);
    if (result == 0) {
        frame.Add_View();
    }
    return result;
}

void Release_View(PyObject* self, Py_buffer* /*view*/)
{
    py::cast<Lent_Frame&>(py::handle(self)).Drop_View();
}

void Set_Up(PyHeapTypeObject* type)
{
    Forbid_Creation(type);
    type->as_buffer.bf_getbuffer = Get_View;
    type->as_buffer.bf_releasebuffer = Release_View;
    type->ht_type.tp_as_buffer = &type->as_buffer;
}

std::string Fourcc_Text(uint32_t fourcc)
{
    constexpr uint32_t Big_Endian = 1U << 31;
    std::string text;
    for (uint32_t rest = fourcc & ~Big_Endian; rest != 0; rest >>= 8) {
        text += static_cast<char>(rest & 0xFF);
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return (fourcc & Big_Endian) == 0 ? text : text + "-BE";
}

std::string Representation(const Lent_Frame& frame)
{
    const WQZ_Camera_Frame& record = frame.Record();
    const std::string what = frame.Is_Released() ? "released" : std::to_string(record.length) + " bytes";
    return "<Frame " + std::to_string(record.sequence) + " " + Fourcc_Text(record.fourcc) + " " +
           std::to_string(record.width) + "x" + std::to_string(record.height) + ", " + what + ">";
}

py::bytes Copy(const Lent_Frame& frame)
{
    frame.Check_Lent();
    return {reinterpret_cast<const char*>(frame.Record().data), static_cast<size_t>(frame.Record().length)};
}

py::array Array(const py::object& frame)
{
    const py::memoryview view(frame);
    return Frame_Array(py::cast<const Lent_Frame&>(frame).Record(), view);
}

void Convert_To_Bgr(const wqz::Frame& frame, const Pixel_Array& pixels)
{
    frame.To_Bgr(pixels.Data(), pixels.Capacity(), pixels.Stride());
}

void Convert_To_Rgb(const wqz::Frame& frame, const Pixel_Array& pixels)
{
    frame.To_Rgb(pixels.Data(), pixels.Capacity(), pixels.Stride());
}

double Seconds(const Lent_Frame& frame)
{
    return static_cast<double>(frame.Record().time_ns) * 1e-9;
}

bool Is_Damaged(const Lent_Frame& frame)
{
    return (frame.Record().flags & WQZ_CAMERA_FRAME_DAMAGED) != 0;
}

void Define_Description(py::class_<Lent_Frame>& frame)
{
    const auto field = [](auto member) { return [member](const Lent_Frame& self) { return self.Record().*member; }; };
    const auto format = [](const Lent_Frame& self) { return Fourcc_Text(self.Record().fourcc); };
    const auto size = [](const Lent_Frame& self) { return py::make_tuple(self.Record().width, self.Record().height); };
    using Record = WQZ_Camera_Frame;
    frame
        .def_property_readonly("sequence", field(&Record::sequence),
                               "The driver's number of the frame; starts again with each start.")
        .def_property_readonly("lost_before", field(&Record::lost_before),
                               "How many frames the driver lost since the one delivered before.")
        .def_property_readonly("time", Seconds, "When the frame was captured, in seconds of time.monotonic().")
        .def_property_readonly("time_ns", field(&Record::time_ns),
                               "When the frame was captured, in nanoseconds of time.monotonic_ns().")
        .def_property_readonly("damaged", Is_Damaged, "Whether the driver says that bytes are missing or wrong.")
        .def_property_readonly("format", format, "The pixel format as FourCC, such as 'MJPG'.")
        .def_property_readonly("size", size, "Width and height in pixels.")
        .def_property_readonly("bytes_per_line", field(&Record::bytes_per_line),
                               "Bytes from row to row; 0 for compressed formats.")
        .def_property_readonly("nbytes", field(&Record::length),
                               "How many bytes the frame has; 0 when it was released.")
        .def_property_readonly("released", &Lent_Frame::Is_Released, "Whether the frame was given back.");
}

constexpr char Class_Text[] =
    "A frame on loan from the driver's memory.\n\n"
    "memoryview(frame) and array() show its bytes without a copy. They keep the frame, and they stay valid when the "
    "camera is stopped, closed or unplugged. The frame is given back when nothing refers to it any more, at the end of "
    "a with block, or by release().";
constexpr char Array_Text[] =
    "Return a read-only NumPy array over the bytes, without a copy.\n\n"
    "Its shape is (height, width) for grey and raw Bayer, (height, width, 2) for YUYV and its relatives, (height, "
    "width, "
    "3) for 24-bit pixels. Other formats, such as MJPG, are a row of bytes. A frame that is cut short has fewer rows.";
constexpr char Bgr_Text[] =
    "Convert to an array of uint8 in the shape (height, width, 3), blue first, top row first.\n\n"
    "YUYV, UYVY, raw Bayer and MJPG can be converted. `out` is an array to fill instead of a new one. A frame that is "
    "cut short raises OSError with EBADMSG; `out` then holds what could be decoded.";
constexpr char Release_Text[] =
    "Give the frame back to the driver; twice does no harm.\n\n"
    "Raises BufferError while a memoryview or an array of it lives.";

}  // namespace

// A forked child leaves the frame to its parent.
Lent_Frame::~Lent_Frame()
{
    if (!home.Is_Here()) {
        (void)new (std::nothrow) wqz::Frame(std::move(frame));
    }
}

void Lent_Frame::Check_Lent() const
{
    if (Is_Released()) {
        throw py::value_error("the frame was released");
    }
}

void Lent_Frame::Release()
{
    if (Is_Released()) {
        return;
    }
    home.Check();
    if (views > 0) {
        throw py::buffer_error("the frame cannot be released while an array or a memoryview of it lives");
    }
    frame.Release();
}

py::object Lent_Frame::Convert(uint32_t layout, const py::object& out)
{
    Check_Lent();
    const uint32_t width = frame.Width();
    const uint32_t height = frame.Height();
    py::object array = out;
    if (out.is_none()) {
        array = py::array_t<uint8_t>({py::ssize_t{height}, py::ssize_t{width}, py::ssize_t{3}});
    }
    const Pixel_Array pixels(array, width, height);
    const Conversion_View view(*this);
    {
        const Unlocked unlocked;
        const auto convert = layout == WQZ_CAMERA_PIXELS_BGR ? Convert_To_Bgr : Convert_To_Rgb;
        convert(frame, pixels);
    }
    return array;
}

void Define_Frame(py::module_& module)
{
    py::class_<Lent_Frame> frame(module, "Frame", py::is_final(), py::custom_type_setup(Set_Up), Class_Text);
    Define_Description(frame);
    frame.def("array", Array, Array_Text)
        .def("copy", Copy, "Return the bytes as a copy that stays when the frame is released.")
        .def(
            "bgr", [](Lent_Frame& self, const py::object& out) { return self.Convert(WQZ_CAMERA_PIXELS_BGR, out); },
            py::arg("out") = py::none(), Bgr_Text)
        .def(
            "rgb", [](Lent_Frame& self, const py::object& out) { return self.Convert(WQZ_CAMERA_PIXELS_RGB, out); },
            py::arg("out") = py::none(), "Convert as bgr does, red first.")
        .def("release", &Lent_Frame::Release, Release_Text)
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](Lent_Frame& self, const py::args& /*failure*/) { self.Release(); })
        .def("__repr__", Representation);
}
