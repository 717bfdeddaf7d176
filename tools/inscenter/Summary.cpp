#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <list>
#include <string_view>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/MarketRules.h"
#include "tools/inscenter/DayTables.h"
#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/System.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {
namespace {

using boost::shared_ptr;
using mxservice::CInstrumentDetail;
using mxservice::IInstrumentCenter;
using Records = std::list<shared_ptr<CInstrumentDetail>>;

constexpr const char* kTotal = "total";

/// What the records of a futures exchange are, or by which listing Hong Kong records came.
std::string breakdown(const std::string& market, const Records& records) {
    if (utils::isFutureMarket(market)) {
        const auto options =
            std::count_if(records.begin(), records.end(), mxservice::CFtOptionDataHelper::isFtOptionInstrument);
        return fmt::format("futures {}, futures options {}", records.size() - static_cast<std::size_t>(options),
                           options);
    }
    std::string text;
    for (const char* const listing : {"HK", "HGT", "SGT"}) {
        const auto count = std::count_if(records.begin(), records.end(),
                                         [&](const auto& record) { return record->market == listing; });
        text += fmt::format("{}{} {}", text.empty() ? "" : ", ", listing, count);
    }
    return text;
}

/// The kind of a market's records as the center's predicates see it; they go by the market, so one record tells.
std::string kindOf(IInstrumentCenter& center, const std::string& market, const Records& records) {
    // Told by the records and not by a predicate: futures options are no market of their own, and of Hong Kong the two
    // centers say different things.
    if (utils::isFutureMarket(market) || market == "HK") {
        return breakdown(market, records);
    }
    const std::string key = records.front()->getKey();
    using Ask = bool (IInstrumentCenter::*)(const std::string&);
    constexpr std::array<std::pair<const char*, Ask>, 7> kKinds{
        {{"stocks, funds, bonds and indices", &IInstrumentCenter::hasStock},
         {"stock options", &IInstrumentCenter::hasOption},
         {"NEEQ stocks", &IInstrumentCenter::hasNeeq},
         {"gold", &IInstrumentCenter::hasGold},
         {"interbank bonds", &IInstrumentCenter::hasBond},
         {"outer futures", &IInstrumentCenter::hasOuterFuture},
         {"outer stocks", &IInstrumentCenter::hasOuterStock}}};
    const auto found =
        std::find_if(kKinds.begin(), kKinds.end(), [&](const auto& kind) { return (center.*kind.second)(key); });
    return found == kKinds.end() ? "" : found->first;
}

std::int64_t number(std::uint64_t count) {
    return static_cast<std::int64_t>(count);
}

double milliseconds(double seconds) {
    return std::round(seconds * 1e6) / 1e3;
}

/// What was read beside what the center answers: less is kept where two records have one key, or where this kind of
/// center keeps no such catalogue.
Table catalogueTable(Session& session, std::int64_t instruments) {
    Table table{{"catalogue", "read", "kept", "loadMs"}, {}};
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        const auto step = std::find_if(session.day.steps.begin(), session.day.steps.end(),
                                       [&](const LoadStep& done) { return done.catalogue == catalogue; });
        const double seconds = step == session.day.steps.end() ? 0 : step->seconds;
        const std::int64_t kept = catalogue == SnapshotCatalogue::Instruments
                                      ? instruments
                                      : number(recordsKept(session.center, catalogue).size());
        table.rows.push_back({std::string(catalogueName(catalogue)),
                              static_cast<std::int64_t>(session.day.read.records[static_cast<std::size_t>(catalogue)]),
                              kept, milliseconds(seconds)});
    }
    return table;
}

Table derivedTable(Session& session) {
    IInstrumentCenter& center = session.center;
    std::size_t mains = 0;
    const auto products = center.getProductMainInstruments();
    for (const auto& [product, records] : products) {
        mains += records.size();
    }
    const Table codes = codeTable(session);
    const auto inSet = [&](const char* set) {
        return static_cast<std::size_t>(std::count_if(codes.rows.begin(), codes.rows.end(),
                                                      [&](const auto& row) { return row.front() == Cell(set); }));
    };
    const auto row = [](const char* name, std::size_t size) {
        return std::vector<Cell>{std::string(name), static_cast<std::int64_t>(size)};
    };
    return {{"derived", "entries"},
            {row("main contracts", mains), row("products with main contracts", products.size()),
             row("spreads", center.getDceCrossProduct().size() + center.getDceCrossPeriod().size()),
             row("IPO codes", inSet("ipo")), row("CDR codes", inSet("cdr")), row("NEEQ inquiry codes", inSet("neeq")),
             row("option underlyings among the stocks", inSet("underlying")),
             row("outer products", center.getOutterProduct().size())}};
}

/// In megabytes of 1024 kilobytes, to a tenth.
double megabytes(std::uint64_t bytes) {
    return std::round(static_cast<double>(bytes) / 1024 / 102.4) / 10;
}

double milliseconds(std::chrono::nanoseconds time) {
    return milliseconds(std::chrono::duration<double>(time).count());
}

Table loadTable(const mxservice::CenterStatistics& statistics) {
    Table table{{"load", "received", "restored", "stored", "replaced", "removed", "outranked", "unwritten", "timeMs"},
                {}};
    for (const mxservice::MarketLoad& load : statistics.markets) {
        table.rows.push_back({load.market, number(load.received), number(load.restored), number(load.stored),
                              number(load.replaced), number(load.removed), number(load.outranked),
                              number(load.unwritten), milliseconds(load.time)});
    }
    return table;
}

Table cacheTable(const mxservice::CenterStatistics& statistics) {
    Table table{{"cache", "capacity", "used", "hits", "misses", "evictions"}, {}};
    for (const mxservice::CacheUse& use : statistics.caches) {
        table.rows.push_back({use.name, number(use.capacity), number(use.used), number(use.hits), number(use.misses),
                              number(use.evictions)});
    }
    return table;
}

Table indexTable(const mxservice::CenterStatistics& statistics) {
    Table table{{"index", "keys", "bytes"}, {}};
    for (const mxservice::IndexSize& size : statistics.indexes) {
        table.rows.push_back({size.name, number(size.keys), number(size.bytes)});
    }
    return table;
}

Table droppedTable(const mxservice::CenterStatistics& statistics) {
    Table table{{"dropped", "reason"}, {}};
    for (const mxservice::DroppedRecord& record : statistics.lastLoad.dropped) {
        // An empty record has no key to be found by; people count from one.
        table.rows.push_back(
            {record.key.empty() ? fmt::format("record {}", record.position + 1) : record.key, record.reason});
    }
    return table;
}

Table failureTable(const mxservice::CenterStatistics& statistics) {
    Table table{{"database", "failedWrites", "lastReason"}, {}};
    for (const mxservice::FailedWrites& failed : statistics.failedWrites) {
        table.rows.push_back({failed.database, number(failed.writes), failed.reason});
    }
    return table;
}

Table costTable(const Day& day) {
    double loading = 0;
    for (const LoadStep& step : day.steps) {
        loading += step.seconds;
    }
    const MemoryUse memory = memoryUse();
    return {{"cost", "value"},
            {{std::string("reading, ms"), milliseconds(day.read.seconds)},
             {std::string("loading, ms"), milliseconds(loading)},
             {std::string("lines and files skipped"), static_cast<double>(day.read.skipped)},
             {std::string("memory now, MB"), megabytes(memory.now)},
             {std::string("memory at most, MB"), megabytes(memory.most)}}};
}

/// One table of uniform rows for programs: the tables' names become the section.
void addSection(const Table& table, Table& all) {
    for (const auto& row : table.rows) {
        for (std::size_t i = 1; i < row.size(); ++i) {
            all.rows.push_back({table.columns.front(), row.front(), table.columns[i], row[i]});
        }
    }
}

}  // namespace

Table marketTable(Session& session) {
    Table table{{"market", "name", "records", "kinds"}, {}};
    std::int64_t total = 0;
    // One market at a time: the persisted center makes records for each answer, and all at once would be the day again.
    for (const std::string& market : filedMarkets(session.day.markets)) {
        Records records;
        session.center.getInstruments(market, records);
        if (!records.empty()) {
            const auto count = static_cast<std::int64_t>(records.size());
            total += count;
            table.rows.push_back({market, marketName(market), count, kindOf(session.center, market, records)});
        }
    }
    if (!table.rows.empty()) {
        table.rows.push_back({std::string(kTotal), std::string(), total, std::string()});
    }
    return table;
}

void showSummary(Session& session, const Query& /*query*/) {
    // First of all: the answers below take memory of their own.
    const Table cost = costTable(session.day);
    const mxservice::CenterStatistics statistics =
        statisticsOf(session.center, session.kind);  // before the questions below count
    const Table markets = marketTable(session);
    std::int64_t instruments = 0;
    for (const auto& row : markets.rows) {
        const auto& market = std::get<std::string>(row[0]);
        // These repeat funds and bonds, which are counted as such.
        const bool derived = market == kEtfInstruments || market == mxservice::market::kInterbank || market == kTotal;
        instruments += derived ? 0 : std::get<std::int64_t>(row[2]);
    }
    std::vector<Table> tables{markets,
                              catalogueTable(session, instruments),
                              derivedTable(session),
                              loadTable(statistics),
                              indexTable(statistics),
                              cost};
    if (session.kind == CenterKind::Client) {
        tables.push_back(cacheTable(statistics));
    }
    // No such table means that all is well.
    for (const Table& table : {droppedTable(statistics), failureTable(statistics)}) {
        if (!table.rows.empty()) {
            tables.push_back(table);
        }
    }
    if (session.output.format() != Format::Table) {
        Table all{{"section", "item", "property", "value"}, {}};
        for (const Table& table : tables) {
            addSection(table, all);
        }
        session.output.table(all, "");
        return;
    }
    for (const Table& table : tables) {
        session.output.table(table, "no instruments");
        session.output.note("");
    }
    if (session.kind == CenterKind::Server) {
        session.output.note("The in-memory center keeps no price settings and no outer-market tables.");
    }
}

}  // namespace inscenter
