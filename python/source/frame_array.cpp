// Arrays of NumPy over the bytes of a frame.
#include "frame_array.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

constexpr py::ssize_t Colours = 3;
constexpr uint32_t Big_Endian = 1U << 31;

/// How the samples of a pixel format lie in a row.
struct Layout {
    const char* sample;  ///< as NumPy names its types
    py::ssize_t sample_bytes;
    py::ssize_t samples_per_pixel;
};

/// @return the layout; without a sample for a format whose rows are no rows of whole samples
Layout Layout_Of(uint32_t fourcc)
{
    switch (fourcc & ~Big_Endian) {
        case V4L2_PIX_FMT_GREY:
        case V4L2_PIX_FMT_SBGGR8:
        case V4L2_PIX_FMT_SGBRG8:
        case V4L2_PIX_FMT_SGRBG8:
        case V4L2_PIX_FMT_SRGGB8:
            return {"u1", 1, 1};
        case V4L2_PIX_FMT_YUYV:
        case V4L2_PIX_FMT_YVYU:
        case V4L2_PIX_FMT_UYVY:
        case V4L2_PIX_FMT_VYUY:
            return {"u1", 1, 2};
        case V4L2_PIX_FMT_BGR24:
        case V4L2_PIX_FMT_RGB24:
            return {"u1", 1, Colours};
        case V4L2_PIX_FMT_Y10:
        case V4L2_PIX_FMT_Y12:
        case V4L2_PIX_FMT_Y16:
        case V4L2_PIX_FMT_Z16:
        case V4L2_PIX_FMT_SBGGR10:
        case V4L2_PIX_FMT_SGBRG10:
        case V4L2_PIX_FMT_SGRBG10:
        case V4L2_PIX_FMT_SRGGB10:
        case V4L2_PIX_FMT_SBGGR12:
        case V4L2_PIX_FMT_SGBRG12:
        case V4L2_PIX_FMT_SGRBG12:
        case V4L2_PIX_FMT_SRGGB12:
        case V4L2_PIX_FMT_SBGGR16:
        case V4L2_PIX_FMT_SGBRG16:
        case V4L2_PIX_FMT_SGRBG16:
        case V4L2_PIX_FMT_SRGGB16:
            return {(fourcc & Big_Endian) != 0 ? ">u2" : "<u2", 2, 1};
        default:
            return {nullptr, 0, 0};
    }
}

// The last row need not be padded.
py::ssize_t Whole_Rows(const WQZ_Camera_Frame& frame, py::ssize_t row_bytes, py::ssize_t stride)
{
    const auto length = static_cast<py::ssize_t>(frame.length);
    const py::ssize_t rows = length < row_bytes ? 0 : (length - row_bytes) / stride + 1;
    return std::min(rows, py::ssize_t{frame.height});
}

// NumPy refuses to make it writable again, because the view under it is read-only.
py::array Read_Only_Array(const char* sample, const std::vector<py::ssize_t>& shape,
                          const std::vector<py::ssize_t>& strides, const void* data, const py::object& view)
{
    py::array array(py::dtype(sample), shape, strides, data, view);
    py::detail::array_proxy(array.ptr())->flags &= ~py::detail::npy_api::NPY_ARRAY_WRITEABLE_;
    return array;
}

bool Has_8_Bit_Samples(const Py_buffer& view)
{
    return view.itemsize == 1 && (view.format == nullptr || std::strcmp(view.format, "B") == 0);
}

}  // namespace

py::array Frame_Array(const WQZ_Camera_Frame& frame, const py::object& view)
{
    const Layout layout = Layout_Of(frame.fourcc);
    if (layout.sample == nullptr) {
        return Read_Only_Array("u1", {static_cast<py::ssize_t>(frame.length)}, {1}, frame.data, view);
    }
    const py::ssize_t pixel_bytes = layout.sample_bytes * layout.samples_per_pixel;
    const py::ssize_t row_bytes = frame.width * pixel_bytes;
    const py::ssize_t stride = std::max(row_bytes, py::ssize_t{frame.bytes_per_line});
    std::vector<py::ssize_t> shape = {Whole_Rows(frame, row_bytes, stride), py::ssize_t{frame.width}};
    std::vector<py::ssize_t> strides = {stride, pixel_bytes};
    if (layout.samples_per_pixel > 1) {
        shape.push_back(layout.samples_per_pixel);
        strides.push_back(layout.sample_bytes);
    }
    return Read_Only_Array(layout.sample, shape, strides, frame.data, view);
}

Pixel_Array::Pixel_Array(const py::object& array, uint32_t width, uint32_t height)
{
    if (PyObject_CheckBuffer(array.ptr()) == 0) {
        throw py::type_error("out must be an array");
    }
    if (PyObject_GetBuffer(array.ptr(), &view, PyBUF_STRIDED_RO | PyBUF_FORMAT) != 0) {
        PyErr_Clear();
        throw py::value_error("out cannot be written to");
    }
    try {
        Check(width, height);
    } catch (...) {
        PyBuffer_Release(&view);
        throw;
    }
}

void Pixel_Array::Check(uint32_t width, uint32_t height) const
{
    if (view.readonly != 0) {
        throw py::value_error("out is read-only");
    }
    const bool fits = Has_8_Bit_Samples(view) && view.ndim == 3 && view.shape[0] == py::ssize_t{height} &&
                      view.shape[1] == py::ssize_t{width} && view.shape[2] == Colours;
    if (!fits) {
        throw py::value_error("out must have the shape (" + std::to_string(height) + ", " + std::to_string(width) +
                              ", 3) and the type uint8");
    }
    const py::ssize_t row_bytes = py::ssize_t{width} * Colours;
    const bool close = view.strides[2] == 1 && view.strides[1] == Colours;
    if (!close || view.strides[0] < row_bytes || view.strides[0] > py::ssize_t{UINT32_MAX}) {
        throw py::value_error("out must hold rows of pixels side by side, from top to bottom");
    }
}

uint64_t Pixel_Array::Capacity() const
{
    return static_cast<uint64_t>((view.shape[0] - 1) * view.strides[0] + view.shape[1] * Colours);
}

uint32_t Pixel_Array::Stride() const
{
    return static_cast<uint32_t>(view.strides[0]);
}
