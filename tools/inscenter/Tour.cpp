#include "tools/inscenter/Tour.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/instrumentcenter/IInstrumentCenter.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "tools/inscenter/Center.h"
#include "tools/inscenter/Differences.h"
#include "tools/inscenter/FiledInstruments.h"

namespace inscenter {
namespace {

using mxservice::IInstrumentCenter;
namespace market = mxservice::market;

constexpr std::size_t kShownEntries = 3;

/// The entries of a catalogue, each in a few words.
using Entries = std::vector<std::string>;

/// What a catalogue is asked for.
struct Question {
    IInstrumentCenter& center;
    CenterKind kind;
    const Snapshot& snapshot;
};

struct Stop {
    const char* title;
    const char* command;  ///< that shows it whole
    Entries (*ask)(const Question&);
    std::optional<Subject> subject;  ///< whose differences belong here
};

template <class Records>
Entries named(const Records& records) {
    Entries entries;
    for (const auto& [key, record] : records) {
        entries.push_back(fmt::format("{} {}", key, record->name));
    }
    return entries;
}

Entries prefixed(const std::set<std::string>& codes) {
    return {codes.begin(), codes.end()};
}

Entries pairs(const std::vector<std::pair<std::string, std::string>>& legs) {
    Entries entries;
    for (const auto& [first, second] : legs) {
        entries.push_back(fmt::format("{} and {}", first, second));
    }
    return entries;
}

Entries markets(const Question& question) {
    Entries entries;
    for (const std::string& name : filedMarkets(marketsOf(question.snapshot))) {
        const std::size_t count = question.center.getInstruments(name).size();
        if (count > 0) {
            entries.push_back(fmt::format("{} {}", name, count));
        }
    }
    return entries;
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
    for (std::uint32_t type = 1; type <= (1U << 30U); type <<= 1U) {
        const auto records = instrumentsOf(question.center, question.kind, static_cast<mxservice::EOvTraderType>(type),
                                           filedMarkets(marketsOf(question.snapshot)));
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

Entries productMains(const Question& question) {
    Entries entries;
    for (const auto& [product, records] : question.center.getProductMainInstruments()) {
        entries.push_back(fmt::format("{} {}", product, records.size()));
    }
    return entries;
}

Entries spreads(const Question& question) {
    Entries entries = pairs(question.center.getDceCrossProduct());
    const Entries periods = pairs(question.center.getDceCrossPeriod());
    entries.insert(entries.end(), periods.begin(), periods.end());
    return entries;
}

Entries underlyings(const Question& question) {
    std::set<std::string> codes;
    for (const auto& record : question.snapshot.instruments) {
        if (question.center.isStkOptionUndlCode(record->market, record->code)) {
            codes.insert(record->getKey());
        }
    }
    return prefixed(codes);
}

Entries platformCodes(const Question& question) {
    std::set<std::string> codes;
    for (const auto& record : question.snapshot.instruments) {
        const std::string other = question.center.getLumoCode(record->code);
        if (other != record->code) {
            codes.insert(record->code + " is " + other);
        }
    }
    return prefixed(codes);
}

Entries outer(const Question& question) {
    Entries entries;
    for (const auto& [name, ids] : question.center.getMarketProductList()) {
        for (const std::string& id : ids) {
            entries.push_back(fmt::format("{} {}", id, question.center.getOutterProductName(id)));
        }
    }
    return entries;
}

Entries etfs(const Question& question) {
    Entries entries;
    for (const auto& [key, fund] : question.center.getEtfs()) {
        entries.push_back(fmt::format("{} {} of {}", key, fund->name, fund->components.size()));
    }
    return entries;
}

Entries interbankCodes(const Question& question) {
    Entries entries;
    for (const auto& bond : question.snapshot.bonds) {
        for (const auto& [exchange, code] :
             {std::pair{market::kShanghai, bond->shanghaiCode}, std::pair{market::kShenzhen, bond->shenzhenCode}}) {
            const std::string bondCode = code.empty() ? "" : question.center.getInterbankCode(exchange + code);
            if (!bondCode.empty()) {
                entries.push_back(fmt::format("{}{} is {}", exchange, code, bondCode));
            }
        }
    }
    std::sort(entries.begin(), entries.end());
    return entries;
}

Entries planGroups(const Question& question) {
    std::set<int> groups;
    for (const auto& plan : question.snapshot.otcFundPlans) {
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

Entries prices(const Question& question) {
    Entries entries;
    for (const auto& [code, setting] : question.center.getIssuancePriceInfos()) {
        entries.push_back(fmt::format("{} at {}", code, setting->enquiryPrice));
    }
    return entries;
}

const std::vector<Stop>& stops() {
    static const std::vector<Stop> kStops{
        {"Markets with their instruments", "list --market SH", markets, Subject::Instruments},
        {"Platform codes", "explain CODE", platformCodes, Subject::PlatformCodes},
        {"Hong Kong stocks that the connect markets reach", "list --market HK", hongKong, Subject::HongKong},
        {"Keys that are Hong Kong stocks by hasHkstock", "has HGT00700", hongKongKeys, Subject::Predicates},
        {"Trader types", "list --trader-type 2", traderTypes, Subject::TraderTypes},
        {"Main contracts", "mains", mains, {}},
        {"Main contracts by product", "mains --by-product", productMains, {}},
        {"Contracts by product", "products", products, Subject::Products},
        {"Legs of the Dalian spreads", "spreads", spreads, {}},
        {"New issues of the day", "codes", [](const Question& q) { return prefixed(q.center.getStockIpoCodes()); }, {}},
        {"Depositary receipts", "codes", [](const Question& q) { return prefixed(q.center.getStockCdrCodes()); }, {}},
        {"NEEQ inquiries", "codes", [](const Question& q) { return prefixed(q.center.getNeeqInquiryCodes()); }, {}},
        {"Underlyings of stock options", "codes", underlyings, {}},
        {"Outer futures products", "outer", outer, Subject::Outer},
        {"ETFs with the size of their baskets", "etfs", etfs, Subject::Etfs},
        {"Interbank bonds",
         "bonds",
         [](const Question& q) {
             Entries entries;
             for (const auto& [code, bond] : q.center.getBonds()) {
                 entries.push_back(code + " " + bond->bondName);
             }
             return entries;
         },
         {}},
        {"Interbank codes of listed bonds", "interbank KEY", interbankCodes, Subject::Bonds},
        {"Tender bonds", "tenderbonds", [](const Question& q) { return named(q.center.getTrenderBondInfos()); },
         Subject::TenderBonds},
        {"Counterparties", "counterparties", [](const Question& q) { return named(q.center.getCounterpartys()); },
         Subject::Counterparties},
        {"OTC fund plans", "otc", [](const Question& q) { return named(q.center.getOtcInstruments()); }, {}},
        {"OTC fund plans by group", "otc --group 1", planGroups, Subject::Plans},
        {"OTC securities issuances",
         "issuances",
         [](const Question& q) { return named(q.center.getIssuanceInfos()); },
         {}},
        {"Price settings of OTC enquiries", "issuanceprices", prices, Subject::Prices}};
    return kStops;
}

std::vector<std::string> differencesOf(const Stop& stop) {
    std::vector<std::string> texts;
    for (const Difference& difference : kDeliberateDifferences) {
        if (difference.subject == stop.subject) {
            texts.emplace_back(difference.text);
        }
    }
    return texts;
}

std::string firstOf(const Entries& entries) {
    const auto end = entries.begin() + static_cast<std::ptrdiff_t>(std::min(entries.size(), kShownEntries));
    return fmt::format("{}{}", fmt::join(entries.begin(), end, ", "), entries.size() > kShownEntries ? ", ..." : "");
}

std::string answered(const Entries& entries) {
    return entries.empty() ? "nothing" : fmt::format("{}: {}", entries.size(), firstOf(entries));
}

void showForPeople(const Stop& stop, const Entries& memory, const Entries& persisted, Output& output) {
    output.heading(fmt::format("{}  (inscenter {})", stop.title, stop.command));
    if (memory == persisted) {
        output.note("  both        " + answered(memory));
    } else {
        output.note("  in memory   " + answered(memory));
        output.note("  persisted   " + answered(persisted));
    }
    for (const std::string& text : differencesOf(stop)) {
        output.note("  on purpose  " + text);
    }
}

}  // namespace

void showTour(const BothCenters& both, const Snapshot& snapshot, Output& output) {
    output.note(
        "One day in both centers; \"on purpose\" says where hosts of the two kinds are promised other answers.");
    Table table{{"catalogue", "inMemory", "persisted", "firstInMemory", "firstPersisted", "differsOnPurpose"}, {}};
    for (const Stop& stop : stops()) {
        const Entries memory = stop.ask({*both.server, CenterKind::Server, snapshot});
        const Entries persisted = stop.ask({*both.client, CenterKind::Client, snapshot});
        if (output.format() == Format::Table) {
            showForPeople(stop, memory, persisted, output);
            continue;
        }
        table.rows.push_back({std::string(stop.title), static_cast<std::int64_t>(memory.size()),
                              static_cast<std::int64_t>(persisted.size()), firstOf(memory), firstOf(persisted),
                              differencesOf(stop)});
    }
    if (output.format() != Format::Table) {
        output.table(table, "");
    }
}

}  // namespace inscenter
