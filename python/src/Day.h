#pragma once

#include <pybind11/pybind11.h>

#include <string>

#include "snapshot/Snapshot.h"
#include "src/Catalogue.h"
#include "src/Table.h"

namespace binding {

namespace py = pybind11;

/// A day's records; not changed once it is made.
struct Day {
    mxservice::Snapshot snapshot;

    /// The records of one catalogue as a table of their class.
    Table table(const std::string& catalogue, const py::object& fields) const;
};

/// Loads copies of the day's records, because a load writes fields of what it is given.
void loadCopy(Center& center, const Day& day);

/// "instruments", "etfs" and so on. Throws ValueError for another name.
mxservice::SnapshotCatalogue catalogueNamed(const std::string& name);

void addDay(py::module_& module);

}  // namespace binding
