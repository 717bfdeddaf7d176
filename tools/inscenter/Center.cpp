#include "tools/inscenter/Center.h"

#include <fmt/format.h>

#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <unordered_map>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "tools/inscenter/MarketNames.h"

namespace inscenter {
namespace {

using boost::shared_ptr;
using mxservice::IInstrumentCenter;

constexpr const char* kStrand = "inscenter";
// Lists leave the caches alone, so what they hold are keys that somebody has typed.
constexpr int kInstrumentCache = 4096;
constexpr int kBondCache = 1024;
constexpr int kOtcCache = 1024;

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

std::map<std::string, shared_ptr<mxservice::IData>> recordsKept(IInstrumentCenter& center,
                                                                SnapshotCatalogue catalogue) {
    using Records = std::map<std::string, shared_ptr<mxservice::IData>>;
    const auto all = [](const auto& records) { return Records(records.begin(), records.end()); };
    switch (catalogue) {
        case SnapshotCatalogue::Instruments:  // in one map one record would hide another, see FiledInstruments
            break;
        case SnapshotCatalogue::Etfs:
            return all(center.getEtfs());
        case SnapshotCatalogue::Bonds:
            return all(center.getBonds());
        case SnapshotCatalogue::TenderBonds:
            return all(center.getTrenderBondInfos());
        case SnapshotCatalogue::Counterparties:
            return all(center.getCounterpartys());
        case SnapshotCatalogue::OtcPlans:
            return all(center.getOtcInstruments());
        case SnapshotCatalogue::Issuances:
            return all(center.getIssuanceInfos());
        case SnapshotCatalogue::IssuancePrices:
            return all(center.getIssuancePriceInfos());
    }
    return {};
}

void separate(Snapshot& snapshot) {
    namespace market = mxservice::market;
    for (auto& record : snapshot.instruments) {
        // What is filed under another market, and Hong Kong records, whose connect flags are filled in.
        if (filedMarket(record->market) != record->market || record->market == market::kHongKong) {
            record = boost::static_pointer_cast<mxservice::CInstrumentDetail>(record->copy());
        }
    }
    Snapshot funds;
    funds.etfs = std::move(snapshot.etfs);
    snapshot.etfs = funds.copy().etfs;  // with baskets of their own, where a load writes names
}

BothCenters loadBoth(const Snapshot& snapshot, Console& console) {
    BothCenters both{makeCenter(CenterKind::Server), makeCenter(CenterKind::Client)};
    // Copies: the first load fills in fields of its records, which the second would take for the day's.
    load(*both.server, snapshot.copy(), console);
    load(*both.client, snapshot.copy(), console);
    return both;
}

std::vector<LoadStep> load(IInstrumentCenter& center, const Snapshot& snapshot, Console& console) {
    std::vector<LoadStep> steps;
    snapshot.loadInto(center, [&](SnapshotCatalogue catalogue, std::size_t records, const std::function<void()>& init) {
        console.begin(fmt::format("loading {} {}", records, catalogueName(catalogue)), 0);
        const auto began = std::chrono::steady_clock::now();
        init();
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - began;
        steps.push_back({catalogue, records, taken.count()});
    });
    console.end();
    return steps;
}

}  // namespace inscenter
