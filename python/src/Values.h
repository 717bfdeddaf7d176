#pragma once

// Texts, days and fields of records as Python's objects and back. All of it under the interpreter's lock.

#include <pybind11/pybind11.h>

#include <cstdint>
#include <stdexcept>
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

/// A str, bytes or os.PathLike as a file name. Throws what Python says of another object.
std::string pathText(py::handle path);

/// The same of what is there; throws FileNotFoundError, or what else Python raises, where it is not.
std::string existingPath(py::handle path);

/// YYYYMMDD of a str, which is taken as it stands, or of what has strftime.
std::string dayText(py::handle day);

/// Throws Python's error for a number of errno, which is a class of its own for most; `path` is its filename.
[[noreturn]] void throwOsError(int number, py::handle path);
/// With a text alone.
[[noreturn]] void throwOsError(const std::string& text);

/// Does `work`, whose failures at run time become OSError. Its own locks are gone by then.
template <class Work>
void withOsErrors(const Work& work) {
    try {
        work();
    } catch (const std::runtime_error& failure) {
        throwOsError(std::string(failure.what()));
    }
}

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
