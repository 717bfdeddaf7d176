#include "src/Table.h"

#include <algorithm>

#include "platform/record/Records.h"
#include "src/Casters.h"
#include "src/Column.h"
#include "src/Inside.h"
#include "src/Interpreter.h"

namespace binding {
namespace {

using mxservice::CETFComponentStockInfo;
using mxservice::CETFDetail;
using mxservice::CInstrumentDetail;
using mxservice::Field;
using mxservice::FieldKind;

/// pybind11 imports numpy within the making of a static object: a thread that waits for that object holds the
/// interpreter's lock, and the import needs it. Here the import has locks of Python's own, and is over by then.
void needNumpy() {
    py::module_::import("numpy");
}

}  // namespace

Table::Table(const mxservice::RecordType& type, Records records, const py::object& fields)
    : type_(&type), records_(std::move(records)) {
    if (py::isinstance<py::str>(fields)) {  // a sequence as well, of letters that are no fields
        throw py::type_error("fields are a sequence of names");
    }
    if (!fields.is_none()) {
        const Inside inside;  // asks a sequence of a class of Python's
        for (const py::handle name : fields) {
            fields_.push_back(&fieldNamed(type, name.cast<std::string>(), PyExc_ValueError));
        }
        return;
    }
    for (const Field& field : type.fields()) {
        if (field.kind() != FieldKind::Components) {
            fields_.push_back(&field);
        }
    }
}

Table Table::ofObjects(const py::list& records, const py::object& fields) {
    Records taken;
    for (const py::handle object : records) {
        // Own references, since the objects may go while columns are read without the interpreter's lock.
        const auto* const record = recordIn(object.ptr());
        if (record == nullptr) {
            throw py::type_error(std::string("records expected, ") + Py_TYPE(object.ptr())->tp_name + " found");
        }
        if (!taken.empty() && &(*record)->recordType() != &taken.front()->recordType()) {
            throw py::type_error("records of one class expected");
        }
        taken.push_back(*record);
    }
    const auto& type = taken.empty() ? CInstrumentDetail::table() : taken.front()->recordType();
    return {type, std::move(taken), fields};
}

py::tuple Table::names() const {
    py::list names;
    for (const Field* const field : fields_) {
        names.append(field->name());
    }
    return py::tuple(names);
}

py::list Table::records() const {
    py::list records;
    for (const auto& record : records_) {
        records.append(owned(recordObject(record)));
    }
    return records;
}

std::vector<std::unique_ptr<Column>> Table::read(bool datesAsText) const {
    std::vector<std::unique_ptr<Column>> columns;
    for (const Field* const field : fields_) {
        columns.push_back(Column::make(*field, records_.size(), datesAsText));
    }
    // As many records at a time as the processor's cache holds while each column takes its field of them.
    constexpr std::size_t kAtATime = 128;
    const Released released;
    for (std::size_t begin = 0; begin < records_.size(); begin += kAtATime) {
        for (const auto& column : columns) {
            column->read(records_.data() + begin, std::min(kAtATime, records_.size() - begin));
        }
    }
    return columns;
}

py::dict Table::series(const std::string& dates) const {
    const Dates form = datesNamed(dates);
    const Inside inside;
    needNumpy();
    py::dict columns;
    for (const auto& column : read(form == Dates::Text)) {
        columns[column->field().name().c_str()] = column->series(form);
    }
    return columns;
}

py::dict Table::columns() const {
    const Inside inside;
    needNumpy();
    py::dict columns;
    for (const auto& column : read(false)) {
        columns[column->field().name().c_str()] = column->array();
    }
    return columns;
}

py::capsule Table::arrowStream(const py::object&) const {
    std::vector<ArrowColumn> columns;
    for (const auto& column : read(false)) {
        columns.push_back(column->arrow());
    }
    // Nothing in it is Python's, so a consumer may read and release it on any thread, and at the interpreter's end.
    ArrowArrayStream* const stream = makeArrowStream(std::move(columns), static_cast<std::int64_t>(records_.size()));
    return py::capsule(stream, "arrow_array_stream", [](PyObject* capsule) {
        dropArrowStream(static_cast<ArrowArrayStream*>(PyCapsule_GetPointer(capsule, "arrow_array_stream")));
    });
}

/// In step: the frame that Python makes of both takes a row of one with that of the other.
std::pair<Table, Table> baskets(const Table::Records& funds) {
    Table::Records fundOfRow;
    Table::Records components;
    for (const auto& record : funds) {
        const auto& fund = static_cast<const CETFDetail&>(*record);
        for (const auto& [code, component] : fund.components) {
            if (component) {
                fundOfRow.push_back(record);
                components.push_back(component);
            }
        }
    }
    return {Table(CETFDetail::table(), std::move(fundOfRow), py::make_tuple("exchid", "etfcode")),
            Table(CETFComponentStockInfo::table(), std::move(components), py::none())};
}

void addTable(py::module_& module) {
    py::class_<Table>(module, "Table", "Records of one class as columns; also what Arrow's readers take.")
        .def(py::init(&Table::ofObjects), "Of a list of records.", py::arg("records"), py::arg("fields"))
        .def("__len__", &Table::size, "How many records.")
        .def_property_readonly("names", &Table::names, "The fields, in their order.")
        .def("records", &Table::records, "The records themselves.")
        .def("_series", &Table::series, "For frame.", py::arg("dates"))
        .def("columns", &Table::columns, "numpy arrays by name: numbers, objects for texts, datetime64[D] for days.")
        .def("__arrow_c_stream__", &Table::arrowStream, "A stream of Arrow's C data interface, of one batch.",
             py::arg("requested_schema") = py::none());
}

}  // namespace binding
