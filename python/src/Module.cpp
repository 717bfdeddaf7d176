// The extension module inscenter._native: what it is made of, in the order in which one part needs the other.

#include "base/instrumentcenter/Version.h"
#include "platform/utils/Calendar.h"
#include "platform/utils/Hash.h"
#include "platform/utils/MarketRules.h"
#include "src/Casters.h"
#include "src/Catalogue.h"
#include "src/Changes.h"
#include "src/Day.h"
#include "src/Interpreter.h"
#include "src/Store.h"
#include "src/Table.h"

namespace {

namespace py = pybind11;

void addErrors(py::module_& module) {
    // What pybind11 calls a failure at run time is an argument of a wrong type, where a function converts it by itself.
    py::register_local_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const py::cast_error&) {
            PyErr_SetString(PyExc_TypeError, "an argument is of a wrong type");
        }
    });
    py::register_exception<mxservice::SnapshotUnreadable>(module, "UnreadableError", PyExc_OSError).doc() =
        "A day of which nothing can be read.";
    const auto warning = py::reinterpret_steal<py::object>(PyErr_NewExceptionWithDoc(
        "inscenter.SnapshotWarning", "Lines or files of a day were skipped.", PyExc_UserWarning, nullptr));
    module.attr("SnapshotWarning") = warning;
}

void addFunctions(py::module_& module) {
    module.def("hash_key", &utils::hash, "The 64-bit key of a text.", py::arg("text"));
    module.def("today", &utils::today, "The day by which new issues are told, YYYYMMDD.");
    module.def("set_today", &utils::setToday,
               "Pins that day, for the whole process, so that a day's files are classified as on their own day; an "
               "empty text returns to the clock.",
               py::arg("day"));
    module.def(
        "load_market_rules",
        [](py::handle path) {
            const std::string file = binding::existingPath(path);
            binding::withOsErrors([&] { utils::CMarketRules::load(file); });
        },
        "Replaces the code ranges of the market rules by those of a JSON file. OSError, and the former ones stay, "
        "where "
        "it cannot be read or says something else.",
        py::arg("path"));
    module.def("reset_market_rules", &utils::CMarketRules::reset, "Puts the built-in market rules back.");
}

/// Before anything is taken down: no thread may be in a callback, or come back from the library, once that has begun.
void closeAtExit() {
    const auto close = py::cpp_function([] {
        binding::endCallbacks();
        binding::closeInterpreter();
    });
    py::module_::import("atexit").attr("register")(close);
}

}  // namespace

PYBIND11_MODULE(_native, module) {
    module.doc() = "The instrument catalogue; import inscenter instead.";
    module.attr("__version__") = mxservice::version();
    addErrors(module);
    binding::addRecords(module);
    binding::addTable(module);
    binding::addDay(module);
    binding::addCatalogue(module);
    binding::addStatistics(module);
    binding::addCenters(module);
    binding::addStore(module);
    binding::addDiff(module);
    addFunctions(module);
    closeAtExit();
}
