#include "base/instrumentcenter/CClientInstrumentCenter.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>

#include "base/instrumentcenter/ClientCatalogue.h"
#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"
#include "base/instrumentcenter/vocabulary/Exchanges.h"
#include "system/Memory.h"

// Construction and the load of instruments.

namespace mxservice {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Whether a futures platform code is another name for "the main contract" or "the n-th contract" of its product, and
/// no code of its own: "IFL8", "IF00", "IFmain".
bool isContinuousContract(std::string_view platformCode) {
    constexpr std::string_view kMainSuffix = "main";
    const auto last = [&](std::size_t back) { return platformCode[platformCode.size() - back]; };
    const std::size_t size = platformCode.size();
    return (size >= 2 && last(2) == 'L' && isDigit(last(1))) ||
           (size >= 3 && last(2) == '0' && last(1) == '0' && !isDigit(last(3))) ||
           (size >= kMainSuffix.size() && platformCode.substr(size - kMainSuffix.size()) == kMainSuffix);
}

/// A load of this many records needs far more memory than the center keeps, and hands it back.
constexpr std::size_t kLargeLoad = 10000;

/// What is filed as one market and may come in several loads.
std::set<std::string> hongKongFamily() {
    return {market::kShanghaiConnect, market::kHongKong, market::kShenzhenConnect};
}
std::set<std::string> shanghaiFamily() {
    return {market::kShanghai, market::kShanghaiSpecial};
}

/// The records of a sub-market, by the stock key of their own market.
using RecordsByMarket = std::map<std::string, MarketRecords>;

RecordsByMarket ofMarkets(const std::set<std::string>& family, const std::vector<InstrumentPtr>& instruments) {
    RecordsByMarket records;
    for (const InstrumentPtr& record : instruments) {
        if (record && family.count(record->market) != 0) {
            records[record->market][stockKey(record->market, record->code)] = record;
        }
    }
    return records;
}

void restoreRaw(const std::string& market, std::vector<InstrumentPtr>& extra) {
    const std::vector<InstrumentPtr> records =
        readRecords<CInstrumentDetail>(DBBuilder::buildRawDbName(market), knownRecordOf<CInstrumentDetail>);
    PM_CENTER_LOG(kLogInfo, kClientSource,
                  formatted("[clientIns] read from persist market = %1%, size = %2%", market, records.size()));
    extra.insert(extra.end(), records.begin(), records.end());
}

/// A failed raw write is deliberately not reported but counted: the next load of the sub-market writes it again.
void saveRaw(const std::string& market, const MarketRecords& records, Others others, Guarded<LoadLedger>& loads) {
    const DocumentBatch batch(records);
    const std::string db = DBBuilder::buildRawDbName(market);
    const auto save = [&] { return others == Others::Drop ? store().replace(db, batch) : store().write(db, batch); };
    if (!store().open(db) || !save()) {
        const std::string reason = store().lastFailure();
        loads.write()->noteFailedWrite(db, reason);
    }
}

/// Keeps the sub-markets that the load brings and restores the others of the family. Where the others are to be
/// dropped, the load has all that there is of the sub-markets it names: none of those comes back, now or with a later
/// load.
void mergeRaw(const std::set<std::string>& family, const std::vector<std::string>& markets,
              const std::vector<InstrumentPtr>& instruments, Others others, std::vector<InstrumentPtr>& extra,
              Guarded<LoadLedger>& loads) {
    std::set<std::string> named;
    std::copy_if(markets.begin(), markets.end(), std::inserter(named, named.end()),
                 [&](const std::string& name) { return family.count(name) != 0; });
    if (named.empty()) {
        return;
    }
    const RecordsByMarket brought = ofMarkets(family, instruments);
    const bool drops = others == Others::Drop;
    // Where nothing is brought, the market as a whole is left empty.
    for (const std::string& market : brought.empty() ? std::set<std::string>() : family) {
        if (brought.count(market) == 0 && !(drops && named.count(market) != 0)) {
            restoreRaw(market, extra);
        }
    }
    for (const auto& [market, records] : brought) {
        saveRaw(market, records, drops && named.count(market) != 0 ? Others::Drop : Others::Keep, loads);
    }
    for (const std::string& market : drops ? named : std::set<std::string>()) {
        if (brought.count(market) == 0) {
            // Mostly there is none, and none is made for it. One that cannot be emptied is the store's line in the log.
            store().drop(DBBuilder::buildRawDbName(market));
        }
    }
}

}  // namespace

CClientInstrumentCenter::CClientInstrumentCenter(const std::string& strandName, int instrumentCacheSize,
                                                 int bondCacheSize, int otcCacheSize)
    : client_(std::make_unique<ClientState>(state(), strandName, instrumentCacheSize, bondCacheSize, otcCacheSize)) {}

CClientInstrumentCenter::~CClientInstrumentCenter() {
    state().subscribers.close();  // while a handler that is running may still ask
}

Subscription CClientInstrumentCenter::subscribe(std::function<void(const CatalogueChange&)> handler,
                                                Executor executor) {
    return state().subscribe(std::move(handler), std::move(executor));
}

void CClientInstrumentCenter::initInstruments(const std::vector<std::string>& markets,
                                              const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    doInitInstruments(markets, instruments);
}

void CClientInstrumentCenter::doInitInstruments(const std::vector<std::string>& markets,
                                                const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    ClientLoad load(*client_);
    takeIn(markets, instruments, load);
}

void CClientInstrumentCenter::replaceInstruments(const std::vector<std::string>& markets,
                                                 const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    ClientLoad load(*client_);
    for (const std::string& market : markets) {
        const std::string name(foldedMarket(market));
        load.replaced.emplace(marketKey(name), name);
    }
    takeIn(markets, instruments, load);
}

void CClientInstrumentCenter::takeIn(const std::vector<std::string>& markets,
                                     const std::vector<InstrumentPtr>& instruments, ClientLoad& load) {
    LoadReport report = reportOn(instruments, load.notes.dropped());
    if (load.replaced.empty()) {
        forgetMarkets(markets, load);
    }
    loadInstruments(markets, instruments, load);
    load.steps.done(kReleaseStep);
    report.steps = load.steps.take();
    if (instruments.size() >= kLargeLoad) {
        sys::releaseFreeMemory();
    }
    report.time = load.watch.elapsed();
    state().loads.write()->finish(std::move(report), load.notes);
}

void CClientInstrumentCenter::loadInstruments(const std::vector<std::string>& markets,
                                              const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
                                              ClientLoad& load) {
    StepWatch& steps = load.steps;
    GroupedSnapshot datas;
    ConnectListings listings;
    group(instruments, datas, listings, load.notes);
    std::vector<InstrumentPtr> hongKongExtra;
    const Others others = load.replaced.empty() ? Others::Keep : Others::Drop;
    mergeRaw(hongKongFamily(), markets, instruments, others, hongKongExtra, state().loads);
    if (!hongKongExtra.empty()) {
        group(hongKongExtra, datas, listings, load.notes);
        load.notes.noteRestored(marketKey(market::kHongKong), hongKongExtra.size());
    }
    std::vector<InstrumentPtr> shanghaiExtra;
    mergeRaw(shanghaiFamily(), markets, instruments, others, shanghaiExtra, state().loads);
    if (!shanghaiExtra.empty()) {
        ConnectListings unused;
        group(shanghaiExtra, datas, unused, load.notes);
        load.notes.noteRestored(marketKey(market::kShanghai), shanghaiExtra.size());
    }
    combineConnectFlags(datas, listings);
    steps.done(kGroupingStep);
    const std::vector<std::string> emptied = beginReplacing(datas, load);
    // From here on the disk changes: killed before a market's write, the load leaves that market's former documents.
    writeMarkets(datas, "", load);
    removeMarkets(emptied);
    load.replacement.dropRest();
    // After a failed write `datas` lacks the market, or has what was unwritten before: deliberate, so what is
    // derived never names a record that the store was asked to hold and does not.
    steps.done(kFilingStep);
    createFutureMainDatas(datas);
    steps.done(kMainsStep);
    createFutureProdcutDatas(datas);
    steps.done(kProductsStep);
    createFutureDceDatas(datas);
    steps.done(kSpreadsStep);
    createStockCodes(markets, datas);
    steps.done(kStockCodesStep);
    createNeeqCodes(datas);
    steps.done(kNeeqStep);
    createStkOptionCodes(datas);
    steps.done(kOptionsStep);
    createOutterProductDatas(datas);
    steps.done(kOuterStep);
}

/// Notes the databases of replaced markets that the batch has records of, and answers the names of the others.
std::vector<std::string> CClientInstrumentCenter::beginReplacing(const Grouped& datas, ClientLoad& load) {
    std::vector<std::string> emptied;
    if (load.replaced.empty()) {
        return emptied;
    }
    for (const auto& [market, name] : load.replaced) {
        if (datas.count(market) == 0) {
            emptied.push_back(name);
        } else if (!isCatalogueName(name)) {
            // Also a database that no load of this center has registered: what an earlier process left goes as well.
            load.replacement.addLate(market, DBBuilder::buildDbName(name));
        }
    }
    std::vector<std::string> codeless = marketsWithoutCodes(datas);
    std::erase_if(codeless, [&](const std::string& name) { return !load.replaces(marketKey(name)); });
    if (!codeless.empty()) {
        client_->publish([&](ClientVersion& version) {
            for (const std::string& name : codeless) {
                removeMarket(name, version.codeSets.own());
            }
        });
    }
    return emptied;
}

void CClientInstrumentCenter::doProcessInstrument(
    const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
    std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& datas,
    std::map<uint64, std::map<uint64, std::int32_t>>& flags) {
    LoadNotes notes;
    group(instruments, datas, flags, notes);
}

void CClientInstrumentCenter::group(const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
                                    std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& datas,
                                    std::map<uint64, std::map<uint64, std::int32_t>>& flags, LoadNotes& notes) {
    notes.receive(groupRecords(instruments, datas, flags, notes.dropped()));
    // Noted in one step for the whole batch: a step each would stop every thread of the process for a moment, thousands
    // of times a load.
    std::map<std::string, std::string> platformCodes;
    for (const InstrumentPtr& record : instruments) {
        if (!record || record->code == record->platformCode) {
            continue;
        }
        const bool futures = utils::isFutureMarket(record->market) || utils::isFutureOptionMarket(record->market);
        if (futures && isContinuousContract(record->platformCode)) {
            PM_CENTER_LOG(kLogInfo, kClientSource,
                          fmt::format("[inscenter] continue ins {}, {}", record->code, record->platformCode));
        } else if (futures || utils::isForeignMarket(record->market)) {
            platformCodes[record->code] = record->platformCode;
        }
    }
    if (platformCodes.empty()) {
        return;
    }
    client_->publish([&](ClientVersion& version) {
        auto& known = version.lumoCodes.own();
        platformCodes.merge(known);  // of a code that is known the new one counts
        known.swap(platformCodes);
    });
}

void CClientInstrumentCenter::tryMergeHkExchangeDatas(
    const std::vector<std::string>& markets, const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
    std::vector<boost::shared_ptr<CInstrumentDetail>>& extra) {
    mergeRaw(hongKongFamily(), markets, instruments, Others::Keep, extra, state().loads);
}

void CClientInstrumentCenter::tryMergeSHExchangeDatas(
    const std::vector<std::string>& markets, const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
    std::vector<boost::shared_ptr<CInstrumentDetail>>& extra) {
    mergeRaw(shanghaiFamily(), markets, instruments, Others::Keep, extra, state().loads);
}

void CClientInstrumentCenter::createExchangeDatas(
    // NOLINTNEXTLINE(performance-unnecessary-value-param): hosts compile against the signature
    std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& datas, std::string market) {
    ClientLoad load(*client_);
    writeMarkets(datas, market, load);
}

void CClientInstrumentCenter::writeMarkets(
    std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& datas, const std::string& market,
    ClientLoad& load) {
    for (auto& [marketHash, records] : datas) {
        std::erase_if(records, [](const auto& entry) { return !entry.second; });
        writeMarket(marketHash, market, records, load);
    }
}

void CClientInstrumentCenter::writeMarket(uint64 marketHash, const std::string& market,
                                          std::map<uint64, boost::shared_ptr<CInstrumentDetail>>& records,
                                          ClientLoad& load) {
    const Stopwatch watch;
    const std::string firstMarket = records.empty() ? std::string() : records.begin()->second->market;
    const std::string folded(foldedMarket(market.empty() ? firstMarket : market));
    const std::string db = DBBuilder::buildDbName(folded);
    // Before the write: from now on a lookup that is cached answers the new record, never one older than the store's.
    client_->instruments.refresh(records);
    const KeySet former =
        load.replaces(marketHash) ? client_->listedKeys(marketHash) : load.notes.takeCleared(marketHash);
    MarketLoad done;
    done.market = folded;
    auto keys = std::make_shared<KeySet>();
    keys->reserve(records.size());
    bool oddlyKeyed = false;
    for (const auto& [key, record] : records) {
        keys->insert(key);
        done.replaced += former.count(key);
        oddlyKeyed = oddlyKeyed || isOfAnother(key, *record);
    }
    if (oddlyKeyed) {
        // Before the write as well: a lookup that did not know would take the new documents for damaged ones.
        client_->publish([&](ClientVersion& version) { version.markets[marketHash].own().isOddlyKeyed = true; });
    }
    done.stored = keys->size();
    done.removed = former.size() - done.replaced;
    const ClientLoad::Showing showing(load);  // after the keys are filed, or where the load fails before
    if (const std::optional<std::string> failure = storeMarket(marketHash, folded, records, load)) {
        PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, firstMarket));
        state().loads.write()->noteFailedWrite(db, *failure);
        done.unwritten = done.stored;
    }
    // Last, and after a failed write as well: a key that can be found has its record in the store or in memory. And not
    // before the cache is fresh: a market that was empty must not come back with a record of the day before.
    client_->publish([&](ClientVersion& version) {
        version.keys.file({{marketHash, std::move(keys)}});
        if (load.replaces(marketHash)) {
            for (const auto& [filed, gone] : version.keys.unfileRest(KeySet{marketHash})) {
                removeKeys(gone, version.futures.own());
            }
        }
        version.updateDbName(folded, db);
    });
    ClientState::logDbName(folded, db);
    done.time = watch.elapsed();
    done = load.notes.settled(marketHash, std::move(done));
    state().loads.write()->settle(marketHash, std::move(done));
}

/// Writes the documents and makes the records what memory keeps of the market; they leave with the unwritten batch of
/// before where the write fails. Answers the reason of that.
std::optional<std::string> CClientInstrumentCenter::storeMarket(
    uint64 marketHash, const std::string& name, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>& records,
    ClientLoad& load) {
    const MarketKey named = marketKey(name);  // another than `marketHash` where a host groups by rules of its own
    const std::string db = DBBuilder::buildDbName(name);
    const DocumentBatch batch(records);
    std::optional<std::string> failure;
    // Database, unwritten records and cache change together: of two loads of one market the one that writes last has
    // its way in all three.
    const DatabaseWriting writing(*client_, db);
    const Market known = client_->hold()->market(marketHash);
    // What an earlier load dropped stays to be seen until its documents are replaced.
    CatalogueChange told = load.difference(known, name, records, known.isDropped || load.replaces(marketHash));
    if (isCatalogueName(name)) {
        failure = "a catalogue's own documents have that name";
    } else if (!load.replacement.save(named, db, batch)) {
        failure = store().lastFailure();
    }
    // The cache is refreshed once more, for a reader that met the old document between the first time and now. After
    // the market is published: else a reader could still take an unwritten record of the day before from the former
    // version and cache it for good.
    if (!failure) {
        load.note = client_->publishUnshown(
            [&](ClientVersion& version) {
                version.markets[marketHash].own().unwrittenIsNewest = false;
                version.markets[named].own().isDropped = false;
                version.markets[named].own().isStale = false;
            },
            std::move(told));
        client_->instruments.refresh(records);
        return failure;
    }
    const MarketRecords unwritten = records;
    told = load.difference(known, name, unwritten, true);  // lists have nothing but these from now on
    cacheFailedDatas(marketHash, records);
    load.note = client_->publishUnshown([](ClientVersion& /*unchanged*/) {}, std::move(told));
    if (load.replaces(marketHash)) {
        // What the store has is not of this listing, and goes at the end. Said while no other load can have written
        // since: what that one brought must stay.
        client_->publish([&](ClientVersion& version) { version.markets[named].own().isDropped = true; });
    }
    client_->instruments.refresh(unwritten);
    return failure;
}

void CClientInstrumentCenter::cacheFailedDatas(uint64 marketHash,
                                               std::map<uint64, boost::shared_ptr<CInstrumentDetail>>& datas) {
    const auto unwritten = std::make_shared<const MarketRecords>(datas);
    MarketRecords former;
    client_->publish([&](ClientVersion& version) {
        Market& market = version.markets[marketHash].own();
        former = market.unwritten ? *market.unwritten : MarketRecords();
        market.unwritten = unwritten;
        market.unwrittenIsNewest = true;
    });
    datas.swap(former);
}

bool CClientInstrumentCenter::getCachedDatas(uint64 marketHash,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    return addUnwritten(client_->hold()->market(marketHash), out);
}

void CClientInstrumentCenter::clearDatas(const std::vector<std::string>& markets) {
    ClientLoad byNothing(*client_);
    forgetMarkets(markets, byNothing);
    byNothing.replacement.dropRest();
    state().loads.write()->settleEmptied(byNothing.notes);
}

void CClientInstrumentCenter::forgetMarkets(const std::vector<std::string>& markets, ClientLoad& load) {
    std::map<std::string, MarketKey> names;
    for (const std::string& market : markets) {
        const std::string name(foldedMarket(market));
        names.emplace(name, marketKey(name));
    }
    CatalogueChange told;
    {
        const auto version = client_->hold();
        for (const auto& [name, key] : names) {
            const Market& market = version->market(key);
            load.replacement.add(key, market.db);
            // Documents are told of when they go; these go now.
            if (market.unwrittenIsNewest) {
                add(load.difference(market, name, {}, true), told);
            }
        }
    }
    std::map<std::string, KeySet> formerByName;
    const auto forget = [&](ClientVersion& version) {
        for (const auto& [name, key] : names) {
            formerByName[name] = version.keys.unfileListed(key);
            Market& market = version.markets[key].own();
            // Another load may have dropped it already, and is to empty it then.
            market.isDropped = market.isDropped || load.replacement.drops(key);
            // From now on the market is empty; what was unwritten is a former day's.
            market.isStale = market.isStale || market.unwrittenIsNewest;
            market.unwrittenIsNewest = false;
        }
    };
    client_->publish(forget, std::move(told));
    for (auto& [name, former] : formerByName) {
        load.notes.noteCleared(names.at(name), name, std::move(former));
    }
}

std::list<std::string> CClientInstrumentCenter::getExchanges(EOvTraderType type) {
    switch (static_cast<std::int32_t>(type)) {
        case OvTraderForeign:
            return {market::kOuterFuture, market::kNyse, market::kNasdaq};
        case OvTraderOtc:
            return {market::kOtc};
        case OvTraderOuterFuture:
            return {market::kOuterFuture};
        default:
            return exchangesOf(type);
    }
}

}  // namespace mxservice
