// A frame that lends the driver's memory to Python objects.
#ifndef WQZ_PYTHON_LENT_FRAME_H
#define WQZ_PYTHON_LENT_FRAME_H

#include <pybind11/pybind11.h>

#include <utility>

#include "Camera/wqz_camera.hpp"
#include "waiting.h"

/// States: lent, released. Views of the bytes (memoryview, array) refer to the frame, and while one lives the frame
/// cannot be released. A frame may outlive its camera. All members are used under the interpreter's lock.
class Lent_Frame {
public:
    explicit Lent_Frame(wqz::Frame taken) : frame(std::move(taken)) {}
    ~Lent_Frame();
    Lent_Frame(const Lent_Frame&) = delete;
    Lent_Frame& operator=(const Lent_Frame&) = delete;

    /// What the record tells stays readable after the release, but not the bytes.
    const WQZ_Camera_Frame& Record() const { return frame.Record(); }
    bool Is_Released() const { return !frame; }
    /// Raises ValueError after the release.
    void Check_Lent() const;

    /// Raises BufferError while a view lives. Releasing twice does nothing.
    void Release();

    void Add_View() { ++views; }
    void Drop_View() { --views; }

    /// Converts into `out`, or into a new array when `out` is None. The interpreter's lock is not held meanwhile.
    /// @param layout  WQZ_CAMERA_PIXELS_...
    pybind11::object Convert(uint32_t layout, const pybind11::object& out);

private:
    wqz::Frame frame;
    int views = 0;  // and conversions that run
    Home_Process home;
};

void Define_Frame(pybind11::module_& module);

#endif  // WQZ_PYTHON_LENT_FRAME_H
