#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"

namespace mxservice::snapshot {

class FileNotes;

/// Why a line makes no record.
struct LineError {
    std::string field;  ///< empty when the line as a whole is at fault
    std::string reason;
};

/// Puts the reason into `error` and answers false.
bool refuse(LineError& error, std::string field, std::string reason);

/// Puts a number into a field that holds numbers. False, with the reason in `error`, when it is out of the field's
/// range.
bool assignInteger(const Field& field, IData& record, std::int64_t value, LineError& error);
/// The same; a field of whole numbers takes the number truncated toward zero, as reading a document does.
bool assignNumber(const Field& field, IData& record, double value, FileNotes& notes, LineError& error);

/// Puts the number YYYYMMDD into a field that holds a date, as text. False, with the reason in `error`, when it is
/// none.
bool assignDay(const Field& field, IData& record, std::int64_t value, LineError& error);

/// The fields of the class that hold dates.
std::vector<const Field*> dateFields(const RecordType& type);
/// False, with the reason in `error`, when one of them is neither empty nor a day of the calendar.
bool hasDays(const IData& record, const std::vector<const Field*>& dates, LineError& error);

/// The fields without which a record of the class could not be told from others: its code, of instruments and ETFs its
/// market too.
std::vector<const Field*> identityFields(const RecordType& type);
/// False when one of them is empty.
bool hasIdentity(const IData& record, const std::vector<const Field*>& identity, LineError& error);

}  // namespace mxservice::snapshot
