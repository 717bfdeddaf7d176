#include "snapshot/CsvRecordReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "snapshot/FileNotes.h"

namespace mxservice::snapshot {
namespace {

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

/// Whether the whole text is one number that `value` can hold.
template <class Number>
std::errc parseWhole(std::string_view text, Number& value) {
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    return parsed.ec == std::errc() && parsed.ptr != end ? std::errc::invalid_argument : parsed.ec;
}

}  // namespace

bool readColumns(const CsvCells& names, const RecordType& type, CsvColumns& columns, FileNotes& notes,
                 LineError& error) {
    // By name and not by place: a column that was added or moved changes nothing.
    columns.clear();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const Field* const field = type.find(names[i]);
        if (field == nullptr) {
            notes.addUnknownKey(names[i]);
        } else if (std::find(columns.begin(), columns.end(), field) != columns.end()) {
            return refuse(error, field->name(), "column occurs twice");
        }
        columns.push_back(field);  // a null for an unknown one keeps cells and columns in step
    }
    const bool known = std::any_of(columns.begin(), columns.end(), [](const Field* field) { return field != nullptr; });
    return known || refuse(error, "", "the first line names no field");
}

bool CsvRecordReader::readCells(const CsvCells& cells, IData& record, FileNotes& notes, LineError& error) {
    // With one too few or too many, which cell belongs to which column is a guess.
    if (cells.size() != columns_.size()) {
        return refuse(error, "", fmt::format("{} cells under {} columns", cells.size(), columns_.size()));
    }
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (columns_[i] != nullptr && !cells[i].empty() && !readCell(*columns_[i], cells[i], record, notes, error)) {
            return false;
        }
    }
    return true;
}

bool CsvRecordReader::readCell(const Field& field, std::string_view cell, IData& record, FileNotes& notes,
                               LineError& error) {
    if (field.kind() == FieldKind::Text) {
        field.in<std::string>(record).assign(cell);
        return true;
    }
    if (field.kind() == FieldKind::Components) {
        return components_.readComponents(cell, field, record, notes, error);
    }
    const std::string_view text = trimmed(cell);  // around a number blanks say nothing, in a text they do
    std::int64_t whole = 0;
    // As a whole number first: a double does not hold all of 64 bits.
    if (field.kind() != FieldKind::Double && parseWhole(text, whole) == std::errc()) {
        return assignInteger(field, record, whole, error);
    }
    double number = 0;
    const std::errc failure = parseWhole(text, number);
    if (failure == std::errc::result_out_of_range) {
        return refuse(error, field.name(), "number out of range");
    }
    // "nan" and "inf" are numbers to the library, but not to a center.
    if (failure != std::errc() || !std::isfinite(number)) {
        return refuse(error, field.name(), "a number expected");
    }
    return assignNumber(field, record, number, notes, error);
}

}  // namespace mxservice::snapshot
