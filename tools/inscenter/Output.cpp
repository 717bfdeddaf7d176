#include "tools/inscenter/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <ostream>
#include <system_error>

#include "platform/record/Records.h"
#include "tools/inscenter/Interruption.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
using mxservice::RecordType;

constexpr std::size_t kFlushBytes = std::size_t{1} << 16U;
constexpr std::size_t kListFields = 9;
constexpr std::size_t kLeastText = 12;  // in lists of records, of which any field can be asked for by its name

/// What a list of instruments shows, where any record of the list has it; other classes show their first fields.
constexpr std::array kInstrumentColumns{
    kFiledField,  "market",         "code",           "name",        "productId",        "listingDate",
    "expireDate", "optionType",     "underlyingCode", "strikePrice", "mainContractFlag", "combinedConnectFlags",
    "priceTick",  "volumeMultiple", "lotSize",        "planType"};

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

/// Whether the texts of a column stand for something by every letter, so that a part of one is of no use.
bool isIdentifier(std::string_view column) {
    constexpr std::array<std::string_view, 21> kIdentifiers{
        kFiledField,      "market",       "code",    "key",      "keyText",
        "platformCode",   "productId",    "product", "isin",     "underlyingMarket",
        "underlyingCode", "exchid",       "etfcode", "prcode",   "bondCode",
        "shanghaiCode",   "shenzhenCode", "id",      "firstLeg", "secondLeg",
        "database"};
    return std::find(kIdentifiers.begin(), kIdentifiers.end(), column) != kIdentifiers.end();
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

std::string listedField(const Field& field, const IData& record) {
    if (field.isDefault(record)) {
        return {};
    }
    std::string text = shownField(field, record);
    return isIdentifier(field.name()) ? text : cutText(text, Output::kMaxColumns);
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

bool isNumber(const Cell& cell) {
    return std::holds_alternative<std::int64_t>(cell) || std::holds_alternative<double>(cell);
}

std::string shownCell(const Cell& cell) {
    return printable(cellText(cell, ", "));
}

std::vector<const Field*> allFields(const IData& record) {
    std::vector<const Field*> fields;
    for (const Field& field : record.recordType().fields()) {
        fields.push_back(&field);
    }
    return fields;
}

}  // namespace

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

void requireWritten(const std::ofstream& file, const std::string& name) {
    if (!file) {
        throw UnreadableInput(fmt::format("{}: cannot be written: {}", name, std::generic_category().message(errno)));
    }
}

std::vector<const Field*> Output::usualFields(const std::vector<RecordPtr>& records) {
    std::vector<const Field*> columns;
    const RecordType& type = records.front()->recordType();
    for (const Field* const field : candidates(type)) {
        const auto given = [&](const RecordPtr& record) {
            // A market that only repeats the record's own tells nothing.
            return field->name() == kFiledField
                       ? field->in<std::string>(*record) != type.find("market")->in<std::string>(*record)
                       : !field->isDefault(*record);
        };
        if (columns.size() < kListFields && std::any_of(records.begin(), records.end(), given)) {
            columns.push_back(field);
        }
    }
    return columns;
}

Output::Output(std::ostream& out, Format format, const Screen& screen) : out_(out), format_(format), screen_(screen) {}

Output::~Output() {
    out_ << text_;
    out_.flush();
}

void Output::lineDone() {
    if (Interruption::happened()) {
        text_.clear();
        throw Interrupted();
    }
    if (text_.size() >= kFlushBytes) {
        out_ << text_;
        text_.clear();
    }
}

void Output::note(std::string_view text) {
    if (format_ == Format::Table) {
        text_ += onScreen(text);
        first_ = false;
    }
}

std::string Output::onScreen(std::string_view text) const {
    const std::string line = printable(text) + '\n';
    return screen_.columns == 0 ? line : wrapped(line, screen_.columns);
}

void Output::heading(std::string_view text) {
    if (format_ == Format::Table) {
        text_ += first_ ? "" : "\n";
        appendBold(text_, onScreen(text), screen_);
        first_ = false;
    }
}

void Output::line(std::string_view text) {
    text_ += text;
    text_ += '\n';
    first_ = false;
    lineDone();
}

void Output::csvLine(const std::vector<std::string>& cells) {
    const char* separator = "";
    for (const std::string& cell : cells) {
        text_ += separator;
        appendCsvCell(text_, cell);
        separator = ",";
    }
    text_ += "\r\n";
    lineDone();
}

void Output::records(const RecordType& type, const std::vector<RecordPtr>& records, std::string_view nothing,
                     const Fields& fields) {
    if (format_ == Format::Table) {
        if (records.empty()) {
            if (!nothing.empty()) {
                note(nothing);
            }
        } else {
            recordTable(records, fields.empty() ? usualFields(records) : fields);
        }
        return;
    }
    if (fields.empty()) {
        details(type, records);
        return;
    }
    if (format_ == Format::Csv) {
        std::vector<std::string> names;
        for (const Field* const field : fields) {
            names.push_back(field->name());
        }
        csvLine(names);
    }
    for (const RecordPtr& record : records) {
        recordLine(*record, fields);
    }
}

void Output::recordTable(const std::vector<RecordPtr>& records, const Fields& fields) {
    TextTable table;
    table.leastText = kLeastText;
    for (const Field* const field : fields) {
        table.columns.push_back({field->name(), isNumber(*field), isIdentifier(field->name())});
    }
    table.rows = records.size();
    table.cell = [&](std::size_t row, std::size_t column) { return listedField(*fields[column], *records[row]); };
    textTable(table);
}

void Output::textTable(const TextTable& table) {
    const std::vector<std::string> missing = table.append(text_, screen_, [this] { lineDone(); });
    first_ = false;
    if (!missing.empty()) {
        note("(no room for: " + joined(missing, ", ") + ")");
    }
}

void Output::recordLine(const IData& record, const Fields& fields) {
    if (format_ == Format::Csv) {
        csvRecord(record, fields);
        return;
    }
    char separator = '{';
    for (const Field* const field : fields) {
        text_ += separator;
        appendJsonString(text_, field->name());
        text_ += ':';
        appendJsonField(text_, *field, record);
        separator = ',';
    }
    text_ += "}\n";
    lineDone();
}

void Output::csvRecord(const IData& record, const Fields& fields) {
    std::vector<std::string> cells(fields.size());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!fields[i]->isDefault(record)) {
            appendField(cells[i], *fields[i], record);
        }
    }
    csvLine(cells);
}

void Output::details(const RecordType& type, const std::vector<RecordPtr>& records) {
    if (format_ == Format::Csv) {
        csvLine(fieldNames(type));
    }
    for (const RecordPtr& record : records) {
        recordDetail(*record);
        lineDone();
    }
}

void Output::recordDetail(const IData& record) {
    if (format_ == Format::Json) {
        appendJson(text_, record);
        text_ += '\n';
        return;
    }
    if (format_ == Format::Csv) {
        csvRecord(record, allFields(record));
        return;
    }
    std::vector<std::pair<std::string, std::string>> lines;
    for (const Field& field : record.recordType().fields()) {
        if (!field.isDefault(record)) {
            lines.emplace_back(field.name(), shownField(field, record));
        }
    }
    block(lines);
}

void Output::block(const std::vector<std::pair<std::string, std::string>>& lines) {
    text_ += first_ ? "" : "\n";
    first_ = false;
    std::size_t width = 0;
    for (const auto& [name, value] : lines) {
        width = std::max(width, name.size());
    }
    for (const auto& [name, value] : lines) {
        appendPadded(text_, name, width, false);
        text_ += "  " + value + '\n';
    }
}

void Output::blocks(const Table& table) {
    if (format_ != Format::Table) {
        this->table(table, "");
        return;
    }
    for (const auto& row : table.rows) {
        std::vector<std::pair<std::string, std::string>> lines;
        for (std::size_t i = 0; i < row.size(); ++i) {
            std::string value = shownCell(row[i]);
            if (!value.empty()) {
                lines.emplace_back(table.columns[i], std::move(value));
            }
        }
        block(lines);
        lineDone();
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
            lineDone();
        }
        return;
    }
    if (table.rows.empty()) {
        note(nothing);
        return;
    }
    TextTable text;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        const bool numbers =
            std::any_of(table.rows.begin(), table.rows.end(), [i](const auto& row) { return isNumber(row[i]); });
        text.columns.push_back({table.columns[i], numbers, isIdentifier(table.columns[i])});
    }
    text.rows = table.rows.size();
    text.cell = [&](std::size_t row, std::size_t column) { return shownCell(table.rows[row][column]); };
    if (!table.tones.empty()) {
        text.tone = [&](std::size_t row) { return table.tones[row]; };
    }
    textTable(text);
}

}  // namespace inscenter
