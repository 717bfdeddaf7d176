#include "tools/inscenter/Output.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <ostream>
#include <system_error>
#include <type_traits>

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
constexpr std::size_t kListFields = 9;  // of the usual ones; --fields names others
constexpr std::size_t kLeastText = 12;  // in lists of records, of which any field can be asked for by its name

/// What a list of instruments shows, where any record of the list has it; other classes show their first fields. First
/// come those that lead to a record, since no more than kListFields are shown.
constexpr std::array kInstrumentColumns{
    kFiledField,  "market",         "code",           "name",        "productId",        "listingDate",
    "expireDate", "optionType",     "underlyingCode", "strikePrice", "mainContractFlag", "combinedConnectFlags",
    "priceTick",  "volumeMultiple", "lotSize",        "planType"};

std::vector<const Field*> allFields(const RecordType& type) {
    std::vector<const Field*> fields;
    for (const Field& field : type.fields()) {
        fields.push_back(&field);
    }
    return fields;
}

std::vector<const Field*> candidates(const RecordType& type) {
    std::vector<const Field*> fields;
    // By a field, not by the class: fund plans and filed instruments have an instrument's fields, too.
    if (type.find("platformCode") != nullptr) {
        for (const char* const name : kInstrumentColumns) {
            if (const Field* const field = type.find(name)) {
                fields.push_back(field);
            }
        }
        return fields;
    }
    return allFields(type);
}

bool isNumber(const Cell& cell) {
    return std::holds_alternative<std::int64_t>(cell) || std::holds_alternative<double>(cell);
}

/// A cell as people read it: a basket as the number of its components.
std::string shownCell(const Cell& cell) {
    const auto* const basket = std::get_if<Basket>(&cell);
    return basket != nullptr ? std::to_string((*basket)->size()) : printable(cellText(cell, ", "));
}

/// A field as lists show it: texts of which a part is of use are cut.
Cell listedCell(const Field& field, const IData& record) {
    if (field.isDefault(record)) {
        return {};
    }
    Cell cell = cellOf(field, record);
    // Names may be as long as a file likes; one such line must not push the columns of all others off the screen.
    const bool cut = std::holds_alternative<std::string>(cell) && !isIdentifier(field.name());
    return cut ? Cell(cutText(shownCell(cell), Output::kMaxColumns)) : cell;
}

}  // namespace

// By name, for tables that are made of no record have the same columns; "sql" makes an index for each of these.
bool isIdentifier(std::string_view column) {
    constexpr std::array<std::string_view, 25> kIdentifiers{
        kFiledField,      "market",       "code",    "key",      "keyText",
        "platformCode",   "productId",    "product", "isin",     "underlyingMarket",
        "underlyingCode", "exchid",       "etfcode", "prcode",   "bondCode",
        "shanghaiCode",   "shenzhenCode", "id",      "firstLeg", "secondLeg",
        "database",       "fund",         "rule",    "number",   "hex"};
    return std::find(kIdentifiers.begin(), kIdentifiers.end(), column) != kIdentifiers.end();
}

Cell cellOf(const Field& field, const IData& record) {
    return mxservice::visitField(field, record, [](const auto& member) -> Cell {
        using Member = std::decay_t<decltype(member)>;
        if constexpr (std::is_same_v<Member, mxservice::ComponentMap>) {
            return &member;
        } else if constexpr (std::is_integral_v<Member>) {
            return static_cast<std::int64_t>(member);
        } else {
            return member;
        }
    });
}

std::string cellText(const Cell& cell, std::string_view separator) {
    if (const auto* const text = std::get_if<std::string>(&cell)) {
        return *text;
    }
    if (const auto* const list = std::get_if<std::vector<std::string>>(&cell)) {
        return fmt::format("{}", fmt::join(*list, separator));
    }
    // Numbers and baskets look as they do in JSON, so that a column can be compared with a member.
    std::string text;
    if (!std::holds_alternative<std::monostate>(cell)) {
        appendJsonCell(text, cell);
    }
    return text;
}

void appendJsonCell(std::string& out, const Cell& cell) {
    if (const auto* const text = std::get_if<std::string>(&cell)) {
        appendJsonString(out, *text);
    } else if (const auto* const whole = std::get_if<std::int64_t>(&cell)) {
        out += std::to_string(*whole);
    } else if (const auto* const number = std::get_if<double>(&cell)) {
        appendNumber(out, *number);
    } else if (const auto* const basket = std::get_if<Basket>(&cell)) {
        appendJson(out, **basket);
    } else if (const auto* const list = std::get_if<std::vector<std::string>>(&cell)) {
        appendJsonArray(out, *list, [&](const std::string& item) { appendJsonString(out, item); });
    } else {
        out += "null";
    }
}

void requireWritten(const std::ofstream& file, const std::string& name) {
    // A stream keeps no reason of its own: callers clear errno before they open the file.
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

// Also while an exception passes: the rows before a fault are an answer, and the message about it comes after them.
Output::~Output() {
    // Where that fails the stream remembers it, and whoever owns the stream asks it: a destructor cannot tell.
    flush();
}

void Output::flush() {
    out_ << text_;
    out_.flush();
    text_.clear();
}

void Output::lineDone() {
    if (Interruption::happened()) {
        text_.clear();  // whoever stops an answer wants no more of it
        throw Interrupted();
    }
    // Line by line would be a system call each, all at once the memory of the whole answer.
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
    text_ += "\r\n";  // as RFC 4180 has it
    lineDone();
}

void Output::records(const RecordType& type, const std::vector<RecordPtr>& records, std::string_view nothing,
                     const Fields& fields) {
    // Programs get whole records: which columns tell most is a question of the screen.
    if (format_ != Format::Table && fields.empty()) {
        details(type, records);
    } else if (format_ != Format::Table || !records.empty()) {
        // Also without a record: CSV has its header still, so that no program takes an empty answer for a failed one.
        recordRows(records, fields.empty() ? usualFields(records) : fields);
    } else if (!nothing.empty()) {
        note(nothing);
    }
}

void Output::recordRows(const std::vector<RecordPtr>& records, const Fields& fields) {
    Rows rows;
    for (const Field* const field : fields) {
        rows.columns.push_back({field->name(), field->kind() != FieldKind::Text, isIdentifier(field->name())});
    }
    rows.count = records.size();
    // A field at its default says nothing, but who asks for a field by its name finds it in every line of JSON.
    rows.cell = [&](std::size_t row, std::size_t column) {
        const Field& field = *fields[column];
        const IData& record = *records[row];
        return format_ == Format::Table                            ? listedCell(field, record)
               : format_ == Format::Csv && field.isDefault(record) ? Cell()
                                                                   : cellOf(field, record);
    };
    rows.leastText = kLeastText;
    write(rows);
}

void Output::write(const Rows& rows) {
    if (format_ == Format::Table) {
        textTable(rows);
        return;
    }
    std::vector<std::string> columns;
    for (const TextTable::Column& column : rows.columns) {
        columns.push_back(column.title);
    }
    head(columns);
    std::vector<Cell> cells(columns.size());
    for (std::size_t row = 0; row < rows.count; ++row) {
        for (std::size_t i = 0; i < columns.size(); ++i) {
            cells[i] = rows.cell(row, i);
        }
        this->row(columns, cells);
    }
}

void Output::head(const std::vector<std::string>& columns) {
    if (format_ == Format::Csv) {
        csvLine(columns);
    }
}

void Output::row(const std::vector<std::string>& columns, const std::vector<Cell>& cells) {
    if (format_ == Format::Csv) {
        std::vector<std::string> texts;
        // Blanks between the texts of a list: commas would have to be quoted.
        std::transform(cells.begin(), cells.end(), std::back_inserter(texts),
                       [](const Cell& cell) { return cellText(cell, " "); });
        csvLine(texts);
        return;
    }
    for (std::size_t i = 0; i < columns.size(); ++i) {
        text_ += i == 0 ? '{' : ',';
        appendJsonString(text_, columns[i]);
        appendJsonCell(text_ += ':', cells[i]);
    }
    line("}");
}

void Output::textTable(const Rows& rows) {
    TextTable table{rows.columns, rows.count,
                    [&](std::size_t row, std::size_t column) { return shownCell(rows.cell(row, column)); }, rows.tone,
                    rows.leastText};
    const std::vector<std::string> missing = table.append(text_, screen_, [this] { lineDone(); });
    first_ = false;
    if (!missing.empty()) {
        note(fmt::format("(no room for: {})", fmt::join(missing, ", ")));
    }
}

void Output::details(const RecordType& type, const std::vector<RecordPtr>& records) {
    // A header names the columns once for all lines, so every field has its own, whatever the records hold.
    if (format_ == Format::Csv) {
        recordRows(records, allFields(type));
        return;
    }
    for (const RecordPtr& record : records) {
        if (format_ == Format::Json) {
            appendJson(text_, *record);
            line("");
            continue;
        }
        std::vector<std::pair<std::string, std::string>> lines;
        for (const Field& field : record->recordType().fields()) {
            if (!field.isDefault(*record)) {
                lines.emplace_back(field.name(), shownCell(cellOf(field, *record)));
            }
        }
        block(lines);
    }
}

void Output::block(const std::vector<std::pair<std::string, std::string>>& lines) {
    text_ += first_ ? "" : "\n";
    first_ = false;
    std::size_t width = 0;
    for (const auto& [name, value] : lines) {
        width = std::max(width, name.size());  // names of fields are ASCII: bytes are columns
    }
    for (const auto& [name, value] : lines) {
        appendPadded(text_, name, width, false);
        text_ += "  " + value + '\n';
    }
    lineDone();
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
    }
}

void Output::table(const Table& table, std::string_view nothing) {
    if (format_ == Format::Table && table.rows.empty()) {
        note(nothing);
        return;
    }
    Rows rows;
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
        // One number makes a column of numbers: the cells without a value say nothing about it.
        const bool numbers =
            std::any_of(table.rows.begin(), table.rows.end(), [i](const auto& row) { return isNumber(row[i]); });
        rows.columns.push_back({table.columns[i], numbers, isIdentifier(table.columns[i])});
    }
    rows.count = table.rows.size();
    rows.cell = [&](std::size_t row, std::size_t column) { return table.rows[row][column]; };
    if (!table.tones.empty()) {
        rows.tone = [&](std::size_t row) { return table.tones[row]; };
    }
    write(rows);
}

}  // namespace inscenter
