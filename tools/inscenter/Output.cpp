#include "tools/inscenter/Output.h"

#include <algorithm>
#include <array>
#include <ostream>

#include "platform/record/Records.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
using mxservice::RecordType;

constexpr std::size_t kFlushBytes = std::size_t{1} << 16U;
constexpr std::size_t kListFields = 9;
constexpr std::string_view kColumnGap = "  ";

/// What a list of instruments shows, where any record of the list has it; other classes show their first fields.
constexpr std::array kInstrumentColumns{
    "market",         "code",           "name",        "productId",        "listingDate",          "expireDate",
    "optionType",     "underlyingCode", "strikePrice", "mainContractFlag", "combinedConnectFlags", "priceTick",
    "volumeMultiple", "lotSize",        "planType"};

std::vector<const Field*> candidates(const RecordType& type) {
    std::vector<const Field*> fields;
    if (type.find("platformCode") != nullptr) {
        for (const char* const name : kInstrumentColumns) {
            if (const Field* const field = type.find(name)) {
                fields.push_back(field);
            }
        }
        return fields;
    }
    for (const Field& field : type.fields()) {
        fields.push_back(&field);
    }
    return fields;
}

/// The fields that a table of these records shows: those that any of them has, no more than fit a screen.
std::vector<const Field*> columnsOf(const std::vector<RecordPtr>& records) {
    std::vector<const Field*> columns;
    for (const Field* const field : candidates(records.front()->recordType())) {
        const auto given = [&](const RecordPtr& record) { return !field->isDefault(*record); };
        if (columns.size() < kListFields && std::any_of(records.begin(), records.end(), given)) {
            columns.push_back(field);
        }
    }
    return columns;
}

bool isNumber(const Field& field) {
    return field.kind() != FieldKind::Text;
}

/// A field as people read it: a basket as the number of its components.
std::string shownField(const Field& field, const IData& record) {
    std::string text;
    if (field.kind() == FieldKind::Components) {
        return std::to_string(field.in<mxservice::ComponentMap>(record).size());
    }
    appendField(text, field, record);
    return field.kind() == FieldKind::Text ? printable(text) : text;
}

/// Cut to Output::kMaxColumns, the last of them showing that something is missing.
std::string cut(const std::string& text) {
    if (displayWidth(text) <= Output::kMaxColumns) {
        return text;
    }
    std::string_view rest = text;
    std::string kept;
    std::size_t width = 0;
    for (;;) {
        const std::string_view next = rest.substr(0, decodeUtf8(rest).length);
        width += displayWidth(next);
        if (width >= Output::kMaxColumns) {
            return kept + "\xE2\x80\xA6";  // U+2026, the ellipsis
        }
        kept += next;
        rest.remove_prefix(next.size());
    }
}

std::string listedField(const Field& field, const IData& record) {
    return field.isDefault(record) ? std::string() : cut(shownField(field, record));
}

void appendAligned(std::string& out, std::string_view text, std::size_t width, bool right) {
    const std::size_t own = displayWidth(text);
    const std::string padding(width > own ? width - own : 0, ' ');
    out += right ? padding : std::string();
    out += text;
    out += right ? std::string() : padding;
    out += kColumnGap;
}

void endLine(std::string& out) {
    out.erase(out.find_last_not_of(' ') + 1);
    out += '\n';
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
    std::string all;
    for (const std::string& text : texts) {
        all += all.empty() ? std::string_view() : separator;
        all += text;
    }
    return all;
}

std::string cellText(const Cell& cell, std::string_view separator) {
    if (std::holds_alternative<std::monostate>(cell)) {
        return {};
    }
    if (const auto* const text = std::get_if<std::string>(&cell)) {
        return *text;
    }
    if (const auto* const whole = std::get_if<std::int64_t>(&cell)) {
        return std::to_string(*whole);
    }
    if (const auto* const list = std::get_if<std::vector<std::string>>(&cell)) {
        return joined(*list, separator);
    }
    std::string number;
    appendNumber(number, std::get<double>(cell));
    return number;
}

void appendJsonCell(std::string& out, const Cell& cell) {
    if (const auto* const text = std::get_if<std::string>(&cell)) {
        appendJsonString(out, *text);
    } else if (std::holds_alternative<std::monostate>(cell)) {
        out += "null";
    } else if (const auto* const list = std::get_if<std::vector<std::string>>(&cell)) {
        out += '[';
        const char* separator = "";
        for (const std::string& item : *list) {
            out += separator;
            appendJsonString(out, item);
            separator = ",";
        }
        out += ']';
    } else {
        out += cellText(cell, {});
    }
}

bool isNumber(const Cell& cell) {
    return std::holds_alternative<std::int64_t>(cell) || std::holds_alternative<double>(cell);
}

void appendTable(std::string& out, const Table& table) {
    std::vector<std::size_t> widths;
    for (const std::string& column : table.columns) {
        widths.push_back(displayWidth(column));
    }
    for (const auto& row : table.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], displayWidth(printable(cellText(row[i], ", "))));
        }
    }
    for (std::size_t i = 0; i < widths.size(); ++i) {
        const bool numbers =
            std::any_of(table.rows.begin(), table.rows.end(), [i](const auto& row) { return isNumber(row[i]); });
        appendAligned(out, table.columns[i], widths[i], numbers);
    }
    endLine(out);
    for (const auto& row : table.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            appendAligned(out, printable(cellText(row[i], ", ")), widths[i], isNumber(row[i]));
        }
        endLine(out);
    }
}

}  // namespace

Output::Output(std::ostream& out, Format format) : out_(out), format_(format) {}

Output::~Output() {
    out_ << text_;
    out_.flush();
}

void Output::flushIfLarge() {
    if (text_.size() >= kFlushBytes) {
        out_ << text_;
        text_.clear();
    }
}

void Output::note(std::string_view text) {
    if (format_ == Format::Table) {
        text_ += printable(text);
        text_ += '\n';
        first_ = false;
    }
}

void Output::line(std::string_view text) {
    text_ += text;
    text_ += '\n';
    first_ = false;
    flushIfLarge();
}

void Output::csvLine(const std::vector<std::string>& cells) {
    const char* separator = "";
    for (const std::string& cell : cells) {
        text_ += separator;
        appendCsvCell(text_, cell);
        separator = ",";
    }
    text_ += "\r\n";
    flushIfLarge();
}

void Output::records(const std::vector<RecordPtr>& records, std::string_view nothing) {
    if (records.empty()) {
        note(nothing);
        return;
    }
    if (format_ == Format::Table) {
        recordTable(records);
    } else {
        details(records);
    }
}

void Output::recordTable(const std::vector<RecordPtr>& records) {
    const std::vector<const Field*> columns = columnsOf(records);
    std::vector<std::size_t> widths;
    for (const Field* const field : columns) {
        std::size_t width = displayWidth(field->name());
        for (const RecordPtr& record : records) {
            width = std::max(width, displayWidth(listedField(*field, *record)));
        }
        widths.push_back(width);
        appendAligned(text_, field->name(), width, isNumber(*field));
    }
    endLine(text_);
    for (const RecordPtr& record : records) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            appendAligned(text_, listedField(*columns[i], *record), widths[i], isNumber(*columns[i]));
        }
        endLine(text_);
        flushIfLarge();
    }
    first_ = false;
}

void Output::details(const std::vector<RecordPtr>& records) {
    if (format_ == Format::Csv && !records.empty()) {
        std::vector<std::string> names;
        for (const Field& field : records.front()->recordType().fields()) {
            names.push_back(field.name());
        }
        csvLine(names);
    }
    for (const RecordPtr& record : records) {
        recordDetail(*record);
        flushIfLarge();
    }
}

void Output::recordDetail(const IData& record) {
    const std::vector<Field>& fields = record.recordType().fields();
    if (format_ == Format::Json) {
        appendJson(text_, record);
        text_ += '\n';
        return;
    }
    if (format_ == Format::Csv) {
        std::vector<std::string> cells(fields.size());
        for (std::size_t i = 0; i < fields.size(); ++i) {
            if (!fields[i].isDefault(record)) {
                appendField(cells[i], fields[i], record);
            }
        }
        csvLine(cells);
        return;
    }
    if (!first_) {
        text_ += '\n';
    }
    first_ = false;
    std::size_t width = 0;
    for (const Field& field : fields) {
        width = field.isDefault(record) ? width : std::max(width, field.name().size());
    }
    for (const Field& field : fields) {
        if (!field.isDefault(record)) {
            appendAligned(text_, field.name(), width, false);
            text_ += shownField(field, record);
            endLine(text_);
        }
    }
}

void Output::table(const Table& table, std::string_view nothing) {
    if (format_ == Format::Csv) {
        csvLine(table.columns);
        for (const auto& row : table.rows) {
            std::vector<std::string> cells;
            cells.reserve(row.size());
            for (const Cell& cell : row) {
                cells.push_back(cellText(cell, " "));
            }
            csvLine(cells);
        }
        return;
    }
    if (format_ == Format::Json) {
        for (const auto& row : table.rows) {
            for (std::size_t i = 0; i < row.size(); ++i) {
                text_ += i == 0 ? '{' : ',';
                appendJsonString(text_, table.columns[i]);
                text_ += ':';
                appendJsonCell(text_, row[i]);
            }
            text_ += "}\n";
            flushIfLarge();
        }
        return;
    }
    if (table.rows.empty()) {
        note(nothing);
        return;
    }
    appendTable(text_, table);
    first_ = false;
}

}  // namespace inscenter
