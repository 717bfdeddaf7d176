#include "tools/inscenter/Sql.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/utils/Calendar.h"
#include "system/FileReplacement.h"
#include "tools/inscenter/FoldedText.h"
#include "tools/inscenter/Interruption.h"
#include "tools/inscenter/NearNames.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

namespace fs = std::filesystem;

constexpr const char* kDay = "main";
constexpr const char* kOld = "old";
constexpr const char* kOnlyQuestions = "only questions are answered: a day is read and never changed";
constexpr int kStepsBetweenLooks = 10000;  // of the library's machine; some tenths of a millisecond

// A statement may take hours to its first row, and Ctrl-C is otherwise looked for between rows.
int interrupted(void* /*nothing*/) {
    return Interruption::happened() ? 1 : 0;
}

/// The text first, then its size: asking for the text may convert the value, and with it its length.
std::string_view valueText(sqlite3_value* value) {
    const auto* const bytes = reinterpret_cast<const char*>(sqlite3_value_text(value));
    return bytes == nullptr ? std::string_view()
                            : std::string_view(bytes, static_cast<std::size_t>(sqlite3_value_bytes(value)));
}

void holds(sqlite3_context* answer, int /*count*/, sqlite3_value** values) {
    try {
        const std::string text = foldedText(valueText(values[0]));
        sqlite3_result_int(answer, text.find(foldedText(valueText(values[1]))) != std::string::npos ? 1 : 0);
    } catch (const std::bad_alloc&) {
        sqlite3_result_error_nomem(answer);
    }
}

void today(sqlite3_context* answer, int /*count*/, sqlite3_value** /*values*/) {
    const std::string day = utils::today();  // eight letters, which take no memory of their own
    sqlite3_result_text64(answer, day.data(), day.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

/// Lets questions pass and nothing else: what a statement may do is asked while it is prepared, so one that writes is
/// refused before it begins.
int authorize(void* /*nothing*/, int action, const char* first, const char* second, const char* /*schema*/,
              const char* /*trigger*/) {
    constexpr std::array<const char*, 6> kPragmas{"table_info", "table_xinfo",   "table_list",
                                                  "index_list", "function_list", "database_list"};
    const auto is = [](const char* text, const char* name) {
        return text != nullptr && sqlite3_stricmp(text, name) == 0;
    };
    const bool question = action == SQLITE_SELECT || action == SQLITE_READ || action == SQLITE_RECURSIVE ||
                          // Asked when the library sets up a table of its own (json_each, pragma_table_info), which
                          // changes nothing; a statement that names the catalog is refused whatever stands here.
                          (action == SQLITE_UPDATE && is(first, "sqlite_master")) ||
                          (action == SQLITE_FUNCTION && !is(second, "load_extension")) ||
                          (action == SQLITE_PRAGMA && std::any_of(kPragmas.begin(), kPragmas.end(),
                                                                  [&](const char* name) { return is(first, name); }));
    return question ? SQLITE_OK : SQLITE_DENY;
}

void expectDone(sqlite3* connection, int code) {
    if (code == SQLITE_INTERRUPT) {
        throw Interrupted();
    }
    if (code != SQLITE_OK) {
        throw std::runtime_error(fmt::format("cannot be written: {}", sqlite3_errmsg(connection)));
    }
}

/// Over a connection of its own: what is given up half way would else leave its traces in the one that answers. As one
/// transaction, since each statement by itself would wait for the disk.
void writeTables(std::vector<SqlTable>& tables, const fs::path& file) {
    sqlite3* opened = nullptr;
    const int code = sqlite3_open(textOf(file).c_str(), &opened);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection(opened, sqlite3_close);
    expectDone(opened, code);
    sqlite3_progress_handler(opened, kStepsBetweenLooks, interrupted, nullptr);
    const auto execute = [&](const std::string& statement) {
        expectDone(opened, sqlite3_exec(opened, statement.c_str(), nullptr, nullptr, nullptr));
    };
    // Whoever is stopped over it loses a file that nobody has seen yet; so no journal.
    execute("pragma journal_mode = off; attach ':memory:' as day");
    expectDone(opened, addTables(*opened, "day", tables));
    execute("begin");
    for (const SqlTable& table : tables) {
        const std::string name = quotedName(table.name());
        execute(fmt::format("create table main.{}({})", name, table.definition()));
        execute(fmt::format("insert into main.{0} select * from day.{0}", name));
        for (const SqlTable::Column& column : table.columns()) {
            if (column.indexed && (column.name == "key" || column.name == "code" || column.name == "market")) {
                execute(fmt::format("create index main.\"{0}.{1}\" on {2}({1})", table.name(), column.name, name));
            }
        }
    }
    execute("commit");
}

/// Throws where the former file has a journal: the next reader would write what stands in it into the new one.
void expectNoJournal(const fs::path& file) {
    for (const char* const suffix : {"-wal", "-journal"}) {
        const fs::path journal = pathOf(textOf(file) + suffix);
        if (fs::exists(journal)) {
            throw std::runtime_error(
                fmt::format("cannot be written: {} belongs to the former database, which a program "
                            "has open or did not close",
                            textOf(journal)));
        }
    }
}

/// The message as people are helped by it, with the names that may have been meant.
std::string explained(const std::string& message, int code, const std::vector<std::string>& names) {
    if (code == SQLITE_AUTH || message == "not authorized") {  // of a pragma within a question it has no code
        return fmt::format("{} ({})", kOnlyQuestions, message);
    }
    const std::size_t colon = message.find(": ");
    if (colon == std::string::npos || !message.starts_with("no such ")) {
        return message;
    }
    const std::string wrong = message.substr(message.find_last_of(" .") + 1);
    return message + didYouMean(wrong, names);
}

}  // namespace

/// One of the statements of a text.
class Sql::Statement {
public:
    /// The one that begins there; `begin` is where the next does, then.
    Statement(Sql& sql, const std::string& text, std::size_t& begin) : sql_(sql), text_(text), begin_(begin) {
        const char* rest = nullptr;
        const int code = sqlite3_prepare_v2(sql.connection_.get(), text.data() + begin,
                                            static_cast<int>(text.size() - begin), &statement_, &rest);
        if (code != SQLITE_OK) {
            sql_.fail(text, begin);
        }
        begin = static_cast<std::size_t>(rest - text.data());
    }
    ~Statement() { sqlite3_finalize(statement_); }
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    /// Whether there was more than blanks and comments.
    bool any() const { return statement_ != nullptr; }

    std::vector<std::string> columns() const {
        std::vector<std::string> names;
        for (int i = 0; i < sqlite3_column_count(statement_); ++i) {
            const std::string given = sqlite3_column_name(statement_, i);
            std::string name = given;
            // Of two members with one name readers of JSON take one, and nobody would miss the other.
            for (int n = 2; std::find(names.begin(), names.end(), name) != names.end(); ++n) {
                name = fmt::format("{}_{}", given, n);
            }
            names.push_back(std::move(name));
        }
        return names;
    }

    bool next() {
        const int code = sqlite3_step(statement_);
        if (code == SQLITE_INTERRUPT) {  // no mistake of the statement's, see interrupted()
            throw Interrupted();
        }
        if (code != SQLITE_ROW && code != SQLITE_DONE) {
            sql_.fail(text_, begin_);
        }
        return code == SQLITE_ROW;
    }

    std::vector<Cell> row() const {
        const int columns = sqlite3_column_count(statement_);
        std::vector<Cell> cells;
        cells.reserve(static_cast<std::size_t>(columns));
        for (int i = 0; i < columns; ++i) {
            cells.push_back(cell(i));
        }
        return cells;
    }

    /// All rows.
    Table rest() {
        Table table{columns(), {}};
        while (next()) {
            table.rows.push_back(row());
        }
        return table;
    }

private:
    Cell cell(int column) const {
        switch (sqlite3_column_type(statement_, column)) {
            case SQLITE_NULL:
                return {};
            case SQLITE_INTEGER:
                return static_cast<std::int64_t>(sqlite3_column_int64(statement_, column));
            case SQLITE_FLOAT:
                return sqlite3_column_double(statement_, column);
            default:
                return std::string(valueText(sqlite3_column_value(statement_, column)));
        }
    }

    Sql& sql_;
    const std::string& text_;
    const std::size_t begin_;
    sqlite3_stmt* statement_ = nullptr;
};

void Sql::Close::operator()(sqlite3* connection) const {
    sqlite3_close_v2(connection);
}

Sql::Sql(Tables tables, Tables old) : tables_(std::move(tables)), oldTables_(std::move(old)) {
    sqlite3* opened = nullptr;
    int code = sqlite3_open(":memory:", &opened);
    connection_.reset(opened);  // also of a failure, which leaves a connection to be closed
    if (code == SQLITE_OK) {
        code = addTables(*opened, kDay, tables_);
    }
    if (code == SQLITE_OK && !oldTables_.empty()) {
        code = sqlite3_exec(opened, "attach ':memory:' as old", nullptr, nullptr, nullptr);
        code = code == SQLITE_OK ? addTables(*opened, kOld, oldTables_) : code;
    }
    if (code != SQLITE_OK) {
        throw std::bad_alloc();  // nothing else is in its way
    }
    // A name in double quotes that nothing has is a mistake and no text.
    sqlite3_db_config(opened, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
    sqlite3_create_function_v2(opened, "holds", 2, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, holds, nullptr, nullptr,
                               nullptr);
    sqlite3_create_function_v2(opened, "today", 0, SQLITE_UTF8, nullptr, today, nullptr, nullptr, nullptr);
    sqlite3_progress_handler(opened, kStepsBetweenLooks, interrupted, nullptr);
    sqlite3_set_authorizer(opened, authorize, nullptr);  // last: what stands above is no question
}

Sql::~Sql() = default;

void Sql::fail(const std::string& text, std::size_t begin) {
    const std::string message = sqlite3_errmsg(connection_.get());
    const int code = sqlite3_errcode(connection_.get());
    const int offset = sqlite3_error_offset(connection_.get());
    const std::string reason = explained(message, code, names());
    // Of a table that there is not the library tells the name and no place.
    const std::size_t place = offset >= 0 ? begin + static_cast<std::size_t>(offset)
                              : message.starts_with("no such table: ")
                                  ? text.find(message.substr(message.find(':') + 2), begin)
                                  : std::string::npos;
    if (place == std::string::npos) {
        throw SqlError(reason, "", 0);
    }
    const std::size_t at = std::min(place, text.size());
    const std::size_t line = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
    throw SqlError(reason, text.substr(line, text.find('\n', at) - line), at - line);
}

void Sql::answer(const std::string& statements, Output& output) {
    if (statements.find('\0') != std::string::npos) {  // the library takes it for the end
        throw SqlError("a statement holds a NUL character", "", 0);
    }
    for (std::size_t at = 0; at < statements.size();) {
        Statement statement(*this, statements, at);
        if (!statement.any()) {
            continue;
        }
        const std::vector<std::string> columns = statement.columns();
        if (columns.empty()) {  // what passes the authorizer because there is nothing that it could do
            throw SqlError(kOnlyQuestions, "", 0);
        }
        // Columns are as wide as their widest cell, so people wait for the last row; programs get each as it comes.
        if (output.format() == Format::Table) {
            output.table(statement.rest(), "no rows");
            continue;
        }
        output.head(columns);
        while (statement.next()) {
            output.row(columns, statement.row());
        }
    }
}

Table Sql::ask(const std::string& text) {
    std::size_t at = 0;
    return Statement(*this, text, at).rest();
}

void Sql::save(const std::string& file) {
    try {
        const sys::FileReplacement replacement(pathOf(file));
        writeTables(tables_, replacement.path());
        expectNoJournal(replacement.wanted());
        replacement.rename();
    } catch (const std::runtime_error& problem) {
        throw UnreadableInput(fmt::format("{}: {}", file, problem.what()));
    }
}

std::vector<std::string> Sql::names() const {
    std::vector<std::string> names;
    for (const SqlTable& table : tables_) {
        names.push_back(table.name());
        for (const SqlTable::Column& column : table.columns()) {
            names.push_back(column.name);
        }
    }
    for (const SqlTable& table : oldTables_) {
        names.push_back("old." + table.name());
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

bool Sql::isComplete(const std::string& text) {
    // What the library would not look at is refused as an answer, and waits for no end.
    return text.find('\0') != std::string::npos || sqlite3_complete(text.c_str()) != 0;
}

}  // namespace inscenter
