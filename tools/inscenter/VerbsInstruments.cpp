// Single instruments and lists of them.

#include <fmt/format.h>

#include <boost/make_shared.hpp>

#include <algorithm>
#include <utility>

#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/NearNames.h"
#include "tools/inscenter/Predicates.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {

void Session::reportMissing(const std::string& key, const std::string& what) {
    console.message(fmt::format("{}: {}", key.empty() ? "\"\"" : key, what));
    missing = true;
}

// Known is what any day may have, too: a market without a record is an answer, a slip of the pen is none.
std::vector<std::string> Session::knownMarkets(const std::vector<std::string>& names) {
    const std::vector<std::string> markets = askedMarkets(day.markets);
    std::vector<std::string> known;
    for (const std::string& name : names) {
        if (std::find(markets.begin(), markets.end(), name) != markets.end()) {
            known.push_back(name);
        } else {
            const std::string near = didYouMean(name, markets);
            reportMissing(name, near.empty() ? fmt::format("no such market; the day has {}",
                                                           fmt::join(filedMarkets(day.markets), ", "))
                                             : "no such market" + near);
        }
    }
    return known;
}

void Session::list(std::vector<RecordPtr> records, const Query& query, std::string_view nothing) {
    // Asked before the selection: a market without records is another answer than conditions that none meets.
    const bool empty = records.empty();
    const std::size_t more = query.selection.apply(records);
    output.records(*query.selection.type(), records,
                   empty      ? nothing
                   : more > 0 ? ""
                              : "no record meets the conditions",
                   query.selection.fields());
    if (more > 0) {
        output.note(fmt::format("... and {} more", more));
    }
}

void showInstruments(Session& session, const Query& query) {
    // What is there is shown whatever else is missing: who asks for a list of keys wants to know of each.
    std::vector<RecordPtr> found;
    for (const std::string& key : query.keys) {
        if (const auto record = session.center.getInstrument(key)) {
            found.emplace_back(record);
        } else {
            session.reportMissingKey(key, "not found", [&](const std::string& other) {
                return session.center.getInstrument(other) != nullptr;
            });
        }
    }
    session.output.details(mxservice::CInstrumentDetail::table(), found);
}

void showPredicates(Session& session, const Query& query) {
    Table table{{"key", "predicates"}, {}};
    for (const std::string& key : query.keys) {
        std::vector<std::string> names = truePredicates(session.center, key);
        if (names.empty()) {
            session.reportMissingKey(key, "no predicate answers true", [&](const std::string& other) {
                return !truePredicates(session.center, other).empty();
            });
            if (session.output.format() == Format::Table) {  // programs see it by the empty list
                names.emplace_back("none");
            }
        }
        table.rows.push_back({key, names});
    }
    session.output.table(table, "no keys");
}

void listInstruments(Session& session, const Query& query) {
    const std::vector<std::string> all = filedMarkets(session.day.markets);
    std::vector<Filed> found;
    std::string nothing;
    if (query.traderType) {
        const auto type = static_cast<mxservice::EOvTraderType>(*query.traderType);
        // Also of a type that there is not: an empty answer is still one, as CSV with its header.
        found = instrumentsOf(session.center, session.kind, type, all);
        const std::vector<int>& types = traderTypes();
        if (std::find(types.begin(), types.end(), *query.traderType) == types.end()) {
            session.reportMissing(std::to_string(*query.traderType),
                                  fmt::format("no such trader type; there are {}", fmt::join(types, ", ")));
        } else {
            nothing = fmt::format("no instruments of trader type {}", *query.traderType);
        }
    } else {
        const std::vector<std::string> markets = session.knownMarkets(query.markets);
        found = instrumentsOf(session.center, markets);
        nothing = markets.empty() ? "" : fmt::format("no instruments of market {}", fmt::join(markets, ", "));
    }
    std::vector<RecordPtr> records;
    records.reserve(found.size());
    for (Filed& instrument : found) {
        records.emplace_back(boost::make_shared<FiledInstrument>(instrument));
        instrument.record.reset();  // a persisted center made it for this answer alone
    }
    session.list(std::move(records), query, nothing);
}

}  // namespace inscenter
