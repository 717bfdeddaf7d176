#pragma once

// Records as Python's objects. Their types are made by hand and not by pybind11: an object costs what a small tuple
// does, which is what asking for many of them is about.

#include <pybind11/pybind11.h>

#include <boost/shared_ptr.hpp>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"

namespace binding {

namespace py = pybind11;

/// Puts the record classes into the module.
void addRecords(py::module_& module);

/// The record as an object, None for an empty pointer; a new reference, or null with an error set.
PyObject* recordObject(boost::shared_ptr<const mxservice::IData> record);

/// The record in an object; null for what is none. Valid as long as the object.
const boost::shared_ptr<const mxservice::IData>* recordIn(PyObject* object);

/// The Python name of a record class.
const char* recordName(const mxservice::RecordType& type);

/// The class's field of that name. Throws an error that names the class, of the given kind.
const mxservice::Field& fieldNamed(const mxservice::RecordType& type, const std::string& name, PyObject* error);

}  // namespace binding
