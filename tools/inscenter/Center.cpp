#include "tools/inscenter/Center.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <unordered_map>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"

namespace inscenter {
namespace {

using boost::shared_ptr;
using mxservice::IInstrumentCenter;

constexpr const char* kStrand = "inscenter";
constexpr int kInstrumentCache = 4096;
constexpr int kBondCache = 1024;
constexpr int kOtcCache = 1024;

/// The records by the text that each class's getKey answers; the later of two stays.
template <class Record>
std::map<std::string, shared_ptr<Record>> byKey(const std::vector<shared_ptr<Record>>& records) {
    std::map<std::string, shared_ptr<Record>> map;
    for (const auto& record : records) {
        map[record->getKey()] = record;
    }
    return map;
}

/// The market list of one batch that holds everything. The in-memory center takes a list of exactly one of "HGT", "SGT"
/// and "HK" for a part of Hong Kong and waits for the others; a second name of the three makes it an ordinary load.
std::vector<std::string> marketList(const Snapshot& snapshot) {
    std::vector<std::string> names;
    for (const auto& [name, count] : marketsOf(snapshot)) {
        names.push_back(name);
    }
    if (names.size() == 1) {
        if (names.front() == "HK") {
            names.emplace_back("HGT");
        } else if (names.front() == "HGT" || names.front() == "SGT") {
            names.emplace_back("HK");
        }
    }
    return names;
}

/// A database that could not be written, as a message names it, and why.
std::string described(const mxservice::FailedWrites& failed) {
    return failed.reason.empty() ? failed.database : failed.database + ": " + failed.reason;
}

}  // namespace

std::shared_ptr<IInstrumentCenter> makeCenter(CenterKind kind) {
    if (kind == CenterKind::Client) {
        return std::make_shared<mxservice::CClientInstrumentCenter>(kStrand, kInstrumentCache, kBondCache, kOtcCache);
    }
    return std::make_shared<mxservice::CServerInstrumentCenter>(kStrand);
}

mxservice::CenterStatistics statisticsOf(IInstrumentCenter& center, CenterKind kind) {
    // Not an operation of the interface, whose slots are given: who asks has to know the class.
    return kind == CenterKind::Client ? static_cast<mxservice::CClientInstrumentCenter&>(center).statistics()
                                      : static_cast<mxservice::CServerInstrumentCenter&>(center).statistics();
}

std::vector<std::pair<std::string, std::size_t>> marketsOf(const Snapshot& snapshot) {
    std::vector<std::pair<std::string, std::size_t>> markets;
    std::unordered_map<std::string, std::size_t> positions;
    for (const auto& instrument : snapshot.instruments) {
        const auto [position, added] = positions.emplace(instrument->market, markets.size());
        if (added) {
            markets.emplace_back(instrument->market, 0);
        }
        ++markets[position->second].second;
    }
    return markets;
}

bool wroteEverything(IInstrumentCenter& center, CenterKind kind, Console& console) {
    // A load answers nothing and goes on from memory after a failed write; only the statistics tell of it.
    const auto failed = statisticsOf(center, kind).failedWrites;
    if (failed.empty()) {
        return true;
    }
    console.message(
        fmt::format("the store could not be written ({} {}, the first {}); records come from memory, and derived "
                    "catalogues may lack them; --log says why",
                    failed.size(), failed.size() == 1 ? "database" : "databases", described(failed.front())));
    return false;
}

std::map<std::string, shared_ptr<mxservice::IData>> recordsKept(IInstrumentCenter& center, Catalogue catalogue) {
    using Records = std::map<std::string, shared_ptr<mxservice::IData>>;
    const auto all = [](const auto& records) { return Records(records.begin(), records.end()); };
    switch (catalogue) {
        case Catalogue::Instruments:  // in one map one record would hide another, see FiledInstruments
            break;
        case Catalogue::Etfs:
            return all(center.getEtfs());
        case Catalogue::Bonds:
            return all(center.getBonds());
        case Catalogue::TenderBonds:
            return all(center.getTrenderBondInfos());
        case Catalogue::Counterparties:
            return all(center.getCounterpartys());
        case Catalogue::OtcFundPlans:
            return all(center.getOtcInstruments());
        case Catalogue::Issuances:
            return all(center.getIssuanceInfos());
        case Catalogue::IssuancePrices:
            return all(center.getIssuancePriceInfos());
    }
    return {};
}

BothCenters loadBoth(const Snapshot& snapshot, Console& console) {
    BothCenters both{makeCenter(CenterKind::Server), makeCenter(CenterKind::Client)};
    // Copies: the first load fills in fields of its records, which the second would take for the day's.
    load(*both.server, copyOf(snapshot), console);
    load(*both.client, copyOf(snapshot), console);
    return both;
}

std::vector<LoadStep> load(IInstrumentCenter& center, const Snapshot& snapshot, Console& console) {
    std::vector<LoadStep> steps;
    const auto step = [&](Catalogue catalogue, std::size_t records, const auto& init) {
        // Left out altogether: to load no fund plans, for one, would empty their database.
        if (records == 0) {
            return;
        }
        console.begin(fmt::format("loading {} {}", records, catalogueName(catalogue)), 0);
        const auto began = std::chrono::steady_clock::now();
        init();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - began;
        steps.push_back({catalogue, records, taken.count()});
    };
    // Instruments first: components of funds get their names from them.
    step(Catalogue::Instruments, snapshot.instruments.size(),
         [&] { center.initInstruments(marketList(snapshot), snapshot.instruments); });
    step(Catalogue::Etfs, snapshot.etfs.size(), [&] { center.initEtfs(snapshot.etfs); });
    step(Catalogue::Bonds, snapshot.bonds.size(), [&] { center.initBonds(byKey(snapshot.bonds)); });
    step(Catalogue::TenderBonds, snapshot.tenderBonds.size(),
         [&] { center.initTenderBondInfos(byKey(snapshot.tenderBonds)); });
    step(Catalogue::Counterparties, snapshot.counterparties.size(),
         [&] { center.initCounterpartys(byKey(snapshot.counterparties)); });
    step(Catalogue::OtcFundPlans, snapshot.otcFundPlans.size(),
         [&] { center.initOtcInstruments(snapshot.otcFundPlans); });
    step(Catalogue::Issuances, snapshot.issuances.size(), [&] { center.initIssuanceInfos(snapshot.issuances); });
    step(Catalogue::IssuancePrices, snapshot.issuancePrices.size(),
         [&] { center.initIssuancePriceInfos(byKey(snapshot.issuancePrices)); });
    console.end();
    return steps;
}

}  // namespace inscenter
