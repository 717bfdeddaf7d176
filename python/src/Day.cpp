#include "src/Day.h"

#include <array>
#include <optional>

#include "platform/record/Records.h"
#include "src/Casters.h"
#include "src/Interpreter.h"

namespace binding {
namespace {

using mxservice::Snapshot;
using mxservice::SnapshotCatalogue;
using mxservice::SnapshotFormat;
using mxservice::SnapshotIssue;
using mxservice::SnapshotPacking;
using mxservice::SnapshotReadOptions;

// By the numbers of SnapshotIssueKind.
constexpr std::array<const char*, 6> kIssueKinds{"line_skipped",    "file_skipped", "number_cut",
                                                 "record_replaced", "key_unknown",  "file_changed"};

SnapshotFormat formatNamed(const std::string& name) {
    if (name != "ndjson" && name != "csv") {
        throw py::value_error("a format is \"ndjson\" or \"csv\"");
    }
    return name == "csv" ? SnapshotFormat::Csv : SnapshotFormat::Ndjson;
}

SnapshotPacking packingNamed(const py::object& name) {
    if (name.is_none()) {
        return SnapshotPacking::None;
    }
    const auto text = name.cast<std::string>();
    if (text != "gzip" && text != "zstd") {
        throw py::value_error("a packing is \"gzip\", \"zstd\" or None");
    }
    return text == "gzip" ? SnapshotPacking::Gzip : SnapshotPacking::Zstd;
}

Day readPath(py::handle source, const SnapshotReadOptions& options) {
    const std::string path = existingPath(source);
    const Released released;
    return {Snapshot::read(path, options)};
}

Day readBytes(py::handle source, const SnapshotReadOptions& options) {
    Py_buffer buffer;
    if (PyObject_GetBuffer(source.ptr(), &buffer, PyBUF_SIMPLE) != 0) {
        throw py::error_already_set();
    }
    // While it is kept a bytearray cannot be resized by those who have the interpreter's lock meanwhile.
    const std::unique_ptr<Py_buffer, void (*)(Py_buffer*)> kept(&buffer, PyBuffer_Release);
    const Released released;
    return {Snapshot::read(static_cast<const char*>(buffer.buf), static_cast<std::size_t>(buffer.len), options)};
}

/// For a warning; empty where there is nothing to warn of.
std::string toldOfSkipped(const Day& day) {
    const Snapshot& snapshot = day.snapshot;
    if (snapshot.skippedLines == 0 && snapshot.skippedFiles == 0) {
        return "";
    }
    std::string text = std::to_string(snapshot.skippedLines) + " lines and " + std::to_string(snapshot.skippedFiles) +
                       " files skipped, see Day.issues";
    for (const SnapshotIssue& issue : snapshot.issues) {
        if (issue.kind == mxservice::SnapshotIssueKind::LineSkipped ||
            issue.kind == mxservice::SnapshotIssueKind::FileSkipped) {
            text += "; first: " + issue.file + (issue.line > 0 ? ":" + std::to_string(issue.line) : "") + ": " +
                    (issue.field.empty() ? "" : issue.field + ": ") + issue.reason;
            break;
        }
    }
    return text;
}

SnapshotReadOptions optionsOf(const std::optional<std::string>& catalogue, const std::optional<std::string>& format,
                              unsigned threads) {
    SnapshotReadOptions options;
    if (catalogue) {
        options.catalogue = catalogueNamed(*catalogue);
    }
    if (format) {
        options.format = formatNamed(*format);
    }
    options.threads = threads;
    return options;
}

/// A way to read as a function that takes options by their names.
auto reading(Day (*read)(py::handle, const SnapshotReadOptions&)) {
    return
        [read](py::handle source, const std::optional<std::string>& catalogue, const std::optional<std::string>& format,
               unsigned threads) { return read(source, optionsOf(catalogue, format, threads)); };
}

/// The catalogue of a record's class. By the very class: a plan is an instrument to Python, and is of another
/// catalogue. Throws TypeError where there is none.
SnapshotCatalogue catalogueOf(const mxservice::IData& record) {
    for (const SnapshotCatalogue catalogue : mxservice::kEveryCatalogue) {
        if (&mxservice::catalogueType(catalogue) == &record.recordType()) {
            return catalogue;
        }
    }
    throw py::type_error(std::string(recordName(record.recordType())) + " is no record of a day's catalogue");
}

/// Shares the records with the objects: nobody changes either, and a load takes copies.
Day dayOf(const py::list& records) {
    Day day;
    for (const py::handle object : records) {
        const auto record = object.cast<boost::shared_ptr<mxservice::IData>>();
        if (!record) {
            throw py::type_error("records expected");
        }
        day.snapshot.add(catalogueOf(*record), record);
    }
    return day;
}

py::list recordsOf(const Day& day, const std::string& catalogue) {
    py::list records;
    for (const auto& record : day.snapshot.records(catalogueNamed(catalogue))) {
        records.append(py::cast(record));
    }
    return records;
}

py::dict counts(const Day& day) {
    py::dict counts;
    for (const SnapshotCatalogue catalogue : mxservice::kEveryCatalogue) {
        counts[mxservice::catalogueName(catalogue)] = day.snapshot.records(catalogue).size();
    }
    return counts;
}

void addIssue(py::module_& module) {
    py::class_<SnapshotIssue>(module, "Issue", "Something that reading has met.")
        .def_readonly("file", &SnapshotIssue::file, "The file, as its path was given.")
        .def_readonly("line", &SnapshotIssue::line, "From 1; 0: the file as a whole.")
        .def_readonly("field", &SnapshotIssue::field, "Empty where no field is at fault.")
        .def_readonly("reason", &SnapshotIssue::reason, "For people.")
        .def_readonly("count", &SnapshotIssue::count, "How many it stands for.")
        .def_property_readonly(
            "kind", [](const SnapshotIssue& issue) { return kIssueKinds.at(static_cast<std::size_t>(issue.kind)); },
            "What it is about: \"line_skipped\" and \"file_skipped\" cost records, the others do not.")
        .def("__repr__", [](const SnapshotIssue& issue) -> std::string {
            return "<Issue " + issue.file + ":" + std::to_string(issue.line) + " " + issue.field + " " + issue.reason +
                   ">";
        });
}

}  // namespace

Table Day::table(const std::string& catalogue, const py::object& fields) const {
    const auto records = snapshot.records(catalogueNamed(catalogue));
    return {mxservice::catalogueType(catalogueNamed(catalogue)), Table::Records(records.begin(), records.end()),
            fields};
}

void loadCopy(Center& center, const Day& day) {
    const Released released;
    center.load(day.snapshot.copy());
}

SnapshotCatalogue catalogueNamed(const std::string& name) {
    for (const SnapshotCatalogue catalogue : mxservice::kEveryCatalogue) {
        if (name == mxservice::catalogueName(catalogue)) {
            return catalogue;
        }
    }
    throw py::value_error("no catalogue " + name);
}

void addDay(py::module_& module) {
    addIssue(module);
    const auto named = py::arg("catalogue") = "instruments";
    const auto fields = py::arg("fields") = py::none();
    py::class_<Day>(module, "Day", "A day's records of all catalogues.")
        .def(py::init(&dayOf), "Of a list of records.", py::arg("records"))
        .def_static("_read_path", reading(readPath), "For open.", py::arg("source"), py::arg("catalogue"),
                    py::arg("format"), py::arg("threads"))
        .def_static("_read_bytes", reading(readBytes), "For open.", py::arg("source"), py::arg("catalogue"),
                    py::arg("format"), py::arg("threads"))
        .def("_skipped", toldOfSkipped, "For open: what to warn of.")
        .def("records", recordsOf, "The records of one catalogue.", named)
        .def("table", &Day::table, "One catalogue as columns.", named, fields)
        .def(
            "columns",
            [](const Day& day, const std::string& catalogue, const py::object& names) {
                return day.table(catalogue, names).columns();
            },
            "One catalogue as numpy arrays; see Table.columns.", named, fields)
        .def(
            "_baskets",
            [](const Day& day) {
                const auto funds = day.snapshot.records(SnapshotCatalogue::Etfs);
                return baskets(Table::Records(funds.begin(), funds.end()));
            },
            "For baskets.")
        .def(
            "__arrow_c_stream__",
            [](const Day& day, const py::object& schema) {
                return day.table("instruments", py::none()).arrowStream(schema);
            },
            "The instruments, for who takes Arrow's C data interface.", py::arg("requested_schema") = py::none())
        .def(
            "write",
            [](const Day& day, py::handle directory, const std::string& format, const py::object& packing) {
                const std::string path = pathText(directory);
                const SnapshotFormat form = formatNamed(format);
                const SnapshotPacking packed = packingNamed(packing);
                withOsErrors([&] {
                    const Released released;
                    day.snapshot.write(path, form, packed);
                });
            },
            "Writes all catalogues into a directory, as \"ndjson\" or \"csv\", packed with \"gzip\", \"zstd\" or not.",
            py::arg("directory"), py::arg("format") = "ndjson", py::arg("packing") = py::none())
        .def_property_readonly("counts", counts, "How many records each catalogue has.")
        .def_property_readonly(
            "markets", [](const Day& day) { return day.snapshot.markets(); },
            "The markets that the instruments name, as init_instruments takes them.")
        .def_property_readonly(
            "issues", [](const Day& day) { return day.snapshot.issues; }, "What reading has met.")
        .def_property_readonly(
            "skipped_lines", [](const Day& day) { return day.snapshot.skippedLines; }, "Lines that made no record.")
        .def_property_readonly(
            "skipped_files", [](const Day& day) { return day.snapshot.skippedFiles; },
            "Files passed over or given up.");
}

}  // namespace binding
