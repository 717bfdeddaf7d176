#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "snapshot/RecordText.h"

namespace inscenter {

using mxservice::appendCsvCell;
using mxservice::appendField;
using mxservice::appendJson;
using mxservice::appendJsonField;
using mxservice::appendJsonString;
using mxservice::appendNumber;

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

/// What stands between any of the separators, without empty parts.
std::vector<std::string> partsOf(std::string_view text, std::string_view separators = ",");

/// The names of a class's fields, in the order of its table.
std::vector<std::string> fieldNames(const mxservice::RecordType& type);

/// What the record is called; empty where its class has no name.
std::string nameOf(const mxservice::IData& record);

}  // namespace inscenter
