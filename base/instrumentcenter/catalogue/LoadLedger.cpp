#include "base/instrumentcenter/catalogue/LoadLedger.h"

#include <algorithm>
#include <utility>

#include "base/instrumentcenter/catalogue/PseudoInstruments.h"

namespace mxservice {

void LoadNotes::receive(const ReceivedByMarket& received) {
    for (const auto& [market, records] : received) {
        noteByMarket_[market].received += records;
    }
}

void LoadNotes::noteRestored(MarketKey market, std::size_t records) {
    Note& note = noteByMarket_[market];
    // Restored records went through grouping as received ones; here they change sides.
    const std::uint64_t restored = std::min<std::uint64_t>(records, note.received);
    note.received -= restored;
    note.restored += restored;
}

void LoadNotes::noteCleared(MarketKey market, const std::string& name, KeySet former) {
    // A market that had nothing has nothing to lose; noted, it would be told of as emptied by this load.
    if (!former.empty()) {
        Note& note = noteByMarket_[market];
        note.name = name;
        std::swap(note.former, former);
    }
}

KeySet LoadNotes::takeCleared(MarketKey market) {
    KeySet former;
    const auto found = noteByMarket_.find(market);
    if (found != noteByMarket_.end()) {
        std::swap(found->second.former, former);
    }
    return former;
}

MarketLoad LoadNotes::settled(MarketKey market, MarketLoad load) {
    if (const auto found = noteByMarket_.find(market); found != noteByMarket_.end()) {
        load.received = found->second.received;
        load.restored = found->second.restored;
        // What is left when the load ends are the markets that it named and brought nothing for.
        noteByMarket_.erase(found);
    }
    // A host's derived class may hand in records of its own that nothing has counted on their way.
    load.received = std::max(load.received, load.stored - std::min(load.stored, load.restored));
    // Told from what is missing and not counted where it is dropped: who wins is decided in several places.
    load.outranked = load.received + load.restored - load.stored;
    return load;
}

std::map<MarketKey, MarketLoad> LoadNotes::emptied() {
    std::map<MarketKey, MarketLoad> loads;
    // Taken out: what is settled before a load ends must not be told of once more at its end.
    for (const auto& [market, note] : std::exchange(noteByMarket_, {})) {
        if (!note.former.empty()) {
            MarketLoad& load = loads[market];
            load.market = note.name;
            load.removed = note.former.size();
        }
    }
    return loads;
}

void LoadLedger::settle(MarketKey market, MarketLoad load) {
    MarketLoad& latest = latest_[market];
    // A batch without a single record tells no name; the market keeps the one that an earlier load knew.
    if (load.market.empty()) {
        load.market = latest.market;
    }
    latest = std::move(load);
}

void LoadLedger::settleEmptied(LoadNotes& notes) {
    for (auto& [market, load] : notes.emptied()) {
        settle(market, std::move(load));
    }
}

void LoadLedger::finish(LoadReport report, LoadNotes& notes) {
    settleEmptied(notes);
    // Numbered at its end: of two loads at once the one that ended last is the last, whichever began first.
    report.number = lastLoad_.number + 1;
    report.dropped = notes.dropped().records();
    lastLoad_ = std::move(report);
}

void LoadLedger::noteFailedWrite(const std::string& database, const std::string& reason) {
    FailedWrites& failed = failedWrites_[database];
    failed.database = database;
    ++failed.writes;
    failed.reason = reason;
}

void LoadLedger::report(CenterStatistics& statistics) const {
    statistics.lastLoad = lastLoad_;
    for (const auto& [market, load] : latest_) {
        if (!load.market.empty()) {  // else nothing but its hash is known, which says nothing to an operator
            statistics.markets.push_back(load);
        }
    }
    // By name: in the order of their hashes nobody would find one.
    std::sort(statistics.markets.begin(), statistics.markets.end(),
              [](const MarketLoad& a, const MarketLoad& b) { return a.market < b.market; });
    for (const auto& [database, failed] : failedWrites_) {
        statistics.failedWrites.push_back(failed);
    }
}

LoadReport reportOn(const std::vector<InstrumentPtr>& batch, DroppedList& dropped) {
    LoadReport report;
    report.records = batch.size();
    for (std::size_t position = 0; position < batch.size(); ++position) {
        if (!batch[position]) {
            dropped.addEmpty(position);
            ++report.empty;
        }
    }
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
