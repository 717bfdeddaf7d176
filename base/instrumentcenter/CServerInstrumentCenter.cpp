#include "base/instrumentcenter/CServerInstrumentCenter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/IndexUpdate.h"
#include "base/instrumentcenter/catalogue/Prefetch.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"
#include "base/instrumentcenter/vocabulary/Exchanges.h"
#include "base/instrumentcenter/vocabulary/Keys.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/LogLine.h"

// Construction and the load of instruments.

namespace mxservice {
namespace {

bool isConnectSnapshot(const std::vector<std::string>& markets) {
    return markets.size() == 1 && (isConnectMarket(markets.front()) || markets.front() == market::kHongKong);
}

/// The records of a connect snapshot that the connect build leaves out.
std::uint64_t countForeign(const std::vector<InstrumentPtr>& snapshot) {
    return static_cast<std::uint64_t>(std::count_if(snapshot.begin(), snapshot.end(), [](const InstrumentPtr& record) {
        return record && foldedMarket(record->market) != market::kHongKong;
    }));
}

}  // namespace

CServerInstrumentCenter::CServerInstrumentCenter(const std::string& strandName)
    : server_(std::make_unique<ServerState>(strandName)) {}

CServerInstrumentCenter::~CServerInstrumentCenter() = default;

void CServerInstrumentCenter::initInstruments(const std::vector<std::string>& markets,
                                              const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    doInitInstruments(markets, instruments);
}

void CServerInstrumentCenter::doInitInstruments(const std::vector<std::string>& markets,
                                                const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    PM_LOG(utils::kLogInfo, kServerSource,
           fmt::format("[inscenter] init instruments [{0}] for [{1}] markets", instruments.size(), markets.size()));
    const Stopwatch watch;
    LoadReport report = reportOn(instruments);
    LoadNotes notes;
    if (isConnectSnapshot(markets)) {
        const std::lock_guard guard(state().connectLock);
        auto& snapshots = state().connectSnapshots;
        snapshots[markets.front()] = instruments;
        report.foreign = countForeign(instruments);
        if (snapshots.count(market::kShanghaiConnect) != 0 && snapshots.count(market::kShenzhenConnect) != 0) {
            buildConnect(notes);
        } else {
            report.waiting = report.records - report.empty - report.foreign;
        }
        report.time = watch.elapsed();
        state().loads.write()->finish(std::move(report), notes);
        return;
    }
    StepWatch steps;
    {
        GroupedSnapshot grouped;
        ConnectListings listings;
        notes.receive(groupRecords(instruments, grouped, listings));
        markConnectEligibility(grouped, listings);
        steps.done(kGroupingStep);
        fileRecords(grouped, notes);
        steps.done(kFilingStep);
        createFutureMainDatas(grouped);
        steps.done(kMainsStep);
        createFutureProdcutDatas(grouped);
        steps.done(kProductsStep);
        createFutureDceDatas(grouped);
        steps.done(kSpreadsStep);
        createStockCodes(markets, grouped);
        steps.done(kStockCodesStep);
        createNeeqCodes(grouped);
        steps.done(kNeeqStep);
        createStkOptionCodes(grouped);
        steps.done(kOptionsStep);
        for (auto& [market, group] : grouped) {
            releaseAhead(group);
        }
    }
    steps.done(kReleaseStep);
    report.steps = steps.take();
    report.time = watch.elapsed();
    state().loads.write()->finish(std::move(report), notes);
}

void CServerInstrumentCenter::doInitGgtInstruments() {
    LoadNotes notes;
    buildConnect(notes);
}

void CServerInstrumentCenter::buildConnect(LoadNotes& notes) {
    GroupedSnapshot grouped;
    {
        const std::lock_guard guard(state().connectLock);
        ConnectListings listings;
        for (const char* const name : {market::kShanghaiConnect, market::kShenzhenConnect, market::kHongKong}) {
            notes.receive(groupConnectRecords(state().connectSnapshots[name], grouped, listings));
        }
        markConnectEligibility(grouped, listings);
    }
    fileRecords(grouped, notes);
}

void CServerInstrumentCenter::createExchangeDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    LoadNotes notes;
    fileRecords(grouped, notes);
}

void CServerInstrumentCenter::fileRecords(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped, LoadNotes& notes) {
    PM_LOG(utils::kLogInfo, kServerSource, "[inscenter] create exchange datas");
    const Stopwatch watch;
    std::size_t count = 0;
    std::map<MarketKey, KeySet> keysByMarket;
    std::map<MarketKey, std::uint64_t> replacedByMarket;
    for (const auto& [market, records] : grouped) {
        count += records.size();
        replacedByMarket[market] = 0;
        KeySet& keys = keysByMarket[market];
        keys.reserve(records.size());
        for (const auto& [key, record] : records) {
            keys.insert(key);
        }
    }
    std::vector<std::pair<StockKey, InstrumentPtr>> replaced;  // destroyed after the lock
    replaced.reserve(std::min(count, kFewKeys));
    updateIndex(server_->records, count, [&](HashIndex<InstrumentPtr>& index) {
        for (const auto& [market, records] : grouped) {
            const std::size_t before = replaced.size();
            visitAhead(records, [&](const auto& entry) {
                InstrumentPtr& place = index[entry.first];
                if (place) {
                    replaced.emplace_back(entry.first, std::move(place));
                }
                place = entry.second;
            });
            replacedByMarket[market] = replaced.size() - before;
        }
    });
    server_->codeIndex.install(std::move(keysByMarket));

    const auto time = watch.elapsed();
    for (const auto& [market, records] : grouped) {
        MarketLoad load;
        load.market = filedMarketName(market, records);
        load.stored = records.size();
        load.replaced = replacedByMarket[market];
        load.time = time;
        load = notes.settled(market, std::move(load));
        state().loads.write()->settle(market, std::move(load));
    }
    releaseAhead(replaced);
}

namespace {

/// Takes the records of the keys out.
void eraseRecords(const KeySet& keys, Guarded<HashIndex<InstrumentPtr>>& records) {
    std::vector<InstrumentPtr> removed;  // destroyed after the lock
    removed.reserve(keys.size());
    updateIndex(records, keys.size(), [&](HashIndex<InstrumentPtr>& index) {
        for (const StockKey key : keys) {
            const auto found = index.find(key);
            if (found != index.end()) {
                removed.push_back(std::move(found->second));
                index.erase(found);
            }
        }
    });
}

}  // namespace

void CServerInstrumentCenter::clearDatas(const std::vector<std::string>& markets) {
    for (const std::string& name : markets) {
        eraseRecords(server_->codeIndex.clear(marketKey(foldedMarket(name))), server_->records);
    }
}

void CServerInstrumentCenter::removeMarkets(const std::vector<std::string>& markets) {
    for (const std::string& market : markets) {
        const std::string name(foldedMarket(market));
        const MarketKey key = marketKey(name);
        // What names keys goes before the records: a reader that still meets a name finds its record.
        removeMarket(name, state().codeSets);
        const KeySet keys = server_->codeIndex.remove(key);
        removeMarket(key, keys, *server_->futures.write());
        eraseRecords(keys, server_->records);
        LoadNotes notes;
        notes.noteCleared(key, name, keys);
        state().loads.write()->settleEmptied(notes);
    }
}

std::list<std::string> CServerInstrumentCenter::getExchanges(EOvTraderType type) {
    return exchangesOf(type);
}

}  // namespace mxservice
