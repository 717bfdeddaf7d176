#pragma once

#include <pybind11/pybind11.h>

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "src/Arrow.h"

namespace binding {

namespace py = pybind11;

using RecordPointer = boost::shared_ptr<const mxservice::IData>;

/// How days appear in a frame.
enum class Dates { Objects, Nanoseconds, Text };

/// "date", "datetime64" or "text". Throws ValueError for another one.
Dates datesNamed(const std::string& name);

/// One field of many records. Reading it needs no lock of Python's; it is then handed out once.
class Column {
public:
    /// `rows` is how many records will be read. With `datesAsText` a day is a text like any other.
    static std::unique_ptr<Column> make(const mxservice::Field& field, std::size_t rows, bool datesAsText);
    virtual ~Column() = default;

    const mxservice::Field& field() const { return *field_; }

    /// The field of `count` records, behind those that were read before. The records outlive the column.
    virtual void read(const RecordPointer* records, std::size_t count) = 0;
    /// A numpy array of its own; texts as objects, days as datetime64[D].
    virtual py::object array() = 0;
    /// What a frame is made of: an array, or numbers and the texts that they stand for.
    virtual py::object series(Dates) { return array(); }
    /// Takes over what was read.
    virtual ArrowColumn arrow() = 0;

protected:
    explicit Column(const mxservice::Field& field) : field_(&field) {}

    /// Without values yet.
    ArrowColumn arrowColumn(const char* format, std::size_t rows) const;

private:
    const mxservice::Field* field_;
};

}  // namespace binding
