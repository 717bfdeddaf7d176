#pragma once

#include <pybind11/pybind11.h>

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"

namespace binding {

namespace py = pybind11;

class Column;

/// Records of one class and some of their fields, to be had as columns.
class Table {
public:
    using Records = std::vector<boost::shared_ptr<const mxservice::IData>>;

    /// `fields` is a sequence of names; None: all but baskets. Throws where a field is unknown or a basket.
    Table(const mxservice::RecordType& type, Records records, const py::object& fields);
    /// Of a class that is known beforehand.
    template <class Record>
    Table(const std::vector<boost::shared_ptr<Record>>& records, const py::object& fields)
        : Table(Record::table(), Records(records.begin(), records.end()), fields) {}
    /// Of records that Python holds; instruments where there are none.
    static Table ofObjects(const py::list& records, const py::object& fields);

    std::size_t size() const { return records_.size(); }
    py::tuple names() const;
    py::list records() const;
    /// What a frame is made of, by name: arrays, and of categories their numbers and texts. The frame itself is made by
    /// Python's own code (_frames.py): a thread that the interpreter ends while it runs such code must have no frame of
    /// ours below it.
    py::dict series(const std::string& dates) const;
    /// numpy arrays by name.
    py::dict columns() const;
    /// A capsule with a stream of one batch. The schema that is asked for is a wish, and is not granted.
    py::capsule arrowStream(const py::object& requestedSchema) const;

private:
    /// Every field read into columns, without the interpreter's lock.
    std::vector<std::unique_ptr<Column>> read(bool datesAsText) const;

    const mxservice::RecordType* type_;
    Records records_;
    std::vector<const mxservice::Field*> fields_;
};

/// Every component of the funds' baskets, and the fund of each.
std::pair<Table, Table> baskets(const Table::Records& funds);

void addTable(py::module_& module);

}  // namespace binding
