#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/instrumentcenter/IInstrumentCenter.h"
#include "tools/inscenter/Center.h"
#include "tools/inscenter/Console.h"
#include "tools/inscenter/Diff.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/RecordSelection.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/Sql.h"

namespace inscenter {

/// What was read and handed to the center.
struct Day {
    std::string name;   ///< of the snapshot, for people
    std::string today;  ///< YYYYMMDD: what --today or the records say; empty: nobody does, so the clock's day counts
    std::vector<std::pair<std::string, std::size_t>> markets;  ///< as the records name them
    ReadReport read;
    std::vector<LoadStep> steps;
    bool stored = true;                    ///< all of it, in a center with a store
    std::optional<Comparison> comparison;  ///< with the day that the query names
    // For verbs that ask the records and no center:
    std::shared_ptr<const Snapshot> records;  ///< as they were read; loads change others
    std::shared_ptr<Sql> sql;                 ///< over them
};

/// A day in a center.
struct LoadedDay {
    std::shared_ptr<mxservice::IInstrumentCenter> center;
    Day day;
};

/// Where a day is exported to: one of the three, and how.
struct ExportQuery {
    std::string sqlite;  ///< file
    std::string csv;     ///< directory
    std::string ndjson;  ///< directory
    bool zeros = false;
    bool byteOrderMark = false;
};

/// Which rules a day is checked by.
struct CheckQuery {
    std::vector<std::string> rules;    ///< empty: all
    std::vector<std::string> without;  ///< but for these
    bool showSql = false;              ///< the rules themselves are wanted
};

/// What a verb is asked.
struct Query {
    std::vector<std::string> keys;
    std::vector<std::string> markets;
    std::optional<int> traderType;
    bool byProduct = false;
    std::optional<int> group;
    std::string text;                  ///< to look for
    std::optional<std::size_t> limit;  ///< of what is found
    std::string page;                  ///< file to write
    std::string against;               ///< snapshot or store of another day
    RecordSelection selection;         ///< of verbs that list records
    ExportQuery exported;
    CheckQuery check;
};

/// What a verb works with.
struct Session {
    mxservice::IInstrumentCenter& center;
    CenterKind kind;
    const Day& day;
    Output& output;
    Console& console;
    bool missing = false;  ///< a key was not found
    bool failed = false;   ///< the question makes no sense; the console says why

    /// Reports the key on the console and remembers that one was missing.
    void reportMissing(const std::string& key, const std::string& what);
    /// The same, with the keys that may have been meant: of those that "explain" shows for the text, the ones that fit.
    void reportMissingKey(const std::string& key, const char* what,
                          const std::function<bool(const std::string&)>& fits);

    /// Those of the names that stand for a market. The others are reported as missing, with what may have been meant.
    std::vector<std::string> knownMarkets(const std::vector<std::string>& names);

    /// Writes those of the records that the query selects; where there was none to select from, tables say `nothing`.
    void list(std::vector<RecordPtr> records, const Query& query, std::string_view nothing);
};

/// The verbs of the tool. Each asks the center and writes the answer to the session's output.
using Verb = void (*)(Session&, const Query&);

void showSummary(Session& session, const Query& query);
void showInstruments(Session& session, const Query& query);
void showPredicates(Session& session, const Query& query);
void listInstruments(Session& session, const Query& query);

void findText(Session& session, const Query& query);
void explainCodes(Session& session, const Query& query);

/// Throws UnreadableInput when the page cannot be written.
void writeReport(Session& session, const Query& query);

/// These three ask the records of the day. Throw UnreadableInput when a file cannot be written.
void answerSql(Session& session, const Query& query);
void exportDay(Session& session, const Query& query);
void checkDay(Session& session, const Query& query);
/// The names of the rules.
std::vector<std::string> checkRules();

void showMains(Session& session, const Query& query);
void showProducts(Session& session, const Query& query);
void showSpreads(Session& session, const Query& query);
void showCodes(Session& session, const Query& query);
void showOuterMarkets(Session& session, const Query& query);

void showEtf(Session& session, const Query& query);
void showBond(Session& session, const Query& query);
void listOtcPlans(Session& session, const Query& query);
void showInterbankCode(Session& session, const Query& query);

/// Lists what the center keeps of a catalogue other than the instruments.
void listCatalogue(Session& session, const Query& query, SnapshotCatalogue catalogue);
/// The same as a verb.
template <SnapshotCatalogue catalogue>
void listKept(Session& session, const Query& query) {
    listCatalogue(session, query, catalogue);
}

/// The values of a map by key, in the order of the keys.
template <class Map>
std::vector<RecordPtr> valuesOf(const Map& map) {
    std::vector<RecordPtr> records;
    records.reserve(map.size());
    for (const auto& [key, record] : map) {
        records.push_back(record);
    }
    return records;
}

}  // namespace inscenter
