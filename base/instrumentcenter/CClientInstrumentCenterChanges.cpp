#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "base/instrumentcenter/ClientAmendment.h"
#include "base/instrumentcenter/ClientLoad.h"
#include "base/instrumentcenter/store/DBBuilder.h"
#include "base/instrumentcenter/store/Documents.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

// Changes of single records, up to the publication of the markets; ClientAmendmentDerived.cpp goes on from there.

namespace mxservice {
namespace {

/// What lists have of the key. Not from the record cache, which may keep what an earlier load has left of it.
InstrumentPtr listedRecord(const Market& market, StockKey key) {
    InstrumentPtr record;
    if (!market.unwrittenIsNewest && !market.isDropped) {
        record = readRecord<CInstrumentDetail>(market.db, key);
    }
    return record ? record : market.unwrittenRecord(key);
}

}  // namespace

ClientAmendment::ClientAmendment(CClientInstrumentCenter& center, const std::vector<InstrumentPtr>& upserts,
                                 const std::vector<std::string>& removedKeys)
    : center_(center),
      client_(*center.client_),
      telling_(client_.subscribers),
      batch_(upserts),
      removedKeys_(removedKeys) {
    LoadNotes unused;  // no load, so none to report on
    center_.group(upserts, amendment_.upserts, amendment_.listings, unused);
    setRemoved(removedKeys, amendment_);
}

void ClientAmendment::apply() {
    {
        const LogDelay delay;  // ends after the locks are dropped
        const std::lock_guard guard(client_.changes);
        {
            const auto writing = lockDatabases();
            collect();
            if (changes_.empty()) {
                return;
            }
            amendRaw();
            amendStore();
        }
        // With the markets' mutexes dropped: each of these takes that of its own database, and two are never waited for
        // but in the order of their names.
        amendMains();
        amendProducts();
        deriveAnew();
    }
    for (const auto& [market, change] : changes_) {
        if (change.failure) {
            PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, change.name));
            noteFailure(change.db, *change.failure);
        }
    }
    for (const auto& [db, reason] : failures_) {
        client_.loads.write()->noteFailedWrite(db, reason);
    }
}

/// The write mutexes of all markets concerned, by name, as two that hold several must. No load writes these markets
/// from now on until documents and keys of the change agree.
std::map<std::string, std::unique_lock<std::mutex>> ClientAmendment::lockDatabases() {
    std::map<std::string, std::unique_lock<std::mutex>> writing;
    const auto version = client_.hold();
    for (const auto& [market, records] : amendment_.upserts) {
        if (!records.empty()) {
            writing[DBBuilder::buildDbName(std::string(foldedMarket(records.begin()->second->market)))];
        }
    }
    for (const StockKey key : amendment_.removed) {
        if (const MarketKey* const market = version->keys.marketOf(key)) {
            writing[version->market(*market).db];
        }
    }
    for (auto& [db, lock] : writing) {
        lock = std::unique_lock(client_.writeLock(db));
    }
    // A removed key may have got a market in between, by a load at the same time: then it came after this change.
    const auto now = client_.hold();
    erase_if(amendment_.removed, [&](StockKey key) {
        const MarketKey* const market = now->keys.marketOf(key);
        return market != nullptr && writing.count(now->market(*market).db) == 0;
    });
    return writing;
}

void ClientAmendment::collect() {
    const auto version = client_.hold();
    for (const StockKey key : amendment_.touched()) {
        if (const MarketKey* const market = version->keys.marketOf(key)) {
            former_[key] = {*market, listedRecord(version->market(*market), key)};
        }
    }
    keepListings(former_, listingsCombined, amendment_);
    combineConnectFlags(amendment_.upserts, amendment_.listings);
    for (const auto& [market, records] : amendment_.upserts) {
        if (!records.empty()) {
            MarketChange& change = changes_[market];
            change.name = foldedMarket(records.begin()->second->market);
            change.db = DBBuilder::buildDbName(change.name);
            change.records = records;
        }
    }
    for (auto& [market, keys] : goneKeys(amendment_, former_)) {
        MarketChange& change = changes_[market];
        change.gone = std::move(keys);
        if (change.db.empty()) {
            change.db = version->market(market).db;
        }
    }
}

/// First: who dies before the market itself is written leaves a change that the next load of the family brings.
void ClientAmendment::amendRaw() {
    constexpr std::array<const char*, 5> kRawMarkets{market::kShanghaiConnect, market::kHongKong,
                                                     market::kShenzhenConnect, market::kShanghai,
                                                     market::kShanghaiSpecial};
    for (const char* const name : kRawMarkets) {
        MarketRecords records;
        for (const InstrumentPtr& record : batch_) {
            if (record && record->market == name) {
                records[stockKey(name, record->code)] = record;
            }
        }
        std::vector<std::string> removed;
        const bool special = name == std::string_view(market::kShanghaiSpecial);
        const std::string_view folded = special ? market::kShanghai : foldedMarket(name);
        for (const std::string& text : removedKeys_) {
            // By the text handed in, for the record may not be readable. Its market is the one that it is filed under.
            const auto filed = former_.find(foldedTextKey(text));
            if (filed != former_.end() && filed->second.market == marketKey(folded) &&
                amendment_.removed.contains(filed->first)) {
                const bool isConnect = isConnectMarket(std::string_view(text).substr(0, 3));
                removed.push_back(std::to_string(stockKey(name, text.substr(isConnect ? 3 : folded.size()))));
            }
        }
        const std::string db = DBBuilder::buildRawDbName(name);
        // Where there is no such database, there is nothing to remove.
        const bool isConcerned =
            !records.empty() ||
            (!removed.empty() && store().visitAll(db, [](std::string_view, const Document&) { return false; }));
        if (isConcerned && !(store().open(db) && store().change(db, DocumentBatch(records), removed))) {
            noteFailure(db, store().lastFailure());
        }
    }
}

/// Documents, then keys: what is filed has its document.
void ClientAmendment::amendStore() {
    CatalogueChange told;
    for (auto& [market, change] : changes_) {
        // Before the write: a cached lookup answers the new record from now on, never one older than the store's.
        client_.instruments.refresh(change.records);
        add(write(market, change), told);
    }
    publish(std::move(told));
    // For a reader that met the old document in between.
    for (auto& [market, change] : changes_) {
        client_.instruments.refresh(change.records);
    }
}

/// Answers what is to be told.
CatalogueChange ClientAmendment::write(MarketKey market, MarketChange& change) {
    const Market known = client_.hold()->market(market);
    const bool listens = client_.subscribers.any();
    CatalogueChange told;
    const auto keepUnwritten = [&] {
        if (auto whole = wholeOf(known, market, change)) {
            change.isWhole = true;
            change.unwritten = std::make_shared<const MarketRecords>(std::move(*whole));
        } else {
            MarketRecords beside = known.unwritten ? *known.unwritten : MarketRecords();
            for (const auto& [key, record] : change.records) {
                beside[key] = record;
            }
            change.unwritten = std::make_shared<const MarketRecords>(std::move(beside));
        }
    };
    if (known.unwrittenIsNewest) {
        // Memory alone has the market, until a load can write it: these documents would stand among a former day's.
        keepUnwritten();
        return listens ? differenceOf(market, change) : told;
    }
    const DocumentBatch batch(change.records);
    std::vector<std::string> removed;
    for (const StockKey key : change.gone) {
        removed.push_back(std::to_string(key));
    }
    // What an earlier process left, or a load under way has dropped, is not the market's any more.
    const bool replaces = known.db.empty() || known.isDropped;
    if (listens) {
        told = replaces ? marketDifference(known, change.name, change.records, true) : differenceOf(market, change);
    }
    if (isCatalogueName(change.name)) {
        change.failure = "a catalogue's own documents have that name";
    } else if (!store().open(change.db) ||
               !(replaces ? store().replace(change.db, batch) : store().change(change.db, batch, removed))) {
        change.failure = store().lastFailure();
    }
    if (change.failure) {
        keepUnwritten();
    }
    return told;
}

/// What becomes of the touched records.
CatalogueChange ClientAmendment::differenceOf(MarketKey market, const MarketChange& change) const {
    CatalogueChange told;
    std::string name = change.name;
    for (const auto& [key, filed] : former_) {
        if (filed.market == market && change.records.count(key) == 0) {
            addDifference(filed.record, nullptr, told);
            name = name.empty() && filed.record ? filedMarketName(market, {{key, filed.record}}) : name;
        }
    }
    const auto version = client_.hold();
    for (const auto& [key, record] : change.records) {
        const auto filed = former_.find(key);
        // Where a market is removed at the same time, lists may have a record whose key is filed no more.
        addDifference(filed == former_.end() ? listedRecord(version->market(market), key) : filed->second.record,
                      record, told);
    }
    if (!name.empty()) {
        told.markets.push_back(std::move(name));
    }
    return told;
}

/// Everything that the market has with the change; nothing where its documents cannot be read.
std::optional<MarketRecords> ClientAmendment::wholeOf(const Market& known, MarketKey market,
                                                      const MarketChange& change) const {
    const auto version = client_.hold();
    MarketRecords whole;
    if (known.unwritten) {
        whole = *known.unwritten;  // of a former day perhaps: documents are newer unless the last write failed
    }
    if (!known.unwrittenIsNewest && !known.db.empty() && !known.isDropped) {
        const bool isRead = store().visitAll(known.db, [&](std::string_view key, Document document) {
            if (InstrumentPtr record = recordOf<CInstrumentDetail>(document)) {
                whole[documentKey(key)] = std::move(record);
            }
            return true;
        });
        if (!isRead) {
            return std::nullopt;
        }
    }
    std::erase_if(whole, [&](const auto& entry) {
        const MarketKey* const filed = version->keys.marketOf(entry.first);
        return change.gone.contains(entry.first) || filed == nullptr || *filed != market;
    });
    for (const auto& [key, record] : change.records) {
        whole[key] = record;
    }
    return whole;
}

void ClientAmendment::publish(CatalogueChange told) {
    const KeySet touched = amendment_.touched();
    const auto mains = deriveMainContracts(amendment_.upserts, client_.futureMarkets);
    const auto amend = [&](ClientVersion& version) {
        version.keys.amend(upsertedKeys(amendment_), goneKeys(amendment_, former_));
        for (const auto& [hash, change] : changes_) {
            Market& market = version.markets[hash].own();
            if (change.unwritten) {
                market.unwritten = change.unwritten;
                market.unwrittenIsNewest = market.unwrittenIsNewest || change.isWhole;
            } else {
                market.isDropped = false;
                market.isStale = false;
            }
            if (!change.name.empty()) {
                version.updateDbName(change.name, change.db);
            }
        }
        if (!mains.empty() || namesMainContract(touched, *version.futures)) {
            amendMainContracts(touched, mains, version.futures.own());
        }
        amendCodes(amendment_, version.codeSets.own());
    };
    client_.publish(amend, std::move(told));
}

void CClientInstrumentCenter::applyChanges(const std::vector<boost::shared_ptr<CInstrumentDetail>>& upserts,
                                           const std::vector<std::string>& removedKeys) {
    PM_CENTER_LOG(kLogInfo, kClientSource,
                  fmt::format("[inscenter] apply changes: [{0}] records, [{1}] keys removed", upserts.size(),
                              removedKeys.size()));
    ClientAmendment(*this, upserts, removedKeys).apply();
}

}  // namespace mxservice
