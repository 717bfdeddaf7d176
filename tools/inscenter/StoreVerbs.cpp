#include "tools/inscenter/StoreVerbs.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/bson/BSONObj.h"
#include "platform/record/RecordType.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/DocumentCheck.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/StoreDirectory.h"
#include "tools/inscenter/StoreReader.h"

namespace inscenter {
namespace {

using persist::StoreDatabase;
using persist::StoreStatus;

constexpr const char* kEmptyStore = "no databases: the store is empty";

StoreOutcome outcome(bool good) {
    return good ? StoreOutcome::Good : StoreOutcome::Bad;
}

/// The databases that the query names. Those set aside are read only where they are named: a center reads none of them,
/// and their damage would make every answer about the store a failure.
std::vector<DatabaseDirectory> asked(const StoreQuery& query) {
    return query.database.empty() ? directoriesOf(query.root) : std::vector{directoryOf(query.root, query.database)};
}

bool isRead(const DatabaseDirectory& directory, const StoreQuery& query) {
    return directory.kind != DirectoryKind::SetAside || !query.database.empty();
}

/// What one sweep over a database counts.
struct Measures {
    std::int64_t documents = 0;
    std::int64_t subDocuments = 0;
    std::size_t bytes = 0;
    std::size_t least = std::numeric_limits<std::size_t>::max();
    std::size_t most = 0;
    std::map<std::string, std::int64_t> countByClass;

    std::int64_t all() const { return documents + subDocuments; }

    void count(std::string_view key, std::string_view value) {
        ++(DocumentKey(key).isSub ? subDocuments : documents);
        bytes += value.size();
        least = std::min(least, value.size());
        most = std::max(most, value.size());
    }
};

Cell bytesCell(std::optional<std::uint64_t> bytes) {
    return bytes ? Cell(static_cast<std::int64_t>(*bytes)) : Cell();
}

Cell sizeCell(std::size_t size) {
    return static_cast<std::int64_t>(size);
}

std::string className(std::string_view bytes) {
    const auto record = mxservice::TypeManager::instance()->parse(bytes, nullptr);
    return record ? record->recordType().name() : "none";  // a host may keep documents of its own
}

std::vector<Cell> measureRow(const DatabaseDirectory& directory, const Measures* measures) {
    if (measures == nullptr) {
        return {directory.name, {}, {}, bytesCell(directory.fileBytes), {}, {}, {}, {}, {}};
    }
    const auto all = static_cast<double>(measures->all());
    const auto ofAny = [all](Cell cell) { return all > 0 ? std::move(cell) : Cell(); };  // nothing has no average
    std::vector<std::string> classes;
    for (const auto& [name, count] : measures->countByClass) {
        classes.push_back(fmt::format("{} {}", name, count));
    }
    return {directory.name,
            measures->documents,
            measures->subDocuments,
            bytesCell(directory.fileBytes),
            sizeCell(measures->bytes),
            ofAny(sizeCell(measures->least)),
            ofAny(std::round(static_cast<double>(measures->bytes) / all * 10) / 10),
            ofAny(sizeCell(measures->most)),
            std::move(classes)};
}

std::vector<Cell> listRow(const DatabaseDirectory& directory, const Measures* measures) {
    return {directory.name, std::string(kindName(directory.kind)), measures == nullptr ? Cell() : measures->documents,
            measures == nullptr ? Cell() : measures->subDocuments, bytesCell(directory.fileBytes)};
}

/// One row a database: of what a sweep over it counts, or of nothing where it cannot be read or is set aside.
StoreOutcome tellDatabases(const StoreQuery& query, Output& output, Console& console, Table table, bool classes,
                           std::vector<Cell> (*rowOf)(const DatabaseDirectory&, const Measures*)) {
    StoreReader reader(console);
    for (const DatabaseDirectory& directory : asked(query)) {
        console.begin("reading " + directory.name, 0);
        // One that cannot be read has a row as well, with what its file says, and makes the outcome bad.
        const auto database = isRead(directory, query) ? reader.open(directory) : nullptr;
        Measures measures;
        const auto count = [&](std::string_view key, std::string_view bytes) {
            measures.count(key, bytes);
            if (classes) {  // for which every document has to be parsed
                ++measures.countByClass[className(bytes)];
            }
            return true;
        };
        const bool read = database && reader.scan(directory, *database, {}, count);
        table.rows.push_back(rowOf(directory, read ? &measures : nullptr));
    }
    console.end();
    output.table(table, kEmptyStore);
    return outcome(!reader.failed());
}

/// One document as a line: {"database":...,"key":...,"field":...,"document":...}, "database" where `database` is not
/// empty, "field" of sub-documents only. False when the bytes are no document; "problem" stands in its place.
bool dumpDocument(std::string_view database, std::string_view stored, std::string_view bytes, bool keysOnly,
                  Output& output) {
    const DocumentKey key(stored);
    std::string error;
    std::string json;
    if (!keysOnly) {
        // The whole document is checked first: bytes that lie about their lengths are told of, not followed.
        const bson::BSONObj document = bson::BSONObj::fromBytes(bytes.data(), bytes.size(), &error);
        json = error.empty() ? document.toJson() : std::string();
        error = error.empty() && json.empty() ? "not to be shown as JSON" : error;
    }
    if (output.format() == Format::Csv) {
        std::vector<std::string> cells{std::string(key.key), std::string(key.field)};
        cells.resize(keysOnly ? 2 : 3, json);
        if (!database.empty()) {
            cells.emplace(cells.begin(), database);
        }
        output.csvLine(cells);
        return error.empty();
    }
    std::string line;
    const auto add = [&line](std::string_view name, std::string_view text) {
        line += line.empty() ? '{' : ',';
        appendJsonString(line, name);
        appendJsonString(line += ':', text);
    };
    // In this order whatever is left out, so that lines can be compared as texts.
    if (!database.empty()) {
        add("database", database);
    }
    add("key", key.key);
    if (key.isSub) {
        add("field", key.field);
    }
    if (!error.empty()) {
        add("problem", error);
    } else if (!keysOnly) {
        line += ",\"document\":" + json;  // JSON already
    }
    output.line(line + '}');
    return error.empty();
}

/// The first `most` of the stored keys, in order. Keys alone are a few bytes each; all documents of a large market at
/// once would fill the memory.
std::vector<std::string> keysOf(const StoreQuery& query, const DatabaseDirectory& directory, StoreDatabase& database,
                                StoreReader& reader, std::size_t most) {
    std::vector<std::string> keys;
    if (most > 0) {
        reader.scan(directory, database, query.prefix, [&](std::string_view key, std::string_view) {
            keys.emplace_back(key);
            return keys.size() < most;
        });
    }
    return keys;
}

/// Dumps no more than `left` documents and takes their number off it; false when some bytes are no document.
bool dumpDatabase(const StoreQuery& query, const DatabaseDirectory& directory, StoreDatabase& database,
                  StoreReader& reader, Output& output, std::size_t& left) {
    bool good = true;
    const std::vector<std::string> keys = keysOf(query, directory, database, reader, left);
    left -= keys.size();
    // One read a document: whoever reads the answer may stop for as long as he likes.
    for (const std::string& key : keys) {
        std::string document;
        const auto keep = [&](std::string_view, std::string_view bytes) {
            document = bytes;
            return true;
        };
        const StoreStatus status = query.keysOnly ? StoreStatus() : database.get(key, keep);
        if (!reader.check(directory, status)) {
            break;
        }
        const std::string_view shown = query.database.empty() ? std::string_view(directory.name) : std::string_view();
        // A document that a host has removed since its key was read is passed over.
        if (status.ok() && !dumpDocument(shown, key, document, query.keysOnly, output)) {
            good = false;
        }
    }
    return good;
}

/// A key as logs and stores show it, in decimal, or in hexadecimal behind "0x" or with letters among its digits.
std::uint64_t numberOf(std::string_view word) {
    std::uint64_t number = 0;
    const auto reads = [&](std::string_view digits, int base) {
        const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
        return failure == std::errc() && end == digits.data() + digits.size();
    };
    // Decimal wins where both could be meant: logs and stores write no other.
    const bool hex = word.starts_with("0x") || word.starts_with("0X");
    if (!(hex ? reads(word.substr(2), 16) : reads(word, 10) || reads(word, 16))) {
        throw UnreadableInput(fmt::format("\"{}\" is no key: 64 bits, in decimal or hexadecimal", word));
    }
    return number;
}

/// Adds what the number is the key of in the database.
void addMeanings(std::uint64_t number, const DatabaseDirectory& directory, StoreDatabase& database, StoreReader& reader,
                 Table& table) {
    const std::string stored = std::to_string(number);
    const auto add = [&](const char* what, std::string_view bytes) {
        const auto record = bytes.empty() ? nullptr : mxservice::TypeManager::instance()->parse(bytes, nullptr);
        table.rows.push_back({record ? Cell(record->getKey()) : Cell(), record ? Cell(nameOf(*record)) : Cell(), stored,
                              std::string(what), directory.name, fmt::format("0x{:016x}", number)});
        return false;  // of a field's documents the first will do
    };
    if (!directory.market.empty() && utils::hash(directory.market) == number) {
        add("market", {});
    }
    reader.check(directory, database.get(stored, [&](std::string_view, std::string_view bytes) {
        return add("document", bytes);
    }));
    reader.scan(directory, database, stored + persist::kFieldSeparator,
                [&](std::string_view, std::string_view bytes) { return add("field", bytes); });
}

}  // namespace

StoreOutcome explainKeys(const StoreQuery& query, Output& output, Console& console) {
    const bool known = !query.root.empty();
    const std::string& root = known ? query.root : query.words.front();
    std::vector<std::uint64_t> numbers;
    std::transform(query.words.begin() + (known ? 0 : 1), query.words.end(), std::back_inserter(numbers), numberOf);
    StoreReader reader(console);
    Table table{{"key", "name", "number", "what", "database", "hex"}, {}};
    std::vector<std::size_t> found(numbers.size());
    for (const DatabaseDirectory& directory : directoriesOf(root)) {
        const auto database = directory.kind == DirectoryKind::SetAside ? nullptr : reader.open(directory);
        for (std::size_t i = 0; database && i < numbers.size(); ++i) {
            const std::size_t before = table.rows.size();
            addMeanings(numbers[i], directory, *database, reader, table);
            found[i] += table.rows.size() - before;
        }
    }
    bool missing = false;
    // Said of each: among several numbers the rows alone would not show which one is nowhere.
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (found[i] == 0) {
            missing = true;
            console.message(fmt::format("{}: no key in this store", numbers[i]));
        }
    }
    if (!table.rows.empty() || output.format() != Format::Table) {
        output.table(table, "");
    }
    return reader.failed() ? StoreOutcome::Bad : missing ? StoreOutcome::Missing : StoreOutcome::Good;
}

StoreOutcome listStore(const StoreQuery& query, Output& output, Console& console) {
    const Table table{{"database", "kind", "documents", "subDocuments", "fileBytes"}, {}};
    return tellDatabases(query, output, console, table, false, listRow);
}

StoreOutcome dumpStore(const StoreQuery& query, Output& output, Console& console) {
    const bool all = query.database.empty();
    const std::vector<DatabaseDirectory> directories = asked(query);
    StoreReader reader(console);
    if (output.format() == Format::Csv) {
        std::vector<std::string> columns{"database", "key", "field", "document"};
        columns.resize(query.keysOnly ? 3 : 4);
        columns.erase(columns.begin(), columns.begin() + (all ? 0 : 1));  // who names a database knows its name
        output.csvLine(columns);
    }
    bool good = true;
    std::size_t left = query.limit.value_or(std::numeric_limits<std::size_t>::max());
    for (const DatabaseDirectory& directory : directories) {
        const auto database = isRead(directory, query) ? reader.open(directory) : nullptr;
        if (!database) {
            // Who named it is told; among all of them it is no news that a load has not come that far.
            if (!all && !reader.failed()) {
                console.message(directory.name + ": holds no database yet");
            }
            continue;
        }
        if (!dumpDatabase(query, directory, *database, reader, output, left)) {
            good = false;
            console.message(
                fmt::format("{}: holds bytes that are no document; \"store verify\" names them all", directory.name));
        }
    }
    if (directories.empty()) {
        output.note(kEmptyStore);
    }
    return outcome(good && !reader.failed());
}

StoreOutcome verifyStore(const StoreQuery& query, Output& output, Console& console) {
    StoreReader reader(console);
    Table table{{"database", "field", "key", "problem"}, {}};
    std::int64_t documents = 0;
    std::int64_t databases = 0;
    const std::vector<DatabaseDirectory> directories = asked(query);
    for (const DatabaseDirectory& directory : directories) {
        console.begin("verifying " + directory.name, 0);
        const auto database = isRead(directory, query) ? reader.open(directory) : nullptr;
        if (!database) {
            continue;
        }
        ++databases;
        // All of them, also behind a bad one: who repairs a store wants to know what else there is.
        reader.scan(directory, *database, {}, [&](std::string_view stored, std::string_view bytes) {
            ++documents;
            const DocumentKey key(stored);
            std::string problem = problemOf(directory, key, bytes);
            if (!problem.empty()) {
                table.rows.push_back(
                    {directory.name, std::string(key.field), std::string(key.key), std::move(problem)});
            }
            return true;
        });
    }
    console.end();
    if (directories.empty()) {
        output.note(kEmptyStore);
        return StoreOutcome::Good;
    }
    // Never "every document is good" when some were not seen.
    const char* const unread = documents > 0 ? "every document that could be read is good" : "nothing could be read";
    output.table(table, reader.failed() ? unread : "every document is good");
    output.note(fmt::format("{} documents in {} databases read, {} bad", documents, databases, table.rows.size()));
    return outcome(table.rows.empty() && !reader.failed());
}

StoreOutcome measureStore(const StoreQuery& query, Output& output, Console& console) {
    const Table table{{"database", "documents", "subDocuments", "fileBytes", "bytes", "minBytes", "averageBytes",
                       "maxBytes", "classes"},
                      {}};
    return tellDatabases(query, output, console, table, true, measureRow);
}

}  // namespace inscenter
