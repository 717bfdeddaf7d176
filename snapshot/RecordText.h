#pragma once

// Records and their fields as text, as snapshots hold them: for log lines, exports and tables.

#include <string>
#include <string_view>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "snapshot/Export.h"

namespace mxservice {

/// A member that listings add to a record: the market under which it is filed. No record has such a field, and reading
/// a snapshot passes over it without a word, so that a listing can be read as one.
constexpr const char* kFiledField = "filed";

/// Appends the record as one line of JSON, without a line break: an object of its document keys in the order of its
/// table. Fields at their default are left out. Numbers have no more digits than it takes to read the same value
/// back; what is no finite number becomes null. Bytes that are not UTF-8 become U+FFFD, so the line is always valid.
PM_SNAPSHOT_API void appendJson(std::string& out, const IData& record);

/// Appends a basket as an array of its components.
PM_SNAPSHOT_API void appendJson(std::string& out, const ComponentMap& components);

/// Appends `text` as a JSON string, quotes included; bytes that are not UTF-8 become U+FFFD.
PM_SNAPSHOT_API void appendJsonString(std::string& out, std::string_view text);

/// Appends the number with no more digits than it takes to read the same value back; "null" for what is not finite.
PM_SNAPSHOT_API void appendNumber(std::string& out, double value);

/// Appends one field as a JSON value. The record must be of the class that owns the field.
PM_SNAPSHOT_API void appendJsonField(std::string& out, const Field& field, const IData& record);

/// Appends one field as the text of a CSV or table cell: a text as it stands, a number as in JSON, a basket as a JSON
/// array. The record must be of the class that owns the field.
PM_SNAPSHOT_API void appendField(std::string& out, const Field& field, const IData& record);

/// Appends a cell of a CSV line, quoted where RFC 4180 asks for it; bytes that are not UTF-8 become U+FFFD.
PM_SNAPSHOT_API void appendCsvCell(std::string& out, std::string_view text);

}  // namespace mxservice
