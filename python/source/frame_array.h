// Arrays of NumPy over the bytes of a frame.
#ifndef WQZ_PYTHON_FRAME_ARRAY_H
#define WQZ_PYTHON_FRAME_ARRAY_H

#include <pybind11/numpy.h>

#include "Camera/wqz_camera.h"

/// Makes a read-only array over the bytes of a frame: rows and columns for formats with samples of whole bytes, one
/// dimension for all others. A frame that is cut short has fewer rows.
/// @param view  memoryview of the bytes, which the array keeps
pybind11::array Frame_Array(const WQZ_Camera_Frame& frame, const pybind11::object& view);

/// An array of other owners that pixels are written to. While this lives, the array cannot be resized.
class Pixel_Array {
public:
    /// Raises TypeError or ValueError unless `array` is a writable array of 8-bit samples in the shape (height, width,
    /// 3) with pixels side by side.
    Pixel_Array(const pybind11::object& array, uint32_t width, uint32_t height);
    ~Pixel_Array() { PyBuffer_Release(&view); }
    Pixel_Array(const Pixel_Array&) = delete;
    Pixel_Array& operator=(const Pixel_Array&) = delete;

    void* Data() const { return view.buf; }
    uint64_t Capacity() const;
    uint32_t Stride() const;

private:
    void Check(uint32_t width, uint32_t height) const;

    Py_buffer view{};
};

#endif  // WQZ_PYTHON_FRAME_ARRAY_H
