#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/record/RecordType.h"
#include "tools/inscenter/Snapshot.h"

struct sqlite3;

namespace inscenter {

/// The records of one class as a table of a database: nothing of them is copied. Its columns are what the records are
/// found by, then the fields of the class, texts, whole numbers and numbers as they stand in the records; a basket
/// counts as the number of its components. Those that say by every letter what they stand for have an index, made when
/// a statement first asks for it.
class SqlTable {
public:
    using Rows = std::vector<boost::shared_ptr<mxservice::IData>>;

    /// `funds`: of the components of funds, the one that each belongs to.
    SqlTable(std::string name, const mxservice::RecordType& type, Rows rows, Rows funds = {});

    struct Column {
        enum class Kind : std::uint8_t { Key, Filed, Fund, Field };
        std::string name;
        Kind kind;
        const mxservice::Field* field = nullptr;
        bool indexed = false;
    };
    /// Rows by the hash of their text in a column, in the order of the hashes.
    using Index = std::vector<std::pair<std::uint64_t, std::uint32_t>>;

    const std::string& name() const { return name_; }
    const std::vector<Column>& columns() const { return columns_; }
    std::size_t size() const { return rows_.size(); }
    const mxservice::IData& row(std::size_t row) const { return *rows_[row]; }

    /// The columns with their types, as a statement that makes the table has them between its brackets.
    std::string definition() const;
    /// A text that is made for the answer; of columns that are no fields.
    std::string madeText(std::size_t row, const Column& column) const;
    const Index& indexOf(std::size_t number);

private:
    std::string name_;
    Rows rows_;
    Rows funds_;
    std::vector<Column> columns_;
    std::vector<Index> indexes_;
};

/// Every catalogue of the day as a table of that name, and "components", those of all baskets. The records must not be
/// changed while there are tables of them.
std::vector<SqlTable> tablesOf(const Snapshot& day);

/// Puts the tables, which must live as long as the connection, into one of its databases. Answers a code of the
/// library.
int addTables(sqlite3& connection, const char* schema, std::vector<SqlTable>& tables);

/// The name as statements quote it.
std::string quotedName(const std::string& name);

}  // namespace inscenter
