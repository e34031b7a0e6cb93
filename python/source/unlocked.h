// Calls without the interpreter's lock.
#ifndef WQZ_PYTHON_UNLOCKED_H
#define WQZ_PYTHON_UNLOCKED_H

#include <pybind11/pybind11.h>

/// Gives the interpreter's lock to other threads while it lives.
///
/// Unlike pybind11's, it survives the end of the interpreter. The interpreter then ends a daemon thread that asks for
/// the lock, by unwinding its stack. This would end the process in a destructor, so the thread sleeps instead.
class Unlocked {
public:
    Unlocked() : state(PyEval_SaveThread()) {}
    ~Unlocked() { Lock_Again(); }
    Unlocked(const Unlocked&) = delete;
    Unlocked& operator=(const Unlocked&) = delete;

private:
    void Lock_Again() noexcept;

    PyThreadState* state;
};

#endif  // WQZ_PYTHON_UNLOCKED_H
