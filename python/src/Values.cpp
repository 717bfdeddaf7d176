#include "src/Values.h"

#include <datetime.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <limits>
#include <system_error>
#include <type_traits>

#include "platform/record/Records.h"
#include "src/Casters.h"
#include "src/Inside.h"

namespace binding {
namespace {

using mxservice::CETFComponentStockInfo;
using mxservice::ComponentMap;
using mxservice::Field;
using mxservice::IData;

/// When it is first needed: importing the package stays short.
bool loadDates() {
    if (PyDateTimeAPI == nullptr) {
        PyDateTime_IMPORT;
    }
    return PyDateTimeAPI != nullptr;
}

struct ToPython {
    PyObject* operator()(const std::string& text) const { return textObject(text); }
    PyObject* operator()(double number) const { return PyFloat_FromDouble(number); }
    PyObject* operator()(const ComponentMap& components) const { return py::cast(components).release().ptr(); }
    template <class Whole>
    PyObject* operator()(Whole number) const {
        return PyLong_FromLongLong(static_cast<long long>(number));
    }
};

[[noreturn]] void refuse(const Field& field, const char* expected, py::handle value) {
    throw py::type_error(field.name() + ": " + expected + " expected, " + Py_TYPE(value.ptr())->tp_name + " found");
}

/// Without the number: one of more than 4,300 digits is none that Python shows.
[[noreturn]] void refuseSize(const Field& field) {
    PyErr_SetString(PyExc_OverflowError, (field.name() + ": the number is more than the field holds").c_str());
    throw py::error_already_set();
}

/// In place of the error that Python has set, which names no field.
[[noreturn]] void refuseNumber(const Field& field, const char* expected, py::handle value) {
    const bool size = PyErr_ExceptionMatches(PyExc_OverflowError) != 0;
    PyErr_Clear();
    if (size) {
        refuseSize(field);
    }
    refuse(field, expected, value);
}

struct FromPython {
    const Field& field;
    py::handle value;

    void operator()(std::string& text) const {
        if (readText(value.ptr(), text)) {
            return;
        }
        if (!field.isDate() || !loadDates() || !PyDate_Check(value.ptr())) {
            refuse(field, field.isDate() ? "str or datetime.date" : "str", value);
        }
        const Inside inside;  // of a class of Python's that derives from it
        const auto part = [&](const char* name) { return value.attr(name).cast<int>(); };
        const int day = part("year") * 10000 + part("month") * 100 + part("day");
        text = std::to_string(day);
        text.insert(0, 8 - text.size(), '0');  // of a year before 1000
    }

    void operator()(double& number) const {
        const double read = PyFloat_AsDouble(value.ptr());  // whole numbers, too, and numpy's
        if (PyErr_Occurred() != nullptr) {
            refuseNumber(field, "float", value);
        }
        number = read;
    }

    void operator()(ComponentMap& components) const {
        ComponentMap read;
        // Taken as a whole while nothing of Python's is held here: an iterable is asked by code of Python's, in which
        // the interpreter may end this thread.
        const py::object items =
            owned(PyDict_Check(value.ptr()) ? PyDict_Values(value.ptr()) : PySequence_Tuple(value.ptr()));
        for (const py::handle item : items) {
            const auto component = item.cast<boost::shared_ptr<CETFComponentStockInfo>>();
            if (!component) {
                refuse(field, "EtfComponent", item);
            }
            read[component->code] = component;  // as days are read; what a dict has called it is stored nowhere
        }
        components = std::move(read);
    }

    template <class Whole>
    void operator()(Whole& number) const {
        // Whole numbers of any library, but nothing that would have to be cut to become one.
        const auto index = py::reinterpret_steal<py::object>(PyNumber_Index(value.ptr()));
        const long long read = index ? PyLong_AsLongLong(index.ptr()) : 0;
        if (PyErr_Occurred() != nullptr) {
            refuseNumber(field, "int", value);
        }
        if (read < static_cast<long long>(std::numeric_limits<Whole>::min()) ||
            read > static_cast<long long>(std::numeric_limits<Whole>::max())) {
            refuseSize(field);
        }
        number = static_cast<Whole>(read);
    }
};

}  // namespace

py::object owned(PyObject* object) {
    if (object == nullptr) {
        throw py::error_already_set();
    }
    return py::reinterpret_steal<py::object>(object);
}

PyObject* textObject(std::string_view text) {
    return PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape");
}

bool readText(PyObject* object, std::string& text) {
    if (!PyUnicode_Check(object)) {
        return false;
    }
    // Nearly always: the object keeps what this makes, so that a key that is asked for again costs a copy.
    Py_ssize_t size = 0;
    if (const char* const bytes = PyUnicode_AsUTF8AndSize(object, &size)) {
        text.assign(bytes, static_cast<std::size_t>(size));
        return true;
    }
    PyErr_Clear();
    const py::object bytes = owned(PyUnicode_AsEncodedString(object, "utf-8", "surrogateescape"));
    text.assign(PyBytes_AS_STRING(bytes.ptr()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.ptr())));
    return true;
}

std::string pathText(py::handle path) {
    const Inside inside;
    auto text = py::module_::import("os").attr("fsdecode")(path).cast<std::string>();
    if (text.find('\0') != std::string::npos) {
        throw py::value_error("a path holds a NUL");  // behind which the system would see nothing: another file
    }
    return text;
}

std::string existingPath(py::handle path) {
    std::string text = pathText(path);
    std::error_code error;
    if (!std::filesystem::exists(text, error)) {
        throwOsError(error ? error.value() : ENOENT, path);
    }
    return text;
}

std::string dayText(py::handle day) {
    std::string text;
    if (readText(day.ptr(), text)) {
        return text;
    }
    const Inside inside;
    return day.attr("strftime")("%Y%m%d").cast<std::string>();
}

void throwOsError(int number, py::handle path) {
    PyErr_SetObject(PyExc_OSError, py::make_tuple(number, std::generic_category().message(number), path).ptr());
    throw py::error_already_set();
}

void throwOsError(const std::string& text) {
    // Not by PyErr_SetString, which takes nothing but UTF-8: the text names a file.
    PyErr_SetObject(PyExc_OSError, owned(textObject(text)).ptr());
    throw py::error_already_set();
}

std::int32_t dayNumber(std::string_view text) {
    if (text.size() != 8) {
        return kNoDay;
    }
    int number = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9') {
            return kNoDay;
        }
        number = number * 10 + (digit - '0');
    }
    const std::chrono::year_month_day day{std::chrono::year(number / 10000),
                                          std::chrono::month(static_cast<unsigned>(number / 100 % 100)),
                                          std::chrono::day(static_cast<unsigned>(number % 100))};
    // datetime.date begins with the year 1.
    return day.ok() && number >= 10000
               ? static_cast<std::int32_t>(std::chrono::sys_days(day).time_since_epoch().count())
               : kNoDay;
}

PyObject* dateObject(std::int32_t dayNumber) {
    if (!loadDates()) {
        return nullptr;
    }
    const std::chrono::year_month_day day{std::chrono::sys_days(std::chrono::days(dayNumber))};
    return PyDate_FromDate(static_cast<int>(day.year()), static_cast<int>(static_cast<unsigned>(day.month())),
                           static_cast<int>(static_cast<unsigned>(day.day())));
}

PyObject* fieldObject(const Field& field, const IData& record) {
    return mxservice::visitField(field, record, ToPython());
}

void setField(const Field& field, IData& record, py::handle value) {
    mxservice::visitField(field, record, FromPython{field, value});
}

}  // namespace binding
