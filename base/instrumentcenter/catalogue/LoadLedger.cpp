#include "base/instrumentcenter/catalogue/LoadLedger.h"

#include <algorithm>
#include <utility>

#include "base/instrumentcenter/catalogue/PseudoInstruments.h"

namespace mxservice {

void LoadLedger::receive(const ReceivedByMarket& received) {
    for (const auto& [market, records] : received) {
        pending_[market].received += records;
    }
}

void LoadLedger::noteRestored(MarketKey market, std::size_t records) {
    Pending& pending = pending_[market];
    const std::uint64_t restored = std::min<std::uint64_t>(records, pending.received);
    pending.received -= restored;
    pending.restored += restored;
}

void LoadLedger::noteCleared(MarketKey market, const std::string& name, KeySet former) {
    if (!former.empty()) {
        Pending& pending = pending_[market];
        pending.name = name;
        std::swap(pending.former, former);
    }
}

KeySet LoadLedger::takeCleared(MarketKey market) {
    KeySet former;
    const auto found = pending_.find(market);
    if (found != pending_.end()) {
        std::swap(found->second.former, former);
    }
    return former;
}

void LoadLedger::settle(MarketKey market, MarketLoad load) {
    if (const auto found = pending_.find(market); found != pending_.end()) {
        load.received = found->second.received;
        load.restored = found->second.restored;
        pending_.erase(found);
    }
    // A host's derived class may hand in records of its own that nothing has counted on their way.
    load.received = std::max(load.received, load.stored - std::min(load.stored, load.restored));
    load.outranked = load.received + load.restored - load.stored;
    MarketLoad& latest = latest_[market];
    if (load.market.empty()) {
        load.market = latest.market;
    }
    latest = std::move(load);
}

void LoadLedger::finish(LoadReport report) {
    const auto brought = std::exchange(pending_, {});
    for (const auto& [market, pending] : brought) {
        if (!pending.former.empty()) {
            MarketLoad empty;
            empty.market = pending.name;
            empty.removed = pending.former.size();
            settle(market, std::move(empty));
        }
    }
    report.number = lastLoad_.number + 1;
    lastLoad_ = std::move(report);
}

void LoadLedger::report(CenterStatistics& statistics) const {
    statistics.lastLoad = lastLoad_;
    for (const auto& [market, load] : latest_) {
        if (!load.market.empty()) {
            statistics.markets.push_back(load);
        }
    }
    std::sort(statistics.markets.begin(), statistics.markets.end(),
              [](const MarketLoad& a, const MarketLoad& b) { return a.market < b.market; });
    for (const auto& [database, writes] : failedWrites_) {
        statistics.failedWrites.push_back({database, writes});
    }
}

LoadReport reportOn(const std::vector<InstrumentPtr>& batch) {
    LoadReport report;
    report.records = batch.size();
    report.empty = static_cast<std::uint64_t>(std::count(batch.begin(), batch.end(), nullptr));
    return report;
}

std::string filedMarketName(MarketKey market, const MarketRecords& records) {
    if (market == marketKey(kEtfInstruments)) {
        return kEtfInstruments;
    }
    const auto any = std::find_if(records.begin(), records.end(), [](const auto& entry) { return entry.second; });
    return any == records.end() ? std::string() : std::string(foldedMarket(any->second->market));
}

}  // namespace mxservice
