#pragma once

#include <pybind11/pybind11.h>

namespace binding {

/// What persisted centers have left on disk, read without a center.
void addStore(pybind11::module_& module);

}  // namespace binding
