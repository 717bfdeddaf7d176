#include "base/instrumentcenter/CServerInstrumentCenter.h"

#include <fmt/format.h>

#include <cstddef>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/catalogue/Prefetch.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"
#include "base/instrumentcenter/vocabulary/Exchanges.h"
#include "base/instrumentcenter/vocabulary/Keys.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

// Construction and the load of instruments. A load prepares a ServerChange on its own thread, without a lock, and
// publishes it once; one that throws before has changed nothing that readers see.

namespace mxservice {
namespace {

constexpr const char* kFilingLine = "[inscenter] create exchange datas";

bool isConnectSnapshot(const std::vector<std::string>& markets) {
    return markets.size() == 1 && (isConnectMarket(markets.front()) || markets.front() == market::kHongKong);
}

/// How many records of a connect snapshot the connect build leaves out.
std::uint64_t countForeign(const std::vector<InstrumentPtr>& snapshot, DroppedList& dropped) {
    std::uint64_t foreign = 0;
    for (const InstrumentPtr& record : snapshot) {
        if (record && foldedMarket(record->market) != market::kHongKong) {
            dropped.add(*record, kForeignRecord);
            ++foreign;
        }
    }
    return foreign;
}

}  // namespace

void ServerChange::file(const GroupedSnapshot& grouped) {
    grouped_ = &grouped;
    // The sets are made here, on the loading thread alone: applyTo() runs while every other load waits.
    for (const auto& [market, records] : grouped) {
        auto keys = std::make_shared<KeySet>();
        keys->reserve(records.size());
        for (const auto& [key, record] : records) {
            keys->insert(key);
        }
        keysByMarket_[market] = std::move(keys);
    }
}

void ServerChange::replace(const std::vector<std::string>& markets) {
    for (const std::string& market : markets) {
        const std::string name(foldedMarket(market));
        const MarketKey key = marketKey(name);
        replacedMarkets_.emplace(name, key);
        keysByMarket_.try_emplace(key, std::make_shared<const KeySet>());  // one that nothing was brought for is empty
    }
}

void ServerChange::applyTo(ServerVersion& version) {
    if (grouped_ != nullptr) {
        std::size_t count = 0;
        for (const auto& [market, records] : *grouped_) {
            count += records.size();
        }
        // In ascending order of the markets: of a key that several bring the last one has it.
        version.records.put(count, [&](const auto& putOne) {
            for (const auto& [market, records] : *grouped_) {
                std::uint64_t& replaced = replacedByMarket_[market];
                for (const auto& [key, record] : records) {
                    replaced += putOne(key, record) ? 1U : 0U;
                }
            }
        });
        // The former sets alone are forgotten: keys that the new ones lack stay filed, until their market is removed.
        version.keys.file(keysByMarket_);
    }
    if (!replacedMarkets_.empty()) {
        forgetRest(version);
    }
    // After the records, so that what is derived of them never names one that the version lacks.
    for (const auto& step : steps_) {
        step(version);
    }
}

/// Before anything derived is put in: of what stood there, only that of these markets goes.
void ServerChange::forgetRest(ServerVersion& version) {
    KeySet markets;
    for (const auto& [name, market] : replacedMarkets_) {
        markets.insert(market);
    }
    goneByMarket_ = version.keys.unfileRest(markets);
    FuturesCatalogue& futures = version.futures.own();
    CodeSets& codeSets = version.codeSets.own();
    KeySet gone;
    for (const auto& [name, market] : replacedMarkets_) {
        gone.insert(goneByMarket_[market].begin(), goneByMarket_[market].end());
        removeMarket(market, goneByMarket_[market], futures);
        removeMarket(name, codeSets);
    }
    version.records.erase(gone);
}

void ServerChange::publishTo(InterfaceState& state) {
    if ((grouped_ != nullptr && !grouped_->empty()) || !replacedMarkets_.empty() || !steps_.empty()) {
        publish(state, [this](ServerVersion& version) { applyTo(version); });
    }
}

CServerInstrumentCenter::CServerInstrumentCenter(const std::string& strandName)
    : server_(std::make_unique<ServerState>(strandName)) {
    // In place of the interface's own first version, before anybody can ask: every question takes it for a
    // ServerVersion.
    state().versions.update([](const Version& /*empty*/) { return std::make_shared<ServerVersion>(); });
}

CServerInstrumentCenter::~CServerInstrumentCenter() {
    state().subscribers.close();  // while a handler that is running may still ask
}

Subscription CServerInstrumentCenter::subscribe(std::function<void(const CatalogueChange&)> handler,
                                                Executor executor) {
    return state().subscribe(std::move(handler), std::move(executor));
}

void CServerInstrumentCenter::initInstruments(const std::vector<std::string>& markets,
                                              const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    doInitInstruments(markets, instruments);
}

void CServerInstrumentCenter::doInitInstruments(const std::vector<std::string>& markets,
                                                const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    PM_CENTER_LOG(
        kLogInfo, kServerSource,
        fmt::format("[inscenter] init instruments [{0}] for [{1}] markets", instruments.size(), markets.size()));
    load(markets, instruments, Others::Keep);
}

void CServerInstrumentCenter::replaceInstruments(const std::vector<std::string>& markets,
                                                 const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    PM_CENTER_LOG(
        kLogInfo, kServerSource,
        fmt::format("[inscenter] replace instruments [{0}] for [{1}] markets", instruments.size(), markets.size()));
    load(markets, instruments, Others::Drop);
}

void CServerInstrumentCenter::loadTogether(const std::function<void()>& loads) {
    const Subscribers::HoldBack telling(state().subscribers);  // one change for all, when no lock is held
    // Before any publication, as every load takes the two: one that waits for publishing with this lock held, while
    // this thread wants the lock within, would be waited for.
    const std::lock_guard guard(state().connectLock);
    auto parts = state().connectSnapshots;
    try {
        state().publishTogether(loads, differenceMaker(nullptr));
    } catch (...) {
        state().connectSnapshots.swap(parts);  // or the next part would bring what nobody has seen
        throw;
    }
}

void CServerInstrumentCenter::load(const std::vector<std::string>& markets,
                                   const std::vector<InstrumentPtr>& instruments, Others others) {
    const Subscribers::HoldBack telling(state().subscribers);  // until the load is noted and no lock is held
    const Stopwatch watch;
    LoadNotes notes;
    LoadReport report = reportOn(instruments, notes.dropped());
    const auto finish = [&] {
        report.time = watch.elapsed();
        state().loads.write()->finish(std::move(report), notes);
    };
    if (isConnectSnapshot(markets)) {
        // Held until the load is noted, so that of two the one that built last is the one told of.
        const std::lock_guard guard(state().connectLock);
        loadConnectSnapshot(markets.front(), instruments, others, report, notes);
        finish();
        return;
    }
    report.steps = loadMarkets(markets, instruments, others, notes);
    finish();
}

void CServerInstrumentCenter::loadConnectSnapshot(const std::string& market,
                                                  const std::vector<InstrumentPtr>& instruments, Others others,
                                                  LoadReport& report, LoadNotes& notes) {
    auto& snapshots = state().connectSnapshots;
    snapshots[market] = instruments;
    report.foreign = countForeign(instruments, notes.dropped());
    // Hong Kong's own listing is not waited for: one connect market alone says of no code whether both list it, but
    // without "HK" all that is missing are codes that neither lists.
    if (snapshots.count(market::kShanghaiConnect) != 0 && snapshots.count(market::kShenzhenConnect) != 0) {
        buildConnect(others, notes);
    } else {
        report.waiting = report.records - report.empty - report.foreign;
    }
}

std::vector<LoadStep> CServerInstrumentCenter::loadMarkets(const std::vector<std::string>& markets,
                                                           const std::vector<InstrumentPtr>& instruments, Others others,
                                                           LoadNotes& notes) {
    StepWatch steps;
    {
        GroupedSnapshot grouped;
        ConnectListings listings;
        ServerChange change;
        notes.receive(groupRecords(instruments, grouped, listings, notes.dropped()));
        markConnectEligibility(grouped, listings);
        file(grouped, change);
        if (others == Others::Drop) {
            change.replace(markets);
        }
        steps.done(kGroupingStep);
        deriveMains(grouped, change);
        steps.done(kMainsStep);
        createFutureProdcutDatas(grouped);
        steps.done(kProductsStep);
        deriveSpreads(grouped, change);
        steps.done(kSpreadsStep);
        deriveCodes(markets, grouped, change);
        steps.done(kStockCodesStep);
        deriveInquiries(grouped, change);
        steps.done(kNeeqStep);
        deriveUnderlyings(grouped, change);
        steps.done(kOptionsStep);
        publishLoad(grouped, change, notes);
        steps.done(kFilingStep);
        // The trees would let go of one record after the other and wait for memory at each.
        for (auto& [market, group] : grouped) {
            releaseAhead(group);
        }
    }
    steps.done(kReleaseStep);  // with what the scope lets go of: the trees alone take milliseconds
    return steps.take();
}

void CServerInstrumentCenter::doInitGgtInstruments() {
    LoadNotes notes;
    buildConnect(Others::Keep, notes);
}

void CServerInstrumentCenter::buildConnect(Others others, LoadNotes& notes) {
    // Before the parts are looked at: an appender may change a record from within the line.
    PM_CENTER_LOG(kLogInfo, kServerSource, kFilingLine);
    GroupedSnapshot grouped;
    {
        // Taken again by a load, which holds it already; a host's derived class may build by itself.
        const std::lock_guard guard(state().connectLock);
        ConnectListings listings;
        for (const char* const name : {market::kShanghaiConnect, market::kShenzhenConnect, market::kHongKong}) {
            notes.receive(groupConnectRecords(state().connectSnapshots[name], grouped, listings, notes.dropped()));
        }
        markConnectEligibility(grouped, listings);
    }
    // Nothing is derived: Hong Kong has neither futures nor code sets.
    ServerChange change;
    change.file(grouped);
    if (others == Others::Drop) {
        change.replace({market::kHongKong});
    }
    publishLoad(grouped, change, notes);
}

void CServerInstrumentCenter::createExchangeDatas(const GroupedSnapshot& grouped) {
    ServerChange change;
    LoadNotes notes;
    file(grouped, change);
    publishLoad(grouped, change, notes);
}

void CServerInstrumentCenter::file(const GroupedSnapshot& grouped, ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, kFilingLine);
    change.file(grouped);
}

void CServerInstrumentCenter::publishLoad(const GroupedSnapshot& grouped, ServerChange& change, LoadNotes& notes) {
    const Stopwatch watch;
    change.publishTo(state());
    const auto time = watch.elapsed();  // of all markets: they are filed in one step
    for (const auto& [market, records] : grouped) {
        MarketLoad load;
        load.market = filedMarketName(market, records);
        load.stored = records.size();
        load.replaced = change.replacedIn(market);
        load.removed = change.goneFrom(market).size();
        load.time = time;
        load = notes.settled(market, std::move(load));
        state().loads.write()->settle(market, std::move(load));
    }
    for (const auto& [name, market] : change.replacedMarkets()) {
        if (grouped.count(market) == 0) {
            notes.noteCleared(market, name, change.goneFrom(market));
        }
    }
}

void CServerInstrumentCenter::clearDatas(const std::vector<std::string>& markets) {
    publish(state(), [&](ServerVersion& version) {
        for (const std::string& name : markets) {
            // Of the records only those listed: a key of an earlier load keeps its record until the market is removed.
            version.records.erase(version.keys.unfileListed(marketKey(foldedMarket(name))));
        }
    });
}

void CServerInstrumentCenter::removeMarkets(const std::vector<std::string>& markets) {
    LoadNotes notes;
    if (markets.empty()) {
        return;  // no version: nothing has changed that readers could see
    }
    // All markets in one version, and their derived catalogues with them: a main contract must not outlive its record.
    publish(state(), [&](ServerVersion& version) {
        FuturesCatalogue& futures = version.futures.own();
        CodeSets& codeSets = version.codeSets.own();
        for (const std::string& market : markets) {
            const std::string name(foldedMarket(market));
            const MarketKey key = marketKey(name);
            KeySet keys = version.keys.unfileAll(key);
            version.records.eraseForGood(keys);
            removeMarket(key, keys, futures);
            removeMarket(name, codeSets);
            notes.noteCleared(key, name, std::move(keys));
        }
    });
    state().loads.write()->settleEmptied(notes);
}

std::list<std::string> CServerInstrumentCenter::getExchanges(EOvTraderType type) {
    return exchangesOf(type);
}

}  // namespace mxservice
