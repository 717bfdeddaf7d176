// Single instruments and lists of them.

#include <fmt/format.h>

#include <list>
#include <map>

#include "tools/inscenter/Predicates.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {
namespace {

std::string joined(const std::vector<std::string>& texts) {
    return fmt::format("{}", fmt::join(texts, ", "));
}

}  // namespace

void Session::reportMissing(const std::string& key, const char* what) {
    console.message(fmt::format("{}: {}", key.empty() ? "\"\"" : key, what));
    missing = true;
}

void Session::list(std::vector<RecordPtr> records, const Query& query, std::string_view nothing) {
    const bool empty = records.empty();
    query.selection.apply(records);
    output.records(records, empty ? nothing : "no record meets the conditions", query.selection.fields());
}

void showInstruments(Session& session, const Query& query) {
    std::vector<RecordPtr> found;
    for (const std::string& key : query.keys) {
        if (const auto record = session.center.getInstrument(key)) {
            found.emplace_back(record);
        } else {
            session.reportMissing(key);
        }
    }
    session.output.details(found);
}

void showPredicates(Session& session, const Query& query) {
    Table table{{"key", "predicates"}, {}};
    for (const std::string& key : query.keys) {
        std::vector<std::string> names = truePredicates(session.center, key);
        if (names.empty()) {
            session.reportMissing(key, "no predicate answers true");
            if (session.output.format() == Format::Table) {
                names.emplace_back("none");
            }
        }
        table.rows.push_back({key, names});
    }
    session.output.table(table, "no keys");
}

void listInstruments(Session& session, const Query& query) {
    std::map<std::string, boost::shared_ptr<mxservice::CInstrumentDetail>> found;
    std::string nothing;
    if (query.traderType) {
        session.center.getInstruments(static_cast<mxservice::EOvTraderType>(*query.traderType), found);
        nothing = fmt::format("no instruments of trader type {}", *query.traderType);
    } else {
        session.center.getInstruments(std::list<std::string>(query.markets.begin(), query.markets.end()), found);
        nothing = fmt::format("no instruments of market {}", joined(query.markets));
    }
    session.list(valuesOf(found), query, nothing);
}

}  // namespace inscenter
