#pragma once

// Texts, days and fields of records as Python's objects and back. All of it under the interpreter's lock.

#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"

namespace binding {

namespace py = pybind11;

/// Takes over a new reference; throws the error that is set where there is none.
py::object owned(PyObject* object);

/// Bytes that are not UTF-8 become surrogates, as in Python's file names, and go back as they were. A new reference;
/// null with an error set where memory lacks.
PyObject* textObject(std::string_view text);

/// False for what is no str. Throws what Python says of surrogates that stand for no byte.
bool readText(PyObject* object, std::string& text);

/// Days since 1970-01-01 of a text YYYYMMDD, or kNoDay.
std::int32_t dayNumber(std::string_view text);
constexpr std::int32_t kNoDay = INT32_MIN;

/// datetime.date of such a number; a new reference.
PyObject* dateObject(std::int32_t dayNumber);

/// One field of a record; a new reference.
PyObject* fieldObject(const mxservice::Field& field, const mxservice::IData& record);

/// Gives a field the value. Throws TypeError or OverflowError naming the field.
void setField(const mxservice::Field& field, mxservice::IData& record, py::handle value);

}  // namespace binding
