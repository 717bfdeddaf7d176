#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "tools/inscenter/TextTable.h"

namespace inscenter {

/// How answers are written: for people, as one JSON object a line, or as CSV with a header line.
enum class Format { Table, Json, Csv };

/// A basket of the record that it belongs to.
using Basket = const mxservice::ComponentMap*;

/// Nothing (null in JSON, an empty cell elsewhere), texts, numbers, lists of texts, and baskets: as JSON, to people as
/// the number of components.
using Cell = std::variant<std::monostate, std::string, std::int64_t, double, std::vector<std::string>, Basket>;

/// An answer that is not made of records.
struct Table {
    std::vector<std::string> columns;
    std::vector<std::vector<Cell>> rows;
    std::vector<Tone> tones = {};  ///< of the rows; empty: all plain
};

/// The field as a cell.
Cell cellOf(const mxservice::Field& field, const mxservice::IData& record);

/// Whether the texts of a column stand for something by every letter, so that a part of one is of no use.
bool isIdentifier(std::string_view column);

/// The cell as the text of a CSV cell, the texts of a list with `separator` between them.
std::string cellText(const Cell& cell, std::string_view separator);

/// Appends the cell as a JSON value.
void appendJsonCell(std::string& out, const Cell& cell);

/// Throws UnreadableInput, with the reason that errno holds, when writing the file has failed.
void requireWritten(const std::ofstream& file, const std::string& name);

using RecordPtr = boost::shared_ptr<mxservice::IData>;

/// Writes answers in one format. Tables are aligned by the columns that a terminal gives each character, and control
/// characters are shown in a harmless form; JSON and CSV hold whole texts. Throws Interrupted when an Interruption
/// happened meanwhile.
class Output {
public:
    Output(std::ostream& out, Format format, const Screen& screen = {});
    /// Writes what is left.
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    Format format() const { return format_; }

    /// A remark for people; left out of JSON and CSV.
    void note(std::string_view text);
    /// The title of what follows, for people alike, with an empty line before it unless it is the first.
    void heading(std::string_view text);

    /// Records of one class: a line each, in tables with the columns that tell most and texts, but not codes and keys,
    /// cut to kMaxColumns. `nothing` is what a table says instead when there is no record. With `fields`, those and no
    /// others, in JSON also where they are at their default.
    void records(const mxservice::RecordType& type, const std::vector<RecordPtr>& records, std::string_view nothing,
                 const std::vector<const mxservice::Field*>& fields = {});

    /// Every field of a few records of one class that is not at its default, in tables one field a line.
    void details(const mxservice::RecordType& type, const std::vector<RecordPtr>& records);

    void table(const Table& table, std::string_view nothing);
    /// The same, but in tables one column a line, as details() does.
    void blocks(const Table& table);

    /// For programs, answers whose rows come one by one: what stands before the first row, then each.
    void head(const std::vector<std::string>& columns);
    void row(const std::vector<std::string>& columns, const std::vector<Cell>& cells);

    /// A line as it stands, for answers that are JSON already.
    void line(std::string_view text);
    /// A line of CSV, for answers too long to be one table.
    void csvLine(const std::vector<std::string>& cells);

    /// Writes what is there so far, for answers that go on until somebody has seen enough.
    void flush();

    /// The fields that a table of these records shows: those that any of them has, no more than fit a screen.
    static std::vector<const mxservice::Field*> usualFields(const std::vector<RecordPtr>& records);

    /// Texts in lists of records are cut to so many columns.
    static constexpr std::size_t kMaxColumns = 40;

private:
    using Fields = std::vector<const mxservice::Field*>;
    static constexpr std::size_t kUsualLeastText = 8;

    /// An answer that is asked for cell by cell, so that no long list is there twice.
    struct Rows {
        std::vector<TextTable::Column> columns;
        std::size_t count = 0;
        std::function<Cell(std::size_t row, std::size_t column)> cell;
        std::function<Tone(std::size_t row)> tone;  ///< may be empty
        std::size_t leastText = kUsualLeastText;    ///< of a text, see TextTable
    };

    void recordRows(const std::vector<RecordPtr>& records, const Fields& fields);
    void write(const Rows& rows);
    void textTable(const Rows& rows);
    void block(const std::vector<std::pair<std::string, std::string>>& lines);
    void lineDone();
    /// The remark as lines of the screen.
    std::string onScreen(std::string_view text) const;

    std::ostream& out_;
    const Format format_;
    const Screen screen_;
    std::string text_;
    bool first_ = true;
};

}  // namespace inscenter
