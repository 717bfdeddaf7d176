#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "snapshot/CsvScanner.h"
#include "snapshot/FieldValue.h"
#include "snapshot/JsonRecordReader.h"

namespace mxservice::snapshot {

/// The field of each column; null: ignored.
using CsvColumns = std::vector<const Field*>;

/// Takes the cells of the first line for the names of the columns; one that no field has is noted. False, with the
/// reason in `error`, when no column is known or one occurs twice.
bool readColumns(const CsvCells& names, const RecordType& type, CsvColumns& columns, FileNotes& notes,
                 LineError& error);

/// Makes records of one class from the cells of CSV records. An empty cell leaves the default. A basket is a cell that
/// holds a JSON array. Whether dates are days is left to hasDays. Not for several threads at once.
class CsvRecordReader {
public:
    /// `columns` must live as long.
    CsvRecordReader(const RecordType& type, const CsvColumns& columns) : columns_(columns), components_(type) {}

    /// Fills `record`. False, with the reason in `error`, when the cells are not as many as the columns, or one does
    /// not fit its field; the record is then of no use. The texts of the cells must be UTF-8.
    bool readCells(const CsvCells& cells, IData& record, FileNotes& notes, LineError& error);

private:
    bool readCell(const Field& field, std::string_view cell, IData& record, FileNotes& notes, LineError& error);

    const CsvColumns& columns_;
    JsonRecordReader components_;
};

}  // namespace mxservice::snapshot
