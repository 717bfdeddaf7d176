#include "tools/inscenter/Tour.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "tools/inscenter/DayTables.h"
#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/RecordText.h"

namespace inscenter {
namespace {

namespace market = mxservice::market;
using mxservice::IInstrumentCenter;

constexpr std::size_t kShownEntries = 3;

/// The entries of a catalogue, each in a few words.
using Entries = std::vector<std::string>;

/// What a stop is asked with: one of the centers, and the day that both have loaded.
struct Question {
    Session& session;
    const Snapshot& snapshot;
    IInstrumentCenter& center = session.center;
};

struct Stop {
    const char* title;
    const char* command;  ///< that shows it whole
    Entries (*ask)(const Question&);
    std::vector<std::string> onPurpose = {};  ///< what hosts of the two kinds are promised to be answered differently
};

/// The texts and numbers of these columns, a row an entry.
Entries rowsOf(const Table& table, std::initializer_list<std::size_t> columns) {
    Entries entries;
    for (const auto& row : table.rows) {
        std::string& entry = entries.emplace_back();
        for (const std::size_t column : columns) {
            entry += (entry.empty() ? "" : " ") + cellText(row[column], " ");
        }
    }
    return entries;
}

template <class Records>
Entries named(const Records& records) {
    Entries entries;
    for (const auto& [key, record] : records) {
        entries.push_back(fmt::format("{} {}", key, nameOf(*record)));
    }
    return entries;
}

Entries listOf(const std::set<std::string>& codes) {
    return {codes.begin(), codes.end()};
}

Entries markets(const Question& question) {
    Table table = marketTable(question.session);
    if (!table.rows.empty()) {
        table.rows.pop_back();  // all together
    }
    return rowsOf(table, {0, 2});
}

Entries hongKong(const Question& question) {
    Entries entries;
    for (const auto& [key, record] : question.center.getInstruments(market::kHongKong)) {
        if (record->combinedConnectFlags != 0) {
            entries.push_back(fmt::format("{} flags {}", key, record->combinedConnectFlags));
        }
    }
    return entries;
}

/// By a key that a connect market's host would ask with, whichever listing brought the record.
Entries hongKongKeys(const Question& question) {
    Entries entries;
    for (const auto& [key, record] : question.center.getInstruments(market::kHongKong)) {
        const std::string text = market::kShanghaiConnect + record->code;
        if (question.center.hasHkstock(text)) {
            entries.push_back(text);
        }
    }
    return entries;
}

Entries traderTypes(const Question& question) {
    Entries entries;
    for (const int type : inscenter::traderTypes()) {
        const auto records =
            instrumentsOf(question.center, question.session.kind, static_cast<mxservice::EOvTraderType>(type),
                          filedMarkets(question.session.day.markets));
        if (!records.empty()) {
            entries.push_back(fmt::format("{}: {}", type, records.size()));
        }
    }
    return entries;
}

Entries mains(const Question& question) {
    Entries entries;
    for (const char* const exchange : market::kFutures) {
        for (const auto& [key, record] : question.center.getFutureMainInstruments(exchange)) {
            entries.push_back(fmt::format("{} {}", key, record->name));
        }
    }
    return entries;
}

/// The centers answer for one code at a time and list none, so those of the day are asked; platform codes alike.
Entries interbankCodes(const Question& question) {
    Entries entries;
    for (const auto& [key, bond] : question.snapshot.bonds) {
        for (const auto& [exchange, code] :
             {std::pair{market::kShanghai, bond->shanghaiCode}, std::pair{market::kShenzhen, bond->shenzhenCode}}) {
            const std::string bondCode = code.empty() ? "" : question.center.getInterbankCode(exchange + code);
            if (!bondCode.empty()) {
                entries.push_back(fmt::format("{}{} is {}", exchange, code, bondCode));
            }
        }
    }
    std::sort(entries.begin(), entries.end());  // bonds come in the order of the file, entries are read by key
    return entries;
}

Entries platformCodes(const Question& question) {
    std::set<std::string> codes;
    for (const auto& record : question.snapshot.instruments) {
        const std::string other = question.center.getLumoCode(record->code);
        if (other != record->code) {
            codes.insert(record->code + " is " + other);
        }
    }
    return listOf(codes);
}

Entries planGroups(const Question& question) {
    // Those that the plans name: no center lists its groups.
    std::set<int> groups;
    for (const auto& plan : question.snapshot.otcPlans) {
        groups.insert(plan->planType);
    }
    Entries entries;
    for (const int group : groups) {
        std::vector<boost::shared_ptr<mxservice::COTCFundPlanInfo>> plans;
        question.center.getOtcInstruments(group, plans);
        if (!plans.empty()) {
            entries.push_back(fmt::format("group {}: {}", group, plans.size()));
        }
    }
    return entries;
}

/// Of every product that a record names: those of options have contracts, too, but are no futures products.
Entries products(const Question& question) {
    std::set<std::string> ids;
    for (const auto& record : question.snapshot.instruments) {
        ids.insert(record->productId);
    }
    Entries entries;
    for (const std::string& id : ids) {
        const std::size_t count = question.center.getProductInstruments(id).size();
        if (count > 0) {
            entries.push_back(fmt::format("{} {}", id, count));
        }
    }
    return entries;
}

Entries underlyings(const Question& question) {
    Table table = codeTable(question.session);
    std::erase_if(table.rows, [](const auto& row) { return row[0] != Cell("underlying"); });
    return rowsOf(table, {1});
}

// What is promised is said also where this day shows nothing of it: a day without an OTC plan differs in none.
const std::vector<Stop>& stops() {
    static const std::vector<Stop> kStops{
        {"Markets with their instruments",
         "list --market SH",
         markets,
         {"platform codes that differ from the code are noted by the persisted center alone",
          "keys that a reload of their market lacks still answer in memory, and are gone in the persisted center"}},
        {"Platform codes", "explain CODE", platformCodes},
        {"Hong Kong stocks that the connect markets reach",
         "list --market HK",
         hongKong,
         {"combinedConnectFlags of codes that a connect market lists: in memory 1 for HGT, 3 for SGT, 5 for both; "
          "persisted the flag values of both listings",
          "a record asked for by an HGT or SGT key: the persisted center answers a copy that bears that market",
          "one of HGT, SGT and HK loaded alone: kept until both connect markets are there in memory, completed from "
          "the store at once in the persisted center"}},
        {"Keys that are Hong Kong stocks by hasHkstock",
         "has HGT00700",
         hongKongKeys,
         {"hasHkstock: the in-memory center files no listing under HGT and says no"}},
        {"Trader types",
         "list --trader-type 2",
         traderTypes,
         {"trader types 64, 512, 2048 and 16777216: the persisted center's alone"}},
        {"Main contracts", "mains", mains},
        {"Main contracts by product", "mains --by-product",
         [](const Question& q) {
             return rowsOf(mainTable(q.session), {0, 1});
         }},
        {"Contracts by product",
         "products",
         products,
         {"contracts by product: the persisted center's alone; product names: in neither"}},
        {"Legs of the Dalian spreads", "spreads",
         [](const Question& q) {
             return rowsOf(spreadTable(q.session), {1, 2});
         }},
        {"New issues of the day", "codes", [](const Question& q) { return listOf(q.center.getStockIpoCodes()); }},
        {"Depositary receipts", "codes", [](const Question& q) { return listOf(q.center.getStockCdrCodes()); }},
        {"NEEQ inquiries", "codes", [](const Question& q) { return listOf(q.center.getNeeqInquiryCodes()); }},
        {"Underlyings of stock options", "codes", underlyings},
        {"Outer futures products",
         "outer",
         [](const Question& q) {
             return rowsOf(outerTable(q.session), {2, 3});
         },
         {"outer markets, their products and product groups: the persisted center's alone"}},
        {"ETFs with the size of their baskets",
         "etfs",
         [](const Question& q) {
             Entries entries;
             for (const auto& [key, fund] : q.center.getEtfs()) {
                 entries.push_back(fmt::format("{} {} of {}", key, fund->name, fund->components.size()));
             }
             return entries;
         },
         {"names of ETF components that have none, and of the instruments named after them: the persisted center fills "
          "them",
          "two funds with one key: the in-memory center keeps the first, the persisted one the last",
          "an exchange-listed fund whose creation code is its own code: full lists hold either of its two "
          "instruments"}},
        {"Interbank bonds", "bonds", [](const Question& q) { return named(q.center.getBonds()); }},
        {"Interbank codes of listed bonds",
         "interbank KEY",
         interbankCodes,
         {"interbank codes of listed bonds: the persisted center's alone"}},
        {"Tender bonds",
         "tenderbonds",
         [](const Question& q) { return named(q.center.getTrenderBondInfos()); },
         {"changes during the day: taken in memory alone"}},
        {"Counterparties",
         "counterparties",
         [](const Question& q) { return named(q.center.getCounterpartys()); },
         {"changes during the day: taken by the persisted center alone"}},
        {"OTC fund plans", "otc", [](const Question& q) { return named(q.center.getOtcInstruments()); }},
        {"OTC fund plans by group",
         "otc --group 1",
         planGroups,
         {"OTC fund plans by group, and their changes during the day: in memory alone"}},
        {"OTC securities issuances", "issuances", [](const Question& q) { return named(q.center.getIssuanceInfos()); }},
        {"Price settings of OTC enquiries",
         "issuanceprices",
         [](const Question& q) {
             Entries entries;
             for (const auto& [code, setting] : q.center.getIssuancePriceInfos()) {
                 entries.push_back(fmt::format("{} at {}", code, setting->enquiryPrice));
             }
             return entries;
         },
         {"price settings: the persisted center's alone, where operation 3 of a change removes the issuance of that "
          "key instead"}}};
    return kStops;
}

std::string firstOf(const Entries& entries) {
    const auto end = entries.begin() + static_cast<std::ptrdiff_t>(std::min(entries.size(), kShownEntries));
    return fmt::format("{}{}", fmt::join(entries.begin(), end, ", "), entries.size() > kShownEntries ? ", ..." : "");
}

void showForPeople(const Stop& stop, const Entries& memory, const Entries& persisted, Output& output) {
    const auto show = [&](const char* where, const Entries& entries) {
        const std::string answer =
            entries.empty() ? "nothing" : fmt::format("{}: {}", entries.size(), firstOf(entries));
        output.note(fmt::format("  {:<12}{}", where, answer));
    };
    output.heading(fmt::format("{}  (inscenter {})", stop.title, stop.command));
    // By content, not by number: two lists of one length may hold other keys.
    if (memory == persisted) {
        show("both", memory);
    } else {
        show("in memory", memory);
        show("persisted", persisted);
    }
    for (const std::string& text : stop.onPurpose) {
        output.note("  on purpose  " + text);
    }
}

}  // namespace

void showTour(const BothCenters& both, const Snapshot& snapshot, Output& output, Console& console) {
    output.note(
        "One day in both centers; \"on purpose\" says where hosts of the two kinds are promised other answers.");
    // The verbs' tables go by the markets that the records name; the rest of a day they do not look at.
    Day day;
    day.markets = marketsOf(snapshot);
    Session server{*both.server, CenterKind::Server, day, output, console};
    Session client{*both.client, CenterKind::Client, day, output, console};
    Table table{{"catalogue", "inMemory", "persisted", "firstInMemory", "firstPersisted", "differsOnPurpose"}, {}};
    for (const Stop& stop : stops()) {
        const Entries memory = stop.ask({server, snapshot});
        const Entries persisted = stop.ask({client, snapshot});
        if (output.format() == Format::Table) {
            showForPeople(stop, memory, persisted, output);
            continue;
        }
        table.rows.push_back({std::string(stop.title), static_cast<std::int64_t>(memory.size()),
                              static_cast<std::int64_t>(persisted.size()), firstOf(memory), firstOf(persisted),
                              stop.onPurpose});
    }
    if (output.format() != Format::Table) {
        output.table(table, "");
    }
}

}  // namespace inscenter
