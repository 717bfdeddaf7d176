#include "tools/inscenter/CsvRecordReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <new>

#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;

// Without these the library makes a guess at stray quotation marks, and takes a quotation that is still open at the
// end.
constexpr unsigned char kParserOptions = CSV_STRICT | CSV_STRICT_FINI;

void addCell(void* cell, std::size_t size, void* cells) {
    const auto* const text = static_cast<const char*>(cell);
    static_cast<std::vector<std::string>*>(cells)->emplace_back(text == nullptr ? "" : text, size);
}

/// Blanks at the ends of a cell belong to its text.
int isBlank(unsigned char /*character*/) {
    return 0;
}

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

CsvRecordReader::CsvRecordReader(const mxservice::RecordType& type) : type_(type), components_(type) {
    if (csv_init(&parser_, kParserOptions) != 0) {
        throw std::bad_alloc();
    }
    csv_set_space_func(&parser_, isBlank);
}

CsvRecordReader::~CsvRecordReader() {
    csv_free(&parser_);
}

bool CsvRecordReader::readHeader(std::string_view line, FileNotes& notes, LineError& error) {
    if (!split(line, error)) {
        return false;
    }
    columns_.clear();
    for (const std::string& name : cells_) {
        const Field* const field = type_.find(name);
        if (field == nullptr) {
            notes.addUnknownKey(name);
        } else if (std::find(columns_.begin(), columns_.end(), field) != columns_.end()) {
            return refuse(error, name, "column occurs twice");
        }
        columns_.push_back(field);  // a null for an unknown one keeps cells and columns in step
    }
    const bool known =
        std::any_of(columns_.begin(), columns_.end(), [](const Field* field) { return field != nullptr; });
    return known || refuse(error, "", "the first line names no field");
}

bool CsvRecordReader::readLine(std::string_view line, IData& record, FileNotes& notes, LineError& error) {
    if (!split(line, error)) {
        return false;
    }
    if (cells_.size() != columns_.size()) {
        return refuse(error, "", fmt::format("{} cells under {} columns", cells_.size(), columns_.size()));
    }
    for (std::size_t i = 0; i < cells_.size(); ++i) {
        if (columns_[i] != nullptr && !cells_[i].empty() && !readCell(*columns_[i], cells_[i], record, notes, error)) {
            return false;
        }
    }
    return true;
}

bool CsvRecordReader::split(std::string_view line, LineError& error) {
    cells_.clear();
    if (line.find('\0') != std::string_view::npos) {
        return refuse(error, "", "NUL byte");
    }
    if (!isUtf8(line)) {
        return refuse(error, "", "not UTF-8");
    }
    // One line at a time: a quotation that is not closed costs its own line, and not all up to the next mark.
    const std::size_t taken = csv_parse(&parser_, line.data(), line.size(), addCell, nullptr, &cells_);
    if (taken == line.size() && csv_fini(&parser_, addCell, nullptr, &cells_) == 0) {
        return true;
    }
    // This one stands where it failed, within a cell or a row: the next line gets another.
    csv_free(&parser_);
    csv_init(&parser_, kParserOptions);
    csv_set_space_func(&parser_, isBlank);
    return refuse(error, "", "not valid CSV: a quotation mark is not closed or stands where none may");
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

}  // namespace inscenter
