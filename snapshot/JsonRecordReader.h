#pragma once

#include <memory>
#include <string_view>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "snapshot/BlockReader.h"
#include "snapshot/FieldValue.h"

namespace mxservice::snapshot {

/// Makes records of one class from JSON. Fields are expected in the order of the class's table and found there without
/// a search; others are looked up by name. A key that is missing or null leaves the default; of a repeated key the last
/// value counts. A date may be a number, 20260302. Whether other dates are days is left to hasDays: only the whole
/// record tells which fields are dates. Not for several threads at once.
class JsonRecordReader {
public:
    explicit JsonRecordReader(const RecordType& type);
    ~JsonRecordReader();

    /// Fills `record` from one JSON object. kPadding bytes behind `line` must be readable. False, with the
    /// reason in `error`, when the line is no valid JSON object or a value does not fit its field; the record is then
    /// of no use.
    bool readLine(std::string_view line, IData& record, FileNotes& notes, LineError& error);

    /// Fills a basket from a JSON array, the text of a CSV cell.
    bool readComponents(std::string_view array, const Field& field, IData& record, FileNotes& notes, LineError& error);

private:
    struct State;
    const RecordType& type_;
    std::unique_ptr<State> state_;
};

}  // namespace mxservice::snapshot
