#pragma once

#include <csv.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "tools/inscenter/FieldValue.h"
#include "tools/inscenter/JsonRecordReader.h"

namespace inscenter {

/// Makes records of one class from lines of CSV (RFC 4180, except that a quoted cell ends on its line). The first line
/// names the fields; a column of another name is noted and ignored. An empty cell leaves the default. A basket is a
/// cell that holds a JSON array. Whether dates are days is left to hasDays. Not for several threads at once.
class CsvRecordReader {
public:
    explicit CsvRecordReader(const mxservice::RecordType& type);
    ~CsvRecordReader();
    CsvRecordReader(const CsvRecordReader&) = delete;
    CsvRecordReader& operator=(const CsvRecordReader&) = delete;

    /// Takes the line of column names. False when no column is known or one occurs twice.
    bool readHeader(std::string_view line, FileNotes& notes, LineError& error);

    /// Fills `record` from one line. False, with the reason in `error`, when the line is not valid CSV, its cells are
    /// not as many as the columns, or a cell does not fit its field; the record is then of no use.
    bool readLine(std::string_view line, mxservice::IData& record, FileNotes& notes, LineError& error);

private:
    bool split(std::string_view line, LineError& error);
    bool readCell(const mxservice::Field& field, std::string_view cell, mxservice::IData& record, FileNotes& notes,
                  LineError& error);

    const mxservice::RecordType& type_;
    JsonRecordReader components_;
    csv_parser parser_;
    std::vector<const mxservice::Field*> columns_;  // null: ignored
    std::vector<std::string> cells_;
};

}  // namespace inscenter
