#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/inscenter/Output.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/SqlTables.h"

struct sqlite3;

namespace inscenter {

/// A statement that cannot be answered: what() says why.
class SqlError : public std::runtime_error {
public:
    SqlError(const std::string& reason, std::string wrongLine, std::size_t wrongByte)
        : runtime_error(reason), line(std::move(wrongLine)), at(wrongByte) {}

    std::string line;  ///< of the statement where it goes wrong; empty where nobody knows
    std::size_t at;    ///< the byte in it
};

/// A day as a database for questions in SQL: tables as in tablesOf, those of another day in the schema "old", and the
/// functions today() and holds(text, part), which takes no notice of case, full-width letters and blanks. Nothing
/// changes it. Not for several threads.
class Sql {
public:
    /// The records must not be changed meanwhile. `old` may be null.
    Sql(const Snapshot& day, const Snapshot* old) : Sql(tablesOf(day), old == nullptr ? Tables() : tablesOf(*old)) {}
    /// The same of any tables.
    using Tables = std::vector<SqlTable>;
    explicit Sql(Tables tables, Tables old = {});
    ~Sql();
    Sql(const Sql&) = delete;
    Sql& operator=(const Sql&) = delete;

    /// Answers the statements one after the other, rows as they are found; people get each answer whole. Throws
    /// SqlError; Interrupted when an Interruption happens.
    void answer(const std::string& statements, Output& output);
    /// What one statement answers. Throws the same.
    Table ask(const std::string& text);

    /// Writes the day's tables with their indexes into a database file, which is replaced once the new one is whole.
    /// Throws UnreadableInput when that fails, and where the former file has a journal; Interrupted as above.
    void save(const std::string& file);

    /// The tables of the day and their columns; "old." before those of the other day.
    std::vector<std::string> names() const;

    /// Whether the text ends with a statement that a semicolon closes, outside of texts and comments.
    static bool isComplete(const std::string& text);

private:
    class Statement;
    [[noreturn]] void fail(const std::string& text, std::size_t begin);

    Tables tables_;
    Tables oldTables_;
    struct Close {
        void operator()(sqlite3* connection) const;
    };
    std::unique_ptr<sqlite3, Close> connection_;
};

}  // namespace inscenter
