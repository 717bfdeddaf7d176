#include "tools/inscenter/SqlTables.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <type_traits>

#include "platform/record/Records.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/Output.h"

namespace inscenter {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using Rows = SqlTable::Rows;
using Kind = SqlTable::Column::Kind;

constexpr const char* kKey = "key";
constexpr const char* kFund = "fund";

const char* typeOf(const SqlTable::Column& column) {
    if (column.kind != Kind::Field || column.field->kind() == FieldKind::Text) {
        return "TEXT";
    }
    return column.field->kind() == FieldKind::Double ? "REAL" : "INTEGER";
}

const std::string& textIn(const char* field, const mxservice::IData& record) {
    return record.recordType().find(field)->in<std::string>(record);
}

/// Runs what may not throw into the library.
template <class Work>
int guarded(const Work& work) {
    try {
        work();
    } catch (const std::bad_alloc&) {
        return SQLITE_NOMEM;
    } catch (const std::exception&) {
        return SQLITE_ERROR;
    }
    return SQLITE_OK;
}

// The library's view of a table: structures that begin with its own, and functions that it calls.

struct TableView : sqlite3_vtab {
    SqlTable* table = nullptr;
};

struct Cursor : sqlite3_vtab_cursor {
    SqlTable* table = nullptr;
    const SqlTable::Index::value_type* found = nullptr;  ///< null: every row
    std::size_t at = 0;
    std::size_t end = 0;

    std::size_t row() const { return found == nullptr ? at : found[at].second; }
};

Cursor& cursorOf(sqlite3_vtab_cursor* cursor) {
    return *static_cast<Cursor*>(cursor);
}

int connect(sqlite3* connection, void* tables, int /*count*/, const char* const* words, sqlite3_vtab** made,
            char** error) {
    auto& known = *static_cast<std::vector<SqlTable>*>(tables);
    return guarded([&] {
        // The library calls it with the names that addTables has given.
        auto view = std::make_unique<TableView>();
        view->table =
            &*std::find_if(known.begin(), known.end(), [&](const SqlTable& t) { return t.name() == words[2]; });
        const std::string statement = fmt::format("create table t({})", view->table->definition());
        if (sqlite3_declare_vtab(connection, statement.c_str()) != SQLITE_OK) {
            *error = sqlite3_mprintf("%s", sqlite3_errmsg(connection));
            throw std::runtime_error("refused");
        }
        *made = view.release();
    });
}

int disconnect(sqlite3_vtab* view) {
    delete static_cast<TableView*>(view);
    return SQLITE_OK;
}

/// Rows that a value of the column may lead to: a guess that puts keys before codes and codes before markets.
double rowsBehind(const SqlTable& table, const SqlTable::Column& column) {
    const auto all = static_cast<double>(table.size());
    return column.kind == Kind::Key ? 1 : column.name == "market" || column.kind == Kind::Filed ? all / 20 + 4 : 4;
}

int chooseIndex(sqlite3_vtab* view, sqlite3_index_info* plan) {
    const SqlTable& table = *static_cast<TableView*>(view)->table;
    double rows = static_cast<double>(table.size());
    for (int i = 0; i < plan->nConstraint; ++i) {
        const auto& constraint = plan->aConstraint[i];
        if (constraint.usable == 0 || constraint.op != SQLITE_INDEX_CONSTRAINT_EQ || constraint.iColumn < 0) {
            continue;
        }
        const SqlTable::Column& column = table.columns()[static_cast<std::size_t>(constraint.iColumn)];
        // Hashes know no other order and no other letters for equal than those of the bytes. Of "in" the library would
        // look at the rows again as if numbers were texts; without an index it looks rightly.
        if (!column.indexed || sqlite3_stricmp(sqlite3_vtab_collation(plan, i), "BINARY") != 0 ||
            sqlite3_vtab_in(plan, i, -1) != 0) {
            continue;
        }
        // One index at most: a second would narrow down rows that are few already.
        if (plan->idxNum == 0 || rowsBehind(table, column) < rows) {
            rows = std::min(rows, rowsBehind(table, column));
            for (int j = 0; j < plan->nConstraint; ++j) {
                plan->aConstraintUsage[j].argvIndex = 0;
            }
            plan->aConstraintUsage[i].argvIndex = 1;  // the library looks at each row again: two texts may share a hash
            plan->idxNum = constraint.iColumn + 1;
            plan->idxStr = const_cast<char*>(column.name.c_str());  // shown by "explain query plan", never written to
        }
    }
    // What matters is the order of magnitude: in a join the table that is asked by key belongs inside.
    plan->estimatedRows = static_cast<sqlite3_int64>(rows);
    plan->estimatedCost = rows + 1;
    return SQLITE_OK;
}

int open(sqlite3_vtab* view, sqlite3_vtab_cursor** made) {
    return guarded([&] {
        auto cursor = std::make_unique<Cursor>();
        cursor->table = static_cast<TableView*>(view)->table;
        *made = cursor.release();
    });
}

int close(sqlite3_vtab_cursor* cursor) {
    delete static_cast<Cursor*>(cursor);
    return SQLITE_OK;
}

int begin(sqlite3_vtab_cursor* raw, int index, const char* /*name*/, int /*count*/, sqlite3_value** values) {
    Cursor& cursor = cursorOf(raw);
    cursor.found = nullptr;
    cursor.at = 0;
    cursor.end = index == 0 ? cursor.table->size() : 0;
    if (index == 0 || sqlite3_value_type(values[0]) == SQLITE_NULL) {
        return SQLITE_OK;  // nothing is equal to what is unknown
    }
    if (sqlite3_value_type(values[0]) != SQLITE_TEXT) {
        cursor.end = cursor.table->size();  // "01" may be equal to a number: the library looks at each row
        return SQLITE_OK;
    }
    return guarded([&] {
        const SqlTable::Index& entries = cursor.table->indexOf(static_cast<std::size_t>(index - 1));
        const auto* const bytes = reinterpret_cast<const char*>(sqlite3_value_text(values[0]));
        if (bytes == nullptr) {
            throw std::bad_alloc();
        }
        const std::uint64_t hash =
            utils::hash(std::string(bytes, static_cast<std::size_t>(sqlite3_value_bytes(values[0]))));
        const auto first = std::lower_bound(entries.begin(), entries.end(), SqlTable::Index::value_type(hash, 0));
        cursor.found = entries.data();
        cursor.at = cursor.end = static_cast<std::size_t>(first - entries.begin());
        while (cursor.end < entries.size() && entries[cursor.end].first == hash) {
            ++cursor.end;
        }
    });
}

int next(sqlite3_vtab_cursor* cursor) {
    ++cursorOf(cursor).at;
    return SQLITE_OK;
}

int atEnd(sqlite3_vtab_cursor* cursor) {
    return cursorOf(cursor).at == cursorOf(cursor).end ? 1 : 0;
}

int answerColumn(sqlite3_vtab_cursor* raw, sqlite3_context* answer, int number) {
    const Cursor& cursor = cursorOf(raw);
    const SqlTable::Column& column = cursor.table->columns()[static_cast<std::size_t>(number)];
    if (column.kind != Kind::Field) {
        return guarded([&] {
            const std::string text = cursor.table->madeText(cursor.row(), column);
            sqlite3_result_text64(answer, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
        });
    }
    mxservice::visitField(*column.field, cursor.table->row(cursor.row()), [&](const auto& member) {
        using Member = std::decay_t<decltype(member)>;
        if constexpr (std::is_same_v<Member, std::string>) {
            // The record outlives the statement: no copy.
            sqlite3_result_text64(answer, member.data(), member.size(), SQLITE_STATIC, SQLITE_UTF8);
        } else if constexpr (std::is_floating_point_v<Member>) {
            sqlite3_result_double(answer, member);
        } else if constexpr (std::is_integral_v<Member>) {
            sqlite3_result_int64(answer, member);
        } else {
            sqlite3_result_int64(answer, static_cast<sqlite3_int64>(member.size()));
        }
    });
    return SQLITE_OK;
}

int answerRow(sqlite3_vtab_cursor* cursor, sqlite3_int64* row) {
    *row = static_cast<sqlite3_int64>(cursorOf(cursor).row());
    return SQLITE_OK;
}

sqlite3_module makeModule() {
    sqlite3_module module{};
    // The same functions twice: nothing is made or destroyed with a table, whose records are there before and after.
    module.xCreate = connect;
    module.xConnect = connect;
    module.xBestIndex = chooseIndex;
    module.xDisconnect = disconnect;
    module.xDestroy = disconnect;
    module.xOpen = open;
    module.xClose = close;
    module.xFilter = begin;
    module.xNext = next;
    module.xEof = atEnd;
    module.xColumn = answerColumn;
    module.xRowid = answerRow;
    return module;  // and nothing that writes
}

}  // namespace

SqlTable::SqlTable(std::string name, const mxservice::RecordType& type, Rows rows, Rows funds)
    : name_(std::move(name)), rows_(std::move(rows)), funds_(std::move(funds)) {
    if (&type == &mxservice::CETFComponentStockInfo::table()) {
        columns_.push_back({kFund, Kind::Fund, nullptr, true});
    }
    columns_.push_back({kKey, Kind::Key, nullptr, true});
    for (const Field& field : type.fields()) {
        const bool indexed = field.kind() == FieldKind::Text && isIdentifier(field.name());
        columns_.push_back({field.name(), Kind::Field, &field, indexed});
    }
    if (type.find("platformCode") != nullptr && type.find(kFiledField) == nullptr) {  // instruments and fund plans
        columns_.push_back({kFiledField, Kind::Filed, nullptr, true});
    }
    indexes_.resize(columns_.size());
}

std::string SqlTable::definition() const {
    std::string columns;
    for (const Column& column : columns_) {
        columns += fmt::format("{}{} {}", columns.empty() ? "" : ", ", quotedName(column.name), typeOf(column));
    }
    return columns;
}

std::string SqlTable::madeText(std::size_t row, const Column& column) const {
    return column.kind == Kind::Filed  ? filedMarket(textIn("market", *rows_[row]))
           : column.kind == Kind::Fund ? funds_[row]->getKey()
           : funds_.empty()            ? rows_[row]->getKey()
                            // A component's own key is its code alone; with the market it leads to the instrument.
                            : utils::ovStockKey(textIn("market", *rows_[row]), rows_[row]->getKey());
}

/// Hashes with row numbers: 16 bytes a row, sorted without a look at the records, where texts would be fetched and
/// compared letter by letter.
const SqlTable::Index& SqlTable::indexOf(std::size_t number) {
    Index& index = indexes_[number];
    if (index.empty()) {
        const Column& column = columns_[number];
        Index made(rows_.size());
        for (std::uint32_t row = 0; row < made.size(); ++row) {
            const std::uint64_t hash = column.field == nullptr
                                           ? utils::hash(madeText(row, column))
                                           : utils::hash(column.field->in<std::string>(*rows_[row]));
            made[row] = {hash, row};
        }
        std::sort(made.begin(), made.end());
        index = std::move(made);
    }
    return index;
}

std::vector<SqlTable> tablesOf(const Snapshot& day) {
    std::vector<SqlTable> tables;
    tables.reserve(kCatalogues + 1);
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        tables.emplace_back(catalogueName(catalogue), mxservice::catalogueType(catalogue), day.records(catalogue));
    }
    Rows components;
    Rows funds;
    for (const auto& fund : day.etfs) {
        for (const auto& [code, component] : fund->components) {
            if (component) {
                components.push_back(component);
                funds.push_back(fund);
            }
        }
    }
    tables.emplace_back("components", mxservice::CETFComponentStockInfo::table(), std::move(components),
                        std::move(funds));
    return tables;
}

int addTables(sqlite3& connection, const char* schema, std::vector<SqlTable>& tables) {
    static const sqlite3_module kModule = makeModule();
    int code = sqlite3_create_module_v2(&connection, schema, &kModule, &tables, nullptr);
    for (auto table = tables.begin(); code == SQLITE_OK && table != tables.end(); ++table) {
        const std::string statement =
            fmt::format("create virtual table {0}.{1} using {0}", quotedName(schema), quotedName(table->name()));
        code = sqlite3_exec(&connection, statement.c_str(), nullptr, nullptr, nullptr);
    }
    return code;
}

std::string quotedName(const std::string& name) {
    return '"' + name + '"';  // no name of ours holds a quote
}

}  // namespace inscenter
