#pragma once

#include <pybind11/pybind11.h>

#include <memory>

#include "src/Catalogue.h"

namespace binding {

/// subscribe of the centers, and what it tells.
void addSubscribe(py::module_& module, py::class_<Center, Catalogue, std::shared_ptr<Center>>& center);

/// Differences between two days.
void addDiff(py::module_& module);

/// From here on subscribers hear of nothing. Waits for those that are being told; with the interpreter's lock, which
/// is free in between.
void endCallbacks();

}  // namespace binding
