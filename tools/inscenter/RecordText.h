#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"

namespace inscenter {

/// Appends the record as one line of JSON, without a line break: an object of its document keys in the order of its
/// table. Fields at their default are left out. Numbers have no more digits than it takes to read the same value
/// back; what is no finite number becomes null. Bytes that are not UTF-8 become U+FFFD, so the line is always valid.
void appendJson(std::string& out, const mxservice::IData& record);

/// Appends a basket as an array of its components.
void appendJson(std::string& out, const mxservice::ComponentMap& components);

/// Appends `text` as a JSON string, quotes included; bytes that are not UTF-8 become U+FFFD.
void appendJsonString(std::string& out, std::string_view text);

/// Appends a JSON array of the items, each as `append` appends it.
template <class Items, class Append>
void appendJsonArray(std::string& out, const Items& items, Append append) {
    char separator = '[';
    for (const auto& item : items) {
        out += std::exchange(separator, ',');
        append(item);
    }
    out += separator == '[' ? "[]" : "]";
}

/// Appends the number with no more digits than it takes to read the same value back; "null" for what is not finite.
void appendNumber(std::string& out, double value);

/// Appends one field as a JSON value.
void appendJsonField(std::string& out, const mxservice::Field& field, const mxservice::IData& record);

/// Appends one field as the text of a CSV or table cell: a text as it stands, a number as in JSON, a basket as a JSON
/// array.
void appendField(std::string& out, const mxservice::Field& field, const mxservice::IData& record);

/// The texts between the commas, without empty ones.
std::vector<std::string> splitAtCommas(std::string_view list);

/// The names of a class's fields, in the order of its table.
std::vector<std::string> fieldNames(const mxservice::RecordType& type);

/// What the record is called; empty where its class has no name.
std::string nameOf(const mxservice::IData& record);

/// Appends a cell of a CSV line, quoted where RFC 4180 asks for it.
void appendCsvCell(std::string& out, std::string_view text);

}  // namespace inscenter
