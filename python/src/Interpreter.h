#pragma once

#include <pybind11/pybind11.h>

namespace binding {

namespace py = pybind11;

/// Lets go of the interpreter's lock while the library works. Nothing of Python's may be touched while it lives.
class Released {
public:
    Released();
    ~Released();
    Released(const Released&) = delete;
    Released& operator=(const Released&) = delete;

private:
    PyThreadState* state_;
};

/// Takes the interpreter's lock on a thread of the library, unless the interpreter is at its end.
class Held {
public:
    Held();
    ~Held();
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;

    /// Whether Python may be touched.
    explicit operator bool() const { return held_; }

private:
    bool held_;
    PyGILState_STATE state_{};
};

/// Destroys what may wait for a thread that wants the interpreter's lock, or takes long.
template <class T>
struct ReleasedDelete {
    void operator()(T* object) const {
        const Released released;
        delete object;
    }
};

/// Called when the interpreter ends, with its lock held and nothing taken down yet: from then on no thread but this one
/// comes back to Python.
void closeInterpreter();

}  // namespace binding
